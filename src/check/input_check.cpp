// SPDX-License-Identifier: Apache-2.0
#include "check/input_check.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <string_view>
#include <system_error>

#include "check/job_estimate.h"
#include "core/limits.h"
#include "core/numeric.h"
#include "core/stop_flag.h"
#include "geo/FileEnd.h"
#include "geo/RasterTools.h"
#include "importers/photo_crs.h"
#include "internal/safe_file.h"
#include "survey/map_scale.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

void Add(std::vector<Finding>& findings, Finding::Level level, std::string text) {
  findings.push_back({level, std::move(text)});
}

/// What a photo file itself shows to be wrong, or nothing.
/// @param chosenBands  the photo is a virtual raster that this program wrote over the photo
std::string PhotoFault(const std::string& path, const SurveyCamera& camera, bool chosenBands,
                       geo::RasterSummary& summary) {
  std::string why;
  if (!geo::DescribeRaster(path, summary, why)) return why;
  constexpr std::string_view kFormats[] = {"JPEG", "GTiff", "PNG", "JP2OpenJPEG"};
  if (!(chosenBands && summary.format == "VRT") &&
      std::find(std::begin(kFormats), std::end(kFormats), summary.format) == std::end(kFormats)) {
    return path + ": is a raster of format " + summary.format +
           "; photos are JPEG, TIFF, PNG or JPEG 2000";
  }
  if (std::string large = PhotoSizeFault(path, summary.width, summary.height, summary.bands);
      !large.empty()) {
    return large;
  }
  if (summary.sampleType != "Byte") {
    return path + ": samples are " + summary.sampleType +
           "; choose bands with --bands 1,2,3 and the values that become black and white with "
           "--range LO,HI";
  }
  if (summary.bands != 1 && summary.bands != 3 && summary.bands != 4) {
    return path + ": has " + std::to_string(summary.bands) +
           " bands; choose one or three with --bands";
  }
  const int width = camera.rasterWidth > 0 ? camera.rasterWidth : TruncToInt(camera.width + 0.5);
  const int height =
      camera.rasterHeight > 0 ? camera.rasterHeight : TruncToInt(camera.height + 0.5);
  if (summary.width != width || summary.height != height) {
    return path + ": is " + std::to_string(summary.width) + " x " + std::to_string(summary.height) +
           " pixels, its camera " + std::to_string(camera.id) + " was calibrated for " +
           std::to_string(width) + " x " + std::to_string(height) +
           "; give the photos as they were when calibrated (not turned, not resized)";
  }
  if (geo::EndsEarly(path)) {
    return path + ": the file ends before the picture does; copy the photo again";
  }
  return {};
}

/// What a photo's place shows to be wrong, or nothing.
std::string PlaceFault(const SurveyPhoto& photo, const DsmFacts& dsm,
                       const tqimage::TqImage& image) {
  const auto cell = dsm.coefficients.World2Raster(photo.x, photo.y, -1, -1);
  float ground = static_cast<float>(dsm.minHeight);
  if (cell.x >= 0 && cell.x < dsm.cols && cell.y >= 0 && cell.y < dsm.rows) {
    float h = 0;
    if (image.ReadImage(0, {cell.x, cell.y, cell.x + 1, cell.y + 1}, tqimage::kFloat32, &h) &&
        h > dsm.minHeight - 1) {
      ground = h;
    }
  }
  if (!(photo.z > ground)) {
    return "photo " + photo.name + ": its camera (height " + ShortNumber(photo.z) +
           ") lies below the surface (" + ShortNumber(ground) +
           "); check the vertical datum and the order of the columns";
  }
  return {};
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Photos that all lie elsewhere: another coordinate system.
void CheckDistance(const Survey& survey, const DsmFacts& dsm, std::vector<Finding>& findings) {
  const auto first = dsm.coefficients.Raster2World(0, 0);
  const auto last = dsm.coefficients.Raster2World(dsm.cols - 1, dsm.rows - 1);
  const double reach = std::hypot(last.x - first.x, last.y - first.y) + 10000;
  const SurveyPhoto* nearest = nullptr;
  double distance = 0;
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) {
      const double d = std::hypot(photo.x - first.x, photo.y - first.y);
      if (nearest == nullptr || d < distance) {
        nearest = &photo;
        distance = d;
      }
    }
  }
  if (nearest == nullptr || distance < reach) return;
  const SurveyPhoto& p = *nearest;
  const std::string guess = GuessPhotoCrs(p.x, p.y, dsm.coefficients);
  Add(findings, Finding::Level::kError,
      "photo " + p.name + " and all others lie more than 10 km from the DSM (" +
          ShortNumber(distance / 1000) + " km; photo at " + ShortNumber(p.x) + ", " +
          ShortNumber(p.y) + "; DSM from " + ShortNumber(first.x) + ", " + ShortNumber(first.y) +
          "); " +
          (guess.empty() ? "name the photos' coordinate system with --crs, or bring both into one"
                         : "they would fit as " + guess + ": try --crs " + guess));
}

/// Where on the DSM the photos are: a country's surface may be true to scale at one end only.
void CheckScale(const Survey& survey, const std::string& dsmPath, const DsmFacts& dsm,
                std::vector<Finding>& findings) {
  std::vector<double> x, y;
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) {
      if (!std::isfinite(photo.x) || !std::isfinite(photo.y)) continue;
      x.push_back(photo.x);
      y.push_back(photo.y);
    }
  }
  if (x.empty()) return;
  // Photos that lie elsewhere altogether are another check's matter.
  const auto first = dsm.coefficients.Raster2World(0, 0);
  const auto last = dsm.coefficients.Raster2World(dsm.cols - 1, dsm.rows - 1);
  if (auto scale = CheckMapScale(dsmPath, dsm.coefficients.GetProjection(),
                                 std::clamp(Median(std::move(x)), first.x, last.x),
                                 std::clamp(Median(std::move(y)), last.y, first.y))) {
    findings.push_back(*std::move(scale));
  }
}

/// Cameras that all stand below the surface, or in the stratosphere: heights from another datum or
/// in another unit.
void CheckDatum(const Survey& survey, const DsmFacts& dsm, std::vector<Finding>& findings) {
  std::vector<double> above;
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) above.push_back(photo.z - dsm.meanHeight);
  }
  if (above.empty()) return;
  const double median = Median(std::move(above));
  constexpr double kHighest = 5000;
  if (median < 0) {
    Add(findings, Finding::Level::kError,
        "the cameras lie below the surface (half of them by " + ShortNumber(-median) +
            " m and more); their heights probably count from another datum: add the geoid's height "
            "to bring ellipsoid and sea level together, or check the order of the columns");
  } else if (median > kHighest) {
    Add(findings, Finding::Level::kWarning,
        "the cameras are " + ShortNumber(median) +
            " m above the surface; if they were not, their heights count from another datum "
            "(geoid, ellipsoid) or in another unit (feet)");
  }
}

/// Views far off the vertical: angles in degrees that happen to be small, or exchanged.
void CheckTilt(const Survey& survey, std::vector<Finding>& findings) {
  std::vector<double> tilts;
  for (const auto& block : survey.blocks) {
    for (const auto& p : block.photos) {
      tilts.push_back(std::acos(std::clamp(std::cos(p.omega) * std::cos(p.phi), -1.0, 1.0)));
    }
  }
  const double degrees = Median(std::move(tilts)) * 180 / std::numbers::pi;
  if (degrees < 50) return;
  Add(findings, Finding::Level::kWarning,
      "half of the photos look more than " + ShortNumber(std::floor(degrees)) +
          " degrees off the vertical; if they were taken downward, the angles are in degrees (give "
          "radians) or exchanged (the order is omega phi kappa)");
}

/// Names the first few of many photos with the same trouble.
class PhotoWarnings {
 public:
  explicit PhotoWarnings(std::vector<Finding>& findings) : findings_(findings) {}
  void LeftOut(const std::string& fault) {
    constexpr int kNamed = 10;
    if (++count_ <= kNamed) {
      Add(findings_, Finding::Level::kWarning, fault + " (photo left out)");
    } else if (count_ == kNamed + 1) {
      at_ = findings_.size();
      Add(findings_, Finding::Level::kWarning, {});
    }
    if (count_ > kNamed) {
      findings_[at_].text =
          std::to_string(count_ - kNamed) + " more photos left out, the last: " + fault;
    }
  }

 private:
  std::vector<Finding>& findings_;
  int count_ = 0;
  std::size_t at_ = 0;
};

void CheckViews(const Survey& survey, const SurveyFacts& facts, std::vector<Finding>& findings) {
  const auto outside =
      EstimateJob(survey, facts.dsm, RoundUpTwoDigits(facts.photoResolution), 1).outside;
  if (outside.empty()) return;
  if (static_cast<int>(outside.size()) == facts.photos) {
    Add(findings, Finding::Level::kError,
        "no photo shows any of the DSM (the first: " + outside.front() +
            "); check coordinate systems and the order of the angles (omega phi kappa, radians)");
    return;
  }
  Add(findings, Finding::Level::kWarning,
      std::to_string(outside.size()) + " of " + std::to_string(facts.photos) +
          " photos show nothing of the DSM and will fail (the first: " + outside.front() +
          "); leave them out or give a larger DSM");
}

}  // namespace

bool CheckResult::Usable() const {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& f) { return f.level == Finding::Level::kError; });
}

std::string PhotoSizeFault(const std::string& path, int width, int height, int bands) {
  const bool fits =
      std::max(width, height) <= limits::kPhotoSide &&
      static_cast<double>(width) * height * bands <= static_cast<double>(limits::kPhotoSamples);
  if (fits) return {};
  return path + ": has " + std::to_string(width) + " x " + std::to_string(height) + " pixels of " +
         std::to_string(bands) + " bands; a photo has at most " +
         std::to_string(limits::kPhotoSide) + " pixels a side and " +
         std::to_string(limits::kPhotoSamples) + " samples";
}

CheckResult CheckSurvey(Survey& survey, const std::string& dsmPath) {
  CheckResult result;
  CheckSurface(dsmPath, result.facts.dsm, result.findings);
  if (!result.Usable()) return result;
  const DsmFacts& dsm = result.facts.dsm;
  std::string error;
  if (!BringOntoMap(survey, dsm.coefficients.GetProjection(), error)) {
    Add(result.findings, Finding::Level::kError, error);
    return result;
  }
  CheckScale(survey, dsmPath, dsm, result.findings);
  if (!result.Usable()) return result;
  CheckDistance(survey, dsm, result.findings);
  CheckDatum(survey, dsm, result.findings);
  if (!result.Usable()) return result;
  CheckTilt(survey, result.findings);

  std::map<int, const SurveyCamera*> cameras;
  for (const auto& camera : survey.cameras) cameras.emplace(camera.id, &camera);
  tqimage::TqImage heights;
  (void)heights.Open(dsmPath, true);
  std::vector<double> resolutions, above;
  PhotoWarnings warnings(result.findings);
  for (auto& block : survey.blocks) {
    std::vector<SurveyPhoto> usable;
    for (const auto& photo : block.photos) {
      if (processStop.Raised()) break;  // no photo is left, which ends the check
      geo::RasterSummary summary;
      const auto camera = cameras.find(photo.cameraId);
      std::string fault = camera == cameras.end()
                              ? "photo " + photo.name + ": camera " +
                                    std::to_string(photo.cameraId) + " is not listed"
                              : PhotoFault(block.path + "/" + photo.name, *camera->second,
                                           survey.bandsChosen, summary);
      if (fault.empty()) fault = PlaceFault(photo, dsm, heights);
      if (!fault.empty()) {
        warnings.LeftOut(fault);
        survey.leftOut.push_back(photo.name);
        continue;
      }
      const double height = photo.z - dsm.meanHeight;
      const SurveyCamera& c = *camera->second;
      resolutions.push_back(c.sensorWidth / c.width * height / c.focalLength);
      above.push_back(height);
      result.facts.photoBytes =
          std::max(result.facts.photoBytes,
                   static_cast<std::int64_t>(summary.width) * summary.height * summary.bands);
      usable.push_back(photo);
    }
    block.photos = std::move(usable);
  }
  result.facts.photos = static_cast<int>(resolutions.size());
  result.facts.photoResolution = Median(resolutions);
  result.facts.meanHeightAboveGround = Median(above);
  if (result.facts.photos == 0) {
    Add(result.findings, Finding::Level::kError, "no usable photo is left; see the lines above");
  } else {
    CheckViews(survey, result.facts, result.findings);
  }
  return result;
}

std::string ShortNumber(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

double RoundUpTwoDigits(double value) {
  if (!(value > 0) || !std::isfinite(value)) return 0;
  const double unit = std::pow(10.0, std::floor(std::log10(value)) - 1);
  // A value that already has two digits must not be pushed up by its rounding noise.
  return std::ceil(value / unit - 1e-9) * unit;
}

std::int64_t FreeSpace(const std::string& directory) {
  fs::path at = fs::absolute(directory);
  std::error_code error;
  while (!fs::exists(at, error) && at.has_parent_path() && at != at.parent_path()) {
    at = at.parent_path();
  }
  const auto space = fs::space(at, error);
  return error ? -1 : static_cast<std::int64_t>(space.available);
}

bool CheckWritable(const std::string& directory, std::string& error) {
  std::error_code code;
  fs::create_directories(directory, code);
  const std::string probe = directory + "/.write-test-" + std::to_string(::getpid());
  const bool ok = !code && WriteWholeFile(probe, "x");
  fs::remove(probe, code);
  if (!ok) error = directory + ": cannot be written to; choose another --out or free some space";
  return ok;
}

}  // namespace tqtortho::host
