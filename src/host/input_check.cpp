// SPDX-License-Identifier: Apache-2.0
#include "host/input_check.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>

#include "core/numeric.h"
#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

void Add(std::vector<Finding>& findings, Finding::Level level, std::string text) {
  findings.push_back({level, std::move(text)});
}

std::string Number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

/// Height statistics from evenly spread rows: a DSM of any size costs the same.
bool SampleHeights(const std::string& path, DsmFacts& facts) {
  tqimage::TqImage image;
  if (!image.Open(path, true)) return false;
  const float noData = NarrowToFloat(image.GetNoDataValue(0));
  const bool named = image.HasNoDataValue(0);
  constexpr int kRows = 300;
  const int step = std::max(1, facts.rows / kRows);
  std::vector<float> row(static_cast<std::size_t>(facts.cols));
  double sum = 0;
  std::int64_t valid = 0, total = 0;
  float low = 1e30F, high = -1e30F;
  for (int r = step / 2; r < facts.rows; r += step) {
    if (!image.ReadImage(0, {0, r, facts.cols, r + 1}, tqimage::kFloat32, row.data())) return false;
    for (const float h : row) {
      ++total;
      if (h == static_cast<float>(kDefaultNoData) || (named && h == noData)) continue;
      ++valid;
      sum += h;
      low = std::min(low, h);
      high = std::max(high, h);
    }
  }
  facts.noDataShare = total > 0 ? 1.0 - static_cast<double>(valid) / static_cast<double>(total) : 1;
  if (valid > 0) {
    facts.minHeight = low;
    facts.maxHeight = high;
    facts.meanHeight = sum / static_cast<double>(valid);
  }
  return true;
}

void CheckDsmCrs(const std::string& path, DsmFacts& facts, std::vector<Finding>& findings) {
  const std::string& wkt = facts.coefficients.GetProjection();
  if (wkt.empty()) {
    Add(findings, Finding::Level::kWarning,
        path + ": names no coordinate system; outputs will name none either");
    return;
  }
  const auto crs = geo::DescribeCrs(wkt);
  if (!crs) return;
  facts.crsName = crs->name;
  facts.crsCode = crs->authority;
  if (crs->geographic) {
    Add(findings, Finding::Level::kError,
        path + ": is in degrees (" + crs->name +
            "); reproject it to a metric system, for instance gdalwarp -t_srs EPSG:326xx");
  } else if (std::abs(crs->metresPerUnit - 1) > 1e-6) {
    Add(findings, Finding::Level::kWarning,
        path + ": its units are " + Number(crs->metresPerUnit) +
            " m; heights and photo positions must be in the same unit");
  }
}

/// What a photo file itself shows to be wrong, or nothing.
std::string PhotoFault(const std::string& path, const SurveyCamera& camera,
                       geo::RasterSummary& summary) {
  std::string why;
  if (!geo::DescribeRaster(path, summary, why)) return why;
  if (summary.sampleType != "Byte") {
    return path + ": samples are " + summary.sampleType +
           ", only 8-bit photos are read; convert it, for instance gdal_translate -ot Byte -scale";
  }
  if (summary.bands != 1 && summary.bands != 3 && summary.bands != 4) {
    return path + ": has " + std::to_string(summary.bands) + " bands; 1, 3 or 4 are read";
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
    return "photo " + photo.name + ": its camera (height " + Number(photo.z) +
           ") lies below the surface (" + Number(ground) +
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

void CheckDistance(const Survey& survey, const DsmFacts& dsm, std::vector<Finding>& findings) {
  const auto first = dsm.coefficients.Raster2World(0, 0);
  const auto last = dsm.coefficients.Raster2World(dsm.cols - 1, dsm.rows - 1);
  const double reach = std::hypot(last.x - first.x, last.y - first.y) + 10000;
  int near = 0, total = 0;
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) {
      ++total;
      near += std::hypot(photo.x - first.x, photo.y - first.y) < reach ? 1 : 0;
    }
  }
  if (total > 0 && near == 0) {
    const SurveyPhoto& p = survey.blocks.front().photos.front();
    Add(findings, Finding::Level::kError,
        "photo " + p.name + " and all others lie more than 10 km from the DSM (photo at " +
            Number(p.x) + ", " + Number(p.y) + "; DSM from " + Number(first.x) + ", " +
            Number(first.y) + "); bring both into one coordinate system");
  }
}

}  // namespace

bool CheckResult::Usable() const {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& f) { return f.level == Finding::Level::kError; });
}

void CheckDsm(const std::string& dsmPath, DsmFacts& facts, std::vector<Finding>& findings) {
  geo::RasterSummary summary;
  std::string why;
  if (dsmPath.empty()) {
    Add(findings, Finding::Level::kError, "no DSM given; name one with --dsm FILE");
    return;
  }
  if (!geo::DescribeRaster(dsmPath, summary, why)) {
    Add(findings, Finding::Level::kError, why);
    return;
  }
  facts.cols = summary.width;
  facts.rows = summary.height;
  facts.coefficients = summary.coefficients;
  const auto cell = summary.coefficients.GetResolution();
  facts.cell = cell.x;
  if (!summary.hasGeoreference) {
    Add(findings, Finding::Level::kError,
        dsmPath + ": has no georeference; write one into it, for instance gdal_edit.py -a_ullr");
    return;
  }
  if (summary.rotated || !(cell.x > 0) || !(cell.y < 0)) {
    Add(findings, Finding::Level::kError,
        dsmPath + ": is rotated or not north-up; resample it with gdalwarp");
    return;
  }
  if (std::abs(cell.x + cell.y) > 1e-6 * cell.x) {
    Add(findings, Finding::Level::kError,
        dsmPath + ": cells are not square (" + Number(cell.x) + " x " + Number(-cell.y) +
            "); resample it, for instance gdalwarp -tr " + Number(cell.x) + " " + Number(cell.x));
    return;
  }
  CheckDsmCrs(dsmPath, facts, findings);
  if (!SampleHeights(dsmPath, facts)) {
    Add(findings, Finding::Level::kError,
        dsmPath + ": heights cannot be read; the file may be truncated");
    return;
  }
  if (facts.noDataShare >= 1) {
    Add(findings, Finding::Level::kError, dsmPath + ": holds no height (every cell is no data)");
  }
}

CheckResult CheckSurvey(Survey& survey, const std::string& dsmPath) {
  CheckResult result;
  CheckDsm(dsmPath, result.facts.dsm, result.findings);
  if (!result.Usable()) return result;
  const DsmFacts& dsm = result.facts.dsm;
  CheckDistance(survey, dsm, result.findings);
  if (!result.Usable()) return result;

  std::map<int, const SurveyCamera*> cameras;
  for (const auto& camera : survey.cameras) cameras.emplace(camera.id, &camera);
  tqimage::TqImage heights;
  (void)heights.Open(dsmPath, true);
  std::vector<double> resolutions, above;
  for (auto& block : survey.blocks) {
    std::vector<SurveyPhoto> usable;
    for (const auto& photo : block.photos) {
      geo::RasterSummary summary;
      const auto camera = cameras.find(photo.cameraId);
      std::string fault = camera == cameras.end()
                              ? "photo " + photo.name + ": camera " +
                                    std::to_string(photo.cameraId) + " is not listed"
                              : PhotoFault(block.path + "/" + photo.name, *camera->second, summary);
      if (fault.empty()) fault = PlaceFault(photo, dsm, heights);
      if (!fault.empty()) {
        Add(result.findings, Finding::Level::kWarning, fault + " (photo left out)");
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
  }
  return result;
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
  const fs::path probe = fs::path(directory) / (".write-test-" + std::to_string(::getpid()));
  bool ok = !code;
  if (ok) {
    std::ofstream out(probe);
    out << "x";
    out.close();
    ok = out.good();
  }
  fs::remove(probe, code);
  if (!ok) error = directory + ": cannot be written to; choose another --out or free some space";
  return ok;
}

}  // namespace tqtortho::host
