// SPDX-License-Identifier: Apache-2.0
#include "importers/opensfm_import.h"

#include <filesystem>
#include <numbers>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "importers/map_frame.h"
#include "importers/odm_frame.h"
#include "importers/odm_import.h"
#include "importers/opensfm_file.h"
#include "survey/number_text.h"
#include "survey/table_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

fs::path ReconstructionOf(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored) ? fs::path(path) / "reconstruction.json" : fs::path(path);
}

/// Takes the reference from the file beside when the reconstruction has none.
bool FindReference(const fs::path& file, OpenSfmReconstruction& reconstruction,
                   std::string& error) {
  if (reconstruction.hasReference) return true;
  const fs::path beside = file.parent_path() / "reference_lla.json";
  std::string text;
  std::error_code ignored;
  if (fs::exists(beside, ignored)) {
    if (!tqfd::ReadWholeFile(beside.string(), limits::kSmallFileBytes, text, error)) {
      error = "its reference " + error;
      return false;
    }
  } else {
    error = "has no reference_lla, and there is no " + beside.string() +
            ": it is not georeferenced; process it with photo positions, or say with --crs and " +
            "--offset where it lies";
    return false;
  }
  if (ParseOpenSfmReference(text, reconstruction)) return true;
  error = "its reference " + beside.string() +
          " is damaged: no latitude and longitude in degrees; copy it again";
  return false;
}

/// The way from the poses to the map.
std::optional<TopocentricToGrid> FrameOf(const fs::path& file, const ImportRequest& request,
                                         const std::string& mapWkt,
                                         OpenSfmReconstruction& reconstruction,
                                         std::vector<std::string>& notes, std::string& error) {
  const MapFrame map(mapWkt);
  if (!request.crs.empty()) return Shifted(request.offset, map.FromPlane(request.crs, error));
  if (!FindReference(file, reconstruction, error)) return std::nullopt;
  const auto toGrid = map.FromTopocentric(
      {reconstruction.longitude, reconstruction.latitude, reconstruction.altitude}, error);
  if (!toGrid) return std::nullopt;
  const auto finding = FindFrame(reconstruction.shots, *toGrid);
  if (!finding) {
    error = "its reference point lies outside the DSM's coordinate system";
    return std::nullopt;
  }
  if (finding->certain && finding->frame == OdmFrame::kGrid) {
    error = "its poses are turned against the photos' own positions as a map grid is, so they no " +
            std::string("longer stand in the local frame; say with --crs and --offset in which ") +
            "they do";
    return std::nullopt;
  }
  notes.push_back(
      "poses are in a local east-north-up frame; converted photo by photo, grid north turned by " +
      Fixed(finding->gridTurn * 180 / std::numbers::pi, 3) + " degrees");
  return [toGrid = *toGrid, offset = request.offset](const Vector3& p) {
    auto place = toGrid(p);
    for (std::size_t i = 0; place && i < 3; ++i) (*place)[i] += offset[i];
    return place;
  };
}

}  // namespace

bool LooksLikeOpenSfm(const std::string& path) {
  const fs::path file = ReconstructionOf(path);
  std::error_code ignored;
  if (!fs::is_regular_file(file, ignored)) return false;
  const std::string start = tqfd::ReadFileStart(file.string(), 4096);
  // A list of objects, of which the first begins with one of the keys of a reconstruction.
  const std::size_t list = start.find_first_not_of(" \t\r\n");
  if (list == std::string::npos || start[list] != '[') return false;
  const std::size_t object = start.find_first_not_of(" \t\r\n", list + 1);
  const std::size_t key =
      object == std::string::npos ? object : start.find_first_not_of(" \t\r\n", object + 1);
  if (key == std::string::npos || start[object] != '{' || start[key] != '"') return false;
  const std::string name = start.substr(key + 1, start.find('"', key + 1) - key - 1);
  for (const char* known :
       {"cameras", "shots", "points", "reference_lla", "biases", "rig_cameras", "rig_instances"}) {
    if (name == known) return true;
  }
  return false;
}

std::optional<Survey> ImportOpenSfm(const ImportRequest& request, std::string& error) {
  const fs::path file = ReconstructionOf(request.path);
  std::string text;
  if (!tqfd::ReadWholeFile(file.string(), limits::kReconstructionBytes, text, error)) {
    error +=
        "; give the folder of an OpenSfM project that was "
        "reconstructed, or its reconstruction.json";
    return std::nullopt;
  }
  const fs::path folder = fs::absolute(file).lexically_normal().parent_path();
  if (request.crs.empty() && LooksLikeOdm(folder.parent_path().string())) {
    error = file.string() + ": is part of an OpenDroneMap project, which moves its poses to the " +
            "map; give the project's folder " + folder.parent_path().string();
    return std::nullopt;
  }
  const auto map = OpenImportMap(request, error);
  if (!map) return std::nullopt;
  Survey survey;
  survey.source = "OpenSfM reconstruction " + file.string();
  survey.dsmPath = map->dsmPath;
  auto reconstruction = ParseOpenSfm(text, error);
  text = {};
  const auto toGrid =
      reconstruction ? FrameOf(file, request, map->mapWkt, *reconstruction, survey.notes, error)
                     : std::nullopt;
  if (!toGrid) {
    error = file.string() + ": " + error;
    return std::nullopt;
  }
  survey.notes.insert(survey.notes.end(), reconstruction->notes.begin(),
                      reconstruction->notes.end());
  PlacedProject project;
  project.cameras = std::move(reconstruction->cameras);
  project.photoDir = PhotoFolderOf(request, file.string());
  for (const OpenSfmShot& shot : reconstruction->shots) {
    if (const auto pose = PoseFromTopocentric(shot, *toGrid)) {
      project.shots.push_back({shot.name, shot.camera, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(shot.name);
    }
  }
  if (!AssembleSurvey(project, survey, error)) {
    error = file.string() + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
