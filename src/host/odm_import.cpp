// SPDX-License-Identifier: Apache-2.0
#include "host/odm_import.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <numbers>
#include <system_error>
#include <utility>

#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "host/geodesy.h"
#include "host/import_assembly.h"
#include "host/lens_fit.h"
#include "host/number_text.h"
#include "host/odm_frame.h"
#include "host/opensfm_file.h"

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
    auto transform = geo::CrsTransform::Create("EPSG:4326", wkt);
    if (!transform) {
      error = "no transformation from WGS 84 to the DSM's coordinate system is known";
      return std::nullopt;
    }
    Placer placer;
    placer.toGrid_ = [transform = std::make_shared<geo::CrsTransform>(std::move(*transform)),
                      frame = Topocentric({file.longitude, file.latitude, file.altitude})](
                         const Vector3& local) -> std::optional<Vector3> {
      const Geodetic place = frame.Place(local);
      const auto p = transform->Apply({place.longitude, place.latitude, 0.0});
      if (!p || !std::isfinite(p->x) || !std::isfinite(p->y)) return std::nullopt;
      return Vector3{p->x, p->y, place.height};
    };
    if (!placer.ChooseFrame(project, file, notes, error)) return std::nullopt;
    return placer;
  }

  [[nodiscard]] std::optional<GroundPose> Place(const OpenSfmShot& shot) const {
    if (frame_ == OdmFrame::kGrid) return PoseFromGrid(shot, offset_[0], offset_[1]);
    return PoseFromTopocentric(shot, toGrid_);
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
PlacedProject PlaceShots(OpenSfmReconstruction file, const Placer& placer, std::string photoDir) {
  PlacedProject project;
  project.photoDir = std::move(photoDir);
  project.cameras = std::move(file.cameras);
  for (const OpenSfmShot& shot : file.shots) {
    if (const auto pose = placer.Place(shot)) {
      project.shots.push_back({shot.name, shot.camera, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(shot.name);
    }
  }
  return project;
}

}  // namespace

std::optional<Survey> ImportOdm(const std::string& projectDir, std::string& error) {
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
  survey.dsmPath = fs::absolute(project / "odm_dem/dsm.tif").lexically_normal().string();
  if (!fs::exists(survey.dsmPath, ignored)) {
    error = survey.dsmPath + ": is missing; process the project with its option --dsm";
    return std::nullopt;
  }
  std::string wkt;
  if (!ReadMetricMap(survey.dsmPath, wkt, error)) return std::nullopt;
  auto file = ParseOpenSfm(text, error);
  text.clear();
  const auto placer =
      file ? Placer::Create(project, *file, wkt, survey.notes, error) : std::nullopt;
  if (placer) survey.notes.insert(survey.notes.end(), file->notes.begin(), file->notes.end());
  if (!placer ||
      !AssembleSurvey(PlaceShots(std::move(*file), *placer, (project / "images").string()), survey,
                      error)) {
    error = reconstruction + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
