// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_import.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "importers/import_assembly.h"
#include "importers/map_frame.h"
#include "importers/odm_placement.h"
#include "importers/opensfm_file.h"
#include "importers/opensfm_import.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

/// The shots of a reconstruction with their places on the map.
PlacedProject PlaceShots(OpenSfmReconstruction file, const OdmPlacement& placement,
                         std::string photoDir) {
  PlacedProject project;
  project.photoDir = std::move(photoDir);
  project.cameras = std::move(file.cameras);
  for (const OpenSfmShot& shot : file.shots) {
    if (const auto pose = placement.Place(shot)) {
      project.shots.push_back({shot.name, shot.camera, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(shot.name);
    }
  }
  return project;
}

/// The maps of the poses and of the DSM that the job stands on.
struct Maps {
  std::string projectWkt;
  std::optional<TopocentricToGrid> toDsm;  ///< nothing: they are one
};

std::optional<Maps> FindMaps(const fs::path& project, const ImportRequest& request, Survey& survey,
                             std::string& error) {
  std::error_code ignored;
  const std::string own = fs::absolute(project / "odm_dem/dsm.tif").lexically_normal().string();
  const bool hasOwn = fs::exists(own, ignored);
  if (!hasOwn && request.dsmPath.empty()) {
    error = own + ": is missing; process the project with its option --dsm, or give one with --dsm";
    return std::nullopt;
  }
  survey.dsmPath =
      request.dsmPath.empty() ? own : fs::absolute(request.dsmPath).lexically_normal().string();
  Maps maps;
  std::string dsmWkt;
  if (!ReadMetricMap(survey.dsmPath, dsmWkt, error)) return std::nullopt;
  if (!hasOwn || request.dsmPath.empty()) {
    maps.projectWkt = dsmWkt;
    return maps;
  }
  if (!ReadMetricMap(own, maps.projectWkt, error)) return std::nullopt;
  if (maps.projectWkt == dsmWkt) return maps;
  maps.toDsm = MapFrame(dsmWkt).FromPlane(maps.projectWkt, error);
  if (!maps.toDsm) return std::nullopt;
  survey.notes.push_back("poses moved from the project's map to that of " + survey.dsmPath);
  return maps;
}

}  // namespace

bool LooksLikeOdm(const std::string& path) {
  const fs::path project(path);
  if (!LooksLikeOpenSfm((project / "opensfm").string())) return false;
  std::error_code ignored;
  for (const char* folder : {"odm_dem", "odm_georeferencing", "images"}) {
    if (fs::is_directory(project / folder, ignored)) return true;
  }
  return false;
}

std::optional<Survey> ImportOdm(const ImportRequest& request, std::string& error) {
  const std::string& projectDir = request.path;
  const fs::path project(projectDir);
  const std::string reconstruction = (project / "opensfm/reconstruction.json").string();
  std::error_code ignored;
  if (!fs::is_directory(project, ignored)) {
    error = projectDir + ": is no folder; give the folder of an OpenDroneMap project";
    return std::nullopt;
  }
  std::string text;
  if (!tqfd::ReadWholeFile(reconstruction, limits::kReconstructionBytes, text, error)) {
    error += "; is " + projectDir + " an OpenDroneMap project that was processed to the end?";
    return std::nullopt;
  }
  // What tells the frame of the poses may be missing, but is not passed over when it is odd.
  for (const char* evidence : {"odm_georeferencing/coords.txt", "gcp_list.txt"}) {
    const std::string file = (project / evidence).string();
    if (!fs::exists(file, ignored)) continue;
    if (error = tqfd::FileFault(file, limits::kListBytes); !error.empty()) return std::nullopt;
  }
  Survey survey;
  survey.source = "OpenDroneMap project " + projectDir;
  const auto maps = FindMaps(project, request, survey, error);
  if (!maps) return std::nullopt;
  auto file = ParseOpenSfm(text, error);
  text.clear();
  const std::string photoDir =
      request.photoDir.empty() ? (project / "images").string() : request.photoDir;
  const OdmEvidence evidence = {projectDir,  maps->projectWkt, survey.dsmPath,
                                maps->toDsm, photoDir,         request.frame};
  const auto placement =
      file ? OdmPlacement::Create(evidence, *file, survey.notes, error) : std::nullopt;
  if (placement) survey.notes.insert(survey.notes.end(), file->notes.begin(), file->notes.end());
  if (!placement ||
      !AssembleSurvey(PlaceShots(std::move(*file), *placement, photoDir), survey, error)) {
    error = reconstruction + ": " + error;
    return std::nullopt;
  }
  return survey;
}

std::optional<Survey> ImportOdm(const std::string& projectDir, std::string& error) {
  ImportRequest request;
  request.path = projectDir;
  return ImportOdm(request, error);
}

}  // namespace tqtortho::host
