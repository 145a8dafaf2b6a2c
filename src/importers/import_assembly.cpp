// SPDX-License-Identifier: Apache-2.0
#include "importers/import_assembly.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "importers/lens_fit.h"
#include "survey/number_text.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

/// Whether a name leads out of the folder that it is looked up in.
bool LeavesFolder(const fs::path& name) {
  return std::find(name.begin(), name.end(), "..") != name.end();
}

/// Finds the photo files of shots below one folder: by path, else by file name, each exactly, else
/// regardless of case, else with the extension of a photo added.
class PhotoFolder {
 public:
  explicit PhotoFolder(const fs::path& folder) : folder_(folder) {
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
  /// The path below the folder, or nothing.
  [[nodiscard]] std::string Find(std::string shot) const {
    std::replace(shot.begin(), shot.end(), '\\', '/');
    const fs::path path(shot);
    std::error_code ignored;
    if (path.is_relative() && path.has_parent_path() && !LeavesFolder(path) &&
        fs::is_regular_file(folder_ / path, ignored)) {
      return shot;
    }
    return FindName(path.filename().string());
  }

 private:
  [[nodiscard]] std::string FindName(const std::string& name) const {
    if (const auto it = exact_.find(name); it != exact_.end()) return it->second;
    const std::string lower = Lower(name);
    for (const char* extension : {"", ".jpg", ".jpeg", ".tif", ".tiff", ".png"}) {
      const auto it = byLowerName_.find(lower + extension);
      if (it != byLowerName_.end()) return it->second;
    }
    return {};
  }

  fs::path folder_;
  std::map<std::string, std::string> exact_, byLowerName_;
};

/// Photos left out for one reason, as one line.
struct LeftOut {
  std::string reason;
  std::vector<std::string> names;

  void AddTo(Survey& survey) const {
    if (names.empty()) return;
    survey.leftOut.insert(survey.leftOut.end(), names.begin(), names.end());
    constexpr std::size_t kNamed = 5;
    std::string line = std::to_string(names.size()) +
                       (names.size() == 1 ? " photo left out: " : " photos left out: ") + reason +
                       ": ";
    for (std::size_t i = 0; i < std::min(kNamed, names.size()); ++i) {
      line += (i > 0 ? ", " : "") + names[i];
    }
    if (names.size() > kNamed) line += " ...";
    survey.notes.push_back(line);
  }
};

/// The photos of one camera: found, of the right size and placed.
SurveyBlock CollectPhotos(const PlacedProject& project, const std::string& camera,
                          const SurveyCamera& converted, const fs::path& folder,
                          const PhotoFolder& photos, const std::map<std::string, int>& claims,
                          Survey& survey) {
  SurveyBlock block;
  block.path = folder.string();
  LeftOut missing{"no such file in " + block.path + " (--images names another folder)", {}};
  LeftOut unreadable{"no readable image", {}};
  LeftOut otherSize{"not the " + std::to_string(converted.rasterWidth) + " x " +
                        std::to_string(converted.rasterHeight) +
                        " pixels that the camera was calibrated for (turned or resized?)",
                    {}};
  // Shots of two folders may share a file name; of a copy into one folder nobody knows whose it is.
  LeftOut twice{"several photos have one file (folders lost when photos were copied?)", {}};
  for (const PlacedShot& shot : project.shots) {
    if (shot.camera != camera) continue;
    const std::string name = photos.Find(shot.name);
    geo::RasterSummary raster;
    std::string why;
    if (name.empty()) {
      missing.names.push_back(shot.name);
    } else if (claims.at(name) > 1) {
      twice.names.push_back(shot.name);
    } else if (!geo::DescribeRaster((folder / name).string(), raster, why)) {
      unreadable.names.push_back(name);
    } else if (raster.width != converted.rasterWidth || raster.height != converted.rasterHeight) {
      otherSize.names.push_back(name);
    } else {
      const PhotoAngles angles = AnglesFromMatrix(shot.cameraToGround);
      block.photos.push_back({name, shot.centre[0], shot.centre[1], shot.centre[2], angles.omega,
                              angles.phi, angles.kappa, converted.id});
    }
  }
  for (const LeftOut& left : {missing, twice, unreadable, otherSize}) left.AddTo(survey);
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

}  // namespace

std::vector<std::string> FindPhotoFiles(const std::string& photoDir,
                                        const std::vector<std::string>& names) {
  const fs::path folder = fs::absolute(photoDir).lexically_normal();
  const PhotoFolder photos(folder);
  std::vector<std::string> out;
  out.reserve(names.size());
  for (const std::string& name : names) {
    const std::string found = photos.Find(name);
    out.push_back(found.empty() ? found : (folder / found).string());
  }
  return out;
}

bool ReadMetricMap(const std::string& dsmPath, std::string& wkt, std::string& error) {
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

bool AssembleSurvey(const PlacedProject& project, Survey& survey, std::string& error) {
  if (project.shots.size() > static_cast<std::size_t>(limits::kPhotos)) {
    error = "holds " + std::to_string(project.shots.size()) + " photos; a job has at most " +
            std::to_string(limits::kPhotos) + ", split the project";
    return false;
  }
  const fs::path folder = fs::absolute(project.photoDir).lexically_normal();
  const PhotoFolder photos(folder);
  // Cameras in the order in which photos first use them would change with a photo added; by name.
  std::map<std::string, std::size_t> used;
  std::map<std::string, int> claims;
  for (const PlacedShot& shot : project.shots) {
    ++used[shot.camera];
    ++claims[photos.Find(shot.name)];
  }
  for (const auto& [name, count] : used) {
    const auto camera = project.cameras.find(name);
    if (camera == project.cameras.end()) {
      error = "camera \"" + name + "\" of " + std::to_string(count) +
              " photos is not described; export the project again";
      return false;
    }
    if (error = camera->second.fault; !error.empty()) return false;
    const auto fit =
        FitLens(camera->second.lens, static_cast<int>(survey.cameras.size()) + 1, error);
    if (!fit) return false;
    SurveyBlock block = CollectPhotos(project, name, fit->camera, folder, photos, claims, survey);
    if (block.photos.empty()) continue;
    survey.notes.push_back(DescribeFit(camera->second.lens, *fit));
    survey.cameras.push_back(fit->camera);
    survey.blocks.push_back(std::move(block));
  }
  LeftOut{"outside the DSM's coordinate system", project.unplaced}.AddTo(survey);
  if (survey.blocks.empty()) {
    error = "none of its " + std::to_string(project.shots.size() + project.unplaced.size()) +
            " photos can be used" +
            (survey.notes.empty() ? std::string() : " (" + survey.notes.back() + ")");
    return false;
  }
  return true;
}

}  // namespace tqtortho::host
