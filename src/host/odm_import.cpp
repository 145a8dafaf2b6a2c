// SPDX-License-Identifier: Apache-2.0
#include "host/odm_import.h"

#include <cmath>
#include <filesystem>
#include <numbers>
#include <system_error>
#include <utility>

#include "host/import_assembly.h"
#include "host/map_frame.h"
#include "host/number_text.h"
#include "host/odm_frame.h"
#include "host/opensfm_file.h"
#include "host/opensfm_import.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr double kDegrees = 180 / std::numbers::pi;

/// Puts shots on the DSM's map; made once per project.
class Placer {
 public:
  /// Nothing, with a line in `error`, when the frame of the poses cannot be told.
  static std::optional<Placer> Create(const fs::path& project, const OpenSfmReconstruction& file,
                                      const std::string& wkt, std::vector<std::string>& notes,
                                      std::string& error) {
    if (!file.hasReference) {
      error =
          "has no reference_lla: the project is not georeferenced; process it with photo "
          "positions or ground control";
      return std::nullopt;
    }
    // Heights stay as they are (above the ellipsoid), whatever vertical part the map has.
    const auto toGrid =
        MapFrame(wkt).FromTopocentric({file.longitude, file.latitude, file.altitude}, error);
    if (!toGrid) return std::nullopt;
    Placer placer;
    placer.toGrid_ = *toGrid;
    if (!placer.ChooseFrame(project, file, notes, error)) return std::nullopt;
    return placer;
  }

  /// On the map that `toMap` leads to, or with none on the project's own.
  [[nodiscard]] std::optional<GroundPose> Place(
      const OpenSfmShot& shot, const std::optional<TopocentricToGrid>& toMap) const {
    const auto pose = frame_ == OdmFrame::kGrid
                          ? std::optional(PoseFromGrid(shot, offset_[0], offset_[1]))
                          : PoseFromTopocentric(shot, toGrid_);
    if (!pose || !toMap) return pose;
    return PoseThrough(pose->centre, pose->cameraToGround, *toMap);
  }

 private:
  bool ChooseFrame(const fs::path& project, const OpenSfmReconstruction& file,
                   std::vector<std::string>& notes, std::string& error) {
    const auto finding = FindFrame(file.shots, toGrid_);
    const auto reference = toGrid_({0, 0, 0});
    if (!finding || !reference) {
      error = "its reference point lies outside the DSM's coordinate system";
      return false;
    }
    frame_ = finding->frame;
    std::error_code ignored;
    // A finished project keeps the topocentric poses under this name beside the moved ones.
    const bool moved = fs::exists(project / "opensfm/reconstruction.topocentric.json", ignored);
    if (moved) frame_ = OdmFrame::kGrid;
    const std::string turn = Fixed(finding->gridTurn * kDegrees, 3);
    if (frame_ == OdmFrame::kTopocentric) {
      notes.push_back("poses are in a local east-north-up frame; converted photo by photo, grid " +
                      std::string("north turned by ") + turn + " degrees");
      return true;
    }
    if (!ReadOffset(project, *reference, notes, error)) return false;
    notes.push_back("poses are on the map grid, offset " + Exact(offset_[0]) + ", " +
                    Exact(offset_[1]));
    // 1e-4 radian is a third of a pixel at the edge of a 24 megapixel photo.
    if (!moved && !finding->certain && std::fabs(finding->gridTurn) > 1e-4) {
      notes.push_back(
          "the photos' own positions do not tell whether the poses are on the map grid " +
          std::string("or in a local frame turned by ") + turn +
          " degrees; taken as the grid, check the first ortho against a map");
    }
    return true;
  }

  bool ReadOffset(const fs::path& project, const Vector3& reference,
                  std::vector<std::string>& notes, std::string& error) {
    const fs::path coords = project / "odm_georeferencing/coords.txt";
    std::string text;
    if (ReadWholeFile(coords.string(), text)) {
      if (const auto offset = ParseCoordsOffset(text)) {
        offset_ = *offset;
        if (std::hypot(offset_[0] - reference[0], offset_[1] - reference[1]) < 1e5) return true;
        error = "its offset in " + coords.string() +
                " does not lie in the DSM's coordinate system; use the DSM as the project wrote it";
        return false;
      }
      notes.push_back(coords.string() +
                      ": holds no offset; taken from the reference point instead");
    }
    offset_ = {reference[0], reference[1]};
    // Offsets are whole metres, and the reference point was computed from them.
    const std::array<double, 2> whole = {std::round(offset_[0]), std::round(offset_[1])};
    if (std::hypot(offset_[0] - whole[0], offset_[1] - whole[1]) < 0.01) offset_ = whole;
    return true;
  }

  OdmFrame frame_ = OdmFrame::kGrid;
  std::array<double, 2> offset_{};
  TopocentricToGrid toGrid_;
};

/// The shots of a reconstruction with their places on the map.
PlacedProject PlaceShots(OpenSfmReconstruction file, const Placer& placer,
                         const std::optional<TopocentricToGrid>& toMap, std::string photoDir) {
  PlacedProject project;
  project.photoDir = std::move(photoDir);
  project.cameras = std::move(file.cameras);
  for (const OpenSfmShot& shot : file.shots) {
    if (const auto pose = placer.Place(shot, toMap)) {
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
  if (!ReadWholeFile(reconstruction, text)) {
    error = reconstruction + ": cannot be read; is " + projectDir +
            " an OpenDroneMap project that was processed to the end?";
    return std::nullopt;
  }
  Survey survey;
  survey.source = "OpenDroneMap project " + projectDir;
  const auto maps = FindMaps(project, request, survey, error);
  if (!maps) return std::nullopt;
  auto file = ParseOpenSfm(text, error);
  text.clear();
  const std::string photoDir =
      request.photoDir.empty() ? (project / "images").string() : request.photoDir;
  const auto placer =
      file ? Placer::Create(project, *file, maps->projectWkt, survey.notes, error) : std::nullopt;
  if (placer) survey.notes.insert(survey.notes.end(), file->notes.begin(), file->notes.end());
  if (!placer || !AssembleSurvey(PlaceShots(std::move(*file), *placer, maps->toDsm, photoDir),
                                 survey, error)) {
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
