// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "survey/rotation.h"
#include "survey/source_lens.h"

namespace tqtortho::host {

/// One oriented photo of a reconstruction.
struct OpenSfmShot {
  std::string name;            ///< usually the photo's file name, sometimes without extension
  std::string camera;          ///< key of the camera
  Matrix3 rotation{};          ///< world to camera; camera axes right, down, forward
  Vector3 centre{};            ///< projection centre in the reconstruction's frame
  std::optional<Vector3> gps;  ///< the photo's own position, in the topocentric frame
  double captureTime = 0;
};

/// The largest reconstruction of a file.
struct OpenSfmReconstruction {
  std::map<std::string, SourceCamera> cameras;
  std::vector<OpenSfmShot> shots;                    ///< in flight order: capture time, then name
  bool hasReference = false;                         ///< origin of the topocentric frame
  double latitude = 0, longitude = 0, altitude = 0;  ///< degrees, metres
  std::vector<std::string> notes;                    ///< what was left out, a line each
};

/// Reads the text of a reconstruction.json. Points are skipped, so files of any size cost little.
///
/// A file may hold several reconstructions that could not be joined; dense surfaces are made from
/// the largest, so that one is taken and the photos of the others are named in a note. Shots with a
/// broken pose are left out with a note.
///
/// @return nothing, with one line in `error`, when the text is no such file or holds no photo.
[[nodiscard]] std::optional<OpenSfmReconstruction> ParseOpenSfm(std::string_view json,
                                                                std::string& error);

/// Reads the text of a reference_lla.json, where the reference stands that older reconstructions do
/// not hold themselves. False, and `out` unchanged, when it names no place.
[[nodiscard]] bool ParseOpenSfmReference(std::string_view json, OpenSfmReconstruction& out);

}  // namespace tqtortho::host
