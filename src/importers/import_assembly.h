// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "survey/rotation.h"
#include "survey/source_lens.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// The frame of the poses of a project that may have moved them to the map grid.
enum class FrameChoice { kAuto, kGrid, kLocal };

/// What a user says of a project beside its path; all optional.
struct ImportRequest {
  std::string path;        ///< the project's folder or file
  std::string dsmPath;     ///< surface model; empty: the project's own
  std::string photoDir;    ///< where the photos lie; empty: where the project says
  std::string crs;         ///< of the poses ("EPSG:25832", WKT); empty: what the project says
  Vector3 offset{};        ///< added to the poses' coordinates, in `crs`
  std::string cameraFile;  ///< calibration of a source that has none of its own
  FrameChoice frame = FrameChoice::kAuto;  ///< auto: found out
};

/// A photo of another tool, placed on the DSM's map.
struct PlacedShot {
  std::string name;  ///< as the source names it: a file name, perhaps a path, perhaps no extension
  std::string camera;        ///< key of the camera
  Vector3 centre{};          ///< projection centre: east, north, height in the DSM's units
  Matrix3 cameraToGround{};  ///< columns: right, up, backward on the ground
};

/// A whole project of another tool, in terms that all of them share.
struct PlacedProject {
  std::map<std::string, SourceCamera> cameras;
  std::vector<PlacedShot> shots;      ///< in flight order
  std::vector<std::string> unplaced;  ///< photos without a place on the DSM's map
  std::string photoDir;
};

/// The coordinate system of a DSM as WKT, checked to be a metric map.
/// @return false with one line in `error` that names the file.
[[nodiscard]] bool ReadMetricMap(const std::string& dsmPath, std::string& wkt, std::string& error);

/// Turns a placed project into cameras and photo blocks: one block per camera, in the order of the
/// shots, each lens expressed as a camera of the list.
///
/// Photos are looked up in the project's photo folder: by their path below it, by file name,
/// regardless of case, with the extension of a photo added. Photos that are missing, unreadable, of
/// another size than their calibration or without a place are left out with a note. Fills
/// `cameras`, `blocks` and appends to `notes` of `survey`.
///
/// @return false, with one line in `error`, when a needed camera cannot be expressed or no photo is
///         left.
[[nodiscard]] bool AssembleSurvey(const PlacedProject& project, Survey& survey, std::string& error);

/// The files of photos as a project names them, looked up as AssembleSurvey does; empty where there
/// is none.
[[nodiscard]] std::vector<std::string> FindPhotoFiles(const std::string& photoDir,
                                                      const std::vector<std::string>& names);

}  // namespace tqtortho::host
