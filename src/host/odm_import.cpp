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
#include "host/lens_fit.h"
#include "host/number_text.h"
#include "host/odm_frame.h"
#include "host/opensfm_file.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr double kDegrees = 180 / std::numbers::pi;

bool ReadWhole(const fs::path& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  std::error_code ignored;
  if (!in || fs::is_directory(path, ignored)) return false;
  text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

/// Finds the photo files of shots in one folder: by exact name, else regardless of case, else with
/// the extension of a photo added.
class PhotoFolder {
 public:
  explicit PhotoFolder(const fs::path& folder) {
    std::error_code failed;
    for (fs::directory_iterator it(folder, failed), end; !failed && it != end;
         it.increment(failed)) {
      const std::string name = it->path().filename().string();
      // The first of several spellings in byte order, whatever order the system lists them in.
      auto& known = byLowerName_[Lower(name)];
      if (known.empty() || name < known) known = name;
      exact_.insert({name, name});
    }
  }
  [[nodiscard]] std::string Find(const std::string& shot) const {
    if (const auto it = exact_.find(shot); it != exact_.end()) return it->second;
    const std::string lower = Lower(shot);
    for (const char* extension : {"", ".jpg", ".jpeg", ".tif", ".tiff", ".png"}) {
      const auto it = byLowerName_.find(lower + extension);
      if (it != byLowerName_.end()) return it->second;
    }
    return {};
  }

 private:
  std::map<std::string, std::string> exact_, byLowerName_;
};

/// Photos left out for one reason, as one line.
struct LeftOut {
  std::string reason;
  std::vector<std::string> names;

  void AddTo(std::vector<std::string>& notes) const {
    if (names.empty()) return;
    constexpr std::size_t kNamed = 5;
    std::string line = std::to_string(names.size()) +
                       (names.size() == 1 ? " photo left out: " : " photos left out: ") + reason +
                       ": ";
    for (std::size_t i = 0; i < std::min(kNamed, names.size()); ++i) {
      line += (i > 0 ? ", " : "") + names[i];
    }
    if (names.size() > kNamed) line += " ...";
    notes.push_back(line);
  }
};

/// The DSM's coordinate system, checked to be a metric map.
bool ReadMap(const std::string& dsmPath, std::string& wkt, std::string& error) {
  geo::RasterSummary summary;
  if (!geo::DescribeRaster(dsmPath, summary, error)) return false;
  wkt = summary.coefficients.GetProjection();
  const auto crs = wkt.empty() ? std::nullopt : geo::DescribeCrs(wkt);
  if (!crs) {
    error = dsmPath + ": names no coordinate system, so the photos cannot be placed on it; " +
            "use the DSM as the project wrote it";
    return false;
  }
  if (crs->geographic || std::fabs(crs->metresPerUnit - 1) > 1e-6) {
    error = dsmPath + ": its coordinate system (" + crs->name +
            ") is not in metres; use the DSM as the project wrote it";
    return false;
  }
  return true;
}

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
    if (ReadWhole(coords, text)) {
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

/// The photos of one camera: found, of the right size and placed.
SurveyBlock CollectPhotos(const OpenSfmReconstruction& file, const std::string& camera,
                          const SurveyCamera& converted, const fs::path& folder,
                          const PhotoFolder& photos, const Placer& placer,
                          std::vector<std::string>& notes) {
  SurveyBlock block;
  block.path = folder.string();
  LeftOut missing{"no such file in " + block.path, {}};
  LeftOut unreadable{"no readable image", {}};
  LeftOut otherSize{"not the " + std::to_string(converted.rasterWidth) + " x " +
                        std::to_string(converted.rasterHeight) +
                        " pixels that the camera was calibrated for (turned or resized?)",
                    {}};
  LeftOut displaced{"outside the DSM's coordinate system", {}};
  for (const OpenSfmShot& shot : file.shots) {
    if (shot.camera != camera) continue;
    const std::string name = photos.Find(shot.name);
    geo::RasterSummary raster;
    std::string why;
    if (name.empty()) {
      missing.names.push_back(shot.name);
    } else if (!geo::DescribeRaster((folder / name).string(), raster, why)) {
      unreadable.names.push_back(name);
    } else if (raster.width != converted.rasterWidth || raster.height != converted.rasterHeight) {
      otherSize.names.push_back(name);
    } else if (const auto pose = placer.Place(shot); !pose) {
      displaced.names.push_back(name);
    } else {
      const PhotoAngles angles = AnglesFromMatrix(pose->cameraToGround);
      block.photos.push_back({name, pose->centre[0], pose->centre[1], pose->centre[2], angles.omega,
                              angles.phi, angles.kappa, converted.id});
    }
  }
  for (const LeftOut& left : {missing, unreadable, otherSize, displaced}) left.AddTo(notes);
  return block;
}

std::string DescribeFit(const SourceLens& lens, const LensFit& fit) {
  std::string line = "camera \"" + lens.name + "\" (" + lens.projection + "): expressed by model " +
                     std::to_string(fit.camera.model) + ", off by at most " +
                     Fixed(fit.maxResidual, 4) + " pixel, " + Fixed(fit.rmsResidual, 4) + " RMS";
  if (fit.usedShare < 0.995) {
    line += "; " + Fixed(100 * fit.usedShare, 0) +
            " % of each photo is used (straight rays of the rest fall outside its frame)";
  }
  return line;
}

bool FillSurvey(const fs::path& project, const OpenSfmReconstruction& file, const Placer& placer,
                Survey& survey, std::string& error) {
  const fs::path folder = fs::absolute(project / "images").lexically_normal();
  const PhotoFolder photos(folder);
  std::map<std::string, std::size_t> used;
  for (const OpenSfmShot& shot : file.shots) ++used[shot.camera];
  for (const auto& [name, count] : used) {
    const auto camera = file.cameras.find(name);
    if (camera == file.cameras.end()) {
      error = "camera \"" + name + "\" of " + std::to_string(count) +
              " photos is not described; export the project again";
      return false;
    }
    if (error = camera->second.fault; !error.empty()) return false;
    const auto fit =
        FitLens(camera->second.lens, static_cast<int>(survey.cameras.size()) + 1, error);
    if (!fit) return false;
    SurveyBlock block =
        CollectPhotos(file, name, fit->camera, folder, photos, placer, survey.notes);
    if (block.photos.empty()) continue;
    survey.notes.push_back(DescribeFit(camera->second.lens, *fit));
    survey.cameras.push_back(fit->camera);
    survey.blocks.push_back(std::move(block));
  }
  if (survey.blocks.empty()) {
    error = "none of its " + std::to_string(file.shots.size()) + " photos can be used" +
            (survey.notes.empty() ? std::string() : " (" + survey.notes.back() + ")");
    return false;
  }
  return true;
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
  if (!ReadWhole(reconstruction, text)) {
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
  if (!ReadMap(survey.dsmPath, wkt, error)) return std::nullopt;
  const auto file = ParseOpenSfm(text, error);
  text.clear();
  const auto placer =
      file ? Placer::Create(project, *file, wkt, survey.notes, error) : std::nullopt;
  if (placer) survey.notes.insert(survey.notes.end(), file->notes.begin(), file->notes.end());
  if (!placer || !FillSurvey(project, *file, *placer, survey, error)) {
    error = reconstruction + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
