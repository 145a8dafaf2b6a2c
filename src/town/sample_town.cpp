// SPDX-License-Identifier: Apache-2.0
#include "town/sample_town.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "core/numeric.h"
#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "internal/safe_file.h"
#include "survey/survey.h"
#include "town/town_flight.h"
#include "town/town_render.h"
#include "town/town_scene.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr int kStripRows = 256;        ///< rows in memory at a time, a whole number of tiles
constexpr int kLargestRaster = 40000;  ///< cells per side
constexpr double kHeightNoData = -9999;

/// Rows done of all rows, told to the caller; its false stops the work.
class Watch {
 public:
  Watch(const std::function<bool(double)>& progress, double total)
      : progress_(progress), total_(std::max(total, 1.0)) {}
  /// False when the work must stop.
  bool Add(double cells) {
    done_ += cells;
    if (!stopped_ && progress_ && !progress_(std::min(1.0, done_ / total_))) stopped_ = true;
    return !stopped_;
  }
  [[nodiscard]] bool Stopped() const { return stopped_; }

 private:
  const std::function<bool(double)>& progress_;
  double total_;
  double done_ = 0;
  bool stopped_ = false;
};

tqimage::GeoCoefficients Georeference(const TownRaster& raster, const std::string& wkt) {
  const double transform[6] = {
      kTownEast + raster.X(0), raster.cellM, 0, kTownNorth + raster.Y(0), 0, -raster.cellM};
  tqimage::GeoCoefficients coefficients(transform, raster.cells, raster.cells);
  coefficients.SetProjection(wkt);
  return coefficients;
}

/// Writes a square raster whose rows `renderRow(row, samples)` makes; rows of a strip are shared
/// out between threads. T and the number of interleaved bands fix the samples of a row.
template <class T, class RenderRow>
bool WriteRaster(const std::string& path, const TownRaster& raster, int bands, int dataType,
                 const std::string& wkt, bool heights, Watch& watch, const RenderRow& renderRow) {
  tqimage::TqImage image;
  const int n = raster.cells;
  if (!image.Create(path, n, n, bands, dataType, tqimage::kGeoTiff, true)) return false;
  if (!image.SetGeoCoefficients(Georeference(raster, wkt))) return false;
  if (heights && !image.SetNoDataValue(0, kHeightNoData)) return false;
  const auto rowSamples = static_cast<std::size_t>(n) * static_cast<std::size_t>(bands);
  std::vector<T> strip(rowSamples * std::min(kStripRows, n));
  std::vector<T> band(bands > 1 ? strip.size() / static_cast<std::size_t>(bands) : 0);
  for (int first = 0; first < n; first += kStripRows) {
    const int rows = std::min(kStripRows, n - first);
#pragma omp parallel for schedule(static, 4)
    for (int row = 0; row < rows; ++row) {
      renderRow(first + row, strip.data() + rowSamples * static_cast<std::size_t>(row));
    }
    for (int b = 0; b < bands; ++b) {
      const T* samples = strip.data();
      if (bands > 1) {
        const std::size_t count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(n);
        for (std::size_t i = 0; i < count; ++i) {
          band[i] = strip[i * static_cast<std::size_t>(bands) + static_cast<std::size_t>(b)];
        }
        samples = band.data();
      }
      if (!image.WriteImage(b, {0, first, n, first + rows}, dataType, samples)) return false;
    }
    if (!watch.Add(static_cast<double>(rows) * n)) return false;
  }
  return image.Close();
}

bool WritePhoto(const TownScene& scene, const SurveyCamera& camera, const SurveyPhoto& photo,
                const std::string& path, double weight, Watch& watch) {
  const TownCamera lens(camera, photo, kTownEast, kTownNorth);
  const int width = TruncToInt(camera.width), height = TruncToInt(camera.height);
  std::vector<std::uint8_t> rgb(3 * static_cast<std::size_t>(width) *
                                static_cast<std::size_t>(height));
  constexpr int kRowsPerStep = 64;
  for (int first = 0; first < height; first += kRowsPerStep) {
    const int last = std::min(first + kRowsPerStep, height);
#pragma omp parallel for schedule(static, 4)
    for (int row = first; row < last; ++row) {
      RenderPhotoRow(
          scene, lens, row, width,
          rgb.data() + 3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(row));
    }
    if (!watch.Add(weight * (last - first) * width)) return false;
  }
  return geo::WritePng(path, rgb.data(), width, height, 3);
}

bool CheckOptions(const SampleOptions& o, std::string& error) {
  const auto within = [](double v, double low, double high) { return v >= low && v <= high; };
  if (o.outDir.empty()) error = "no output directory given";
  if (!within(o.sizeM, 20, 2000)) error = "the town's size must be 20 to 2000 m";
  if (o.photoCount < 1 || o.photoCount > 400) error = "the number of photos must be 1 to 400";
  if (!within(o.dsmCellM, 0.02, 5)) error = "the DSM's cell must be 0.02 to 5 m";
  if (!within(o.truthCellM, 0.02, 5)) error = "the truth's cell must be 0.02 to 5 m";
  if (!within(o.photoGsdM, 0.01, 1)) error = "the photos' resolution must be 0.01 to 1 m";
  if (o.lensModel != 0 && o.lensModel != 1 && o.lensModel != 3) {
    error = "the lens model must be 0, 1 or 3";
  }
  if (!within(o.attitudeDeg, 0, 15)) error = "the photos' tilt must be 0 to 15 degrees";
  if (error.empty() && o.sizeM / std::min(o.dsmCellM, o.truthCellM) > kLargestRaster) {
    error = "the rasters would have more than " + std::to_string(kLargestRaster) +
            " cells per side: choose larger cells";
  }
  return error.empty();
}

TownRaster RasterOf(double sizeM, double cellM) {
  // A hair off, so that 100 m of 0.1 m are 1000 cells.
  return {sizeM, cellM, TruncToInt(std::ceil(sizeM / cellM - 1e-6))};
}

bool WriteDescription(const std::string& path, const SampleOptions& o, const TownScene& scene,
                      const Survey& survey) {
  nlohmann::ordered_json j;
  j["seed"] = o.seed;
  j["size_m"] = o.sizeM;
  j["photo_count"] = o.photoCount;
  j["dsm_cell_m"] = o.dsmCellM;
  j["photo_gsd_m"] = o.photoGsdM;
  j["truth_cell_m"] = o.truthCellM;
  j["lens_model"] = o.lensModel;
  j["attitude_deg"] = o.attitudeDeg;
  j["origin"] = {kTownEast, kTownNorth};
  j["crs"] = kTownCrs;
  j["top_m"] = scene.Top();
  j["solids"] = scene.Plan().solids.size();
  for (const SurveyPhoto& p : survey.blocks.front().photos) j["photos"].push_back(p.name);
  return WriteWholeFile(path, j.dump(1) + "\n");
}

/// Everything below the output directory. False when stopped or when `path` could not be written.
bool WriteAll(const SampleOptions& o, const TownScene& scene, const Survey& survey, Watch& watch,
              std::string& path) {
  const std::string out = o.outDir + "/", truth = out + "truth/";
  const std::string wkt = geo::CrsToWkt(kTownCrs);
  const TownRaster dsm = RasterOf(o.sizeM, o.dsmCellM), cells = RasterOf(o.sizeM, o.truthCellM);
  const SurveyCamera& camera = survey.cameras.front();

  path = out + "cameras.txt";
  if (!WriteCameraFile(path, survey)) return false;
  path = out + "photos.txt";
  if (!WritePhotoList(path, survey)) return false;
  path = truth + "scene.json";
  if (!WriteDescription(path, o, scene, survey)) return false;
  const auto heightRow = [&](const TownRaster& raster) {
    return [&scene, &raster](int row, float* z) { SampleHeightRow(scene, raster, row, z); };
  };
  path = out + "dsm.tif";
  if (!WriteRaster<float>(path, dsm, 1, tqimage::kFloat32, wkt, true, watch, heightRow(dsm))) {
    return false;
  }
  path = truth + "height.tif";
  if (!WriteRaster<float>(path, cells, 1, tqimage::kFloat32, wkt, true, watch, heightRow(cells))) {
    return false;
  }
  path = truth + "class.tif";
  if (!WriteRaster<std::uint8_t>(
          path, cells, 1, tqimage::kByte, wkt, false, watch,
          [&](int row, std::uint8_t* c) { SampleClassRow(scene, cells, row, c); })) {
    return false;
  }
  path = truth + "ortho.tif";
  if (!WriteRaster<std::uint8_t>(
          path, cells, 3, tqimage::kByte, wkt, false, watch,
          [&](int row, std::uint8_t* rgb) { RenderTruthRow(scene, cells, row, rgb); })) {
    return false;
  }
  for (const SurveyPhoto& photo : survey.blocks.front().photos) {
    path = out + "photos/" + photo.name;
    if (!WritePhoto(scene, camera, photo, path, 12, watch)) return false;
    path = truth + "visibility/" + fs::path(photo.name).stem().string() + ".tif";
    const TownCamera lens(camera, photo, kTownEast, kTownNorth);
    if (!WriteRaster<std::uint8_t>(
            path, cells, 1, tqimage::kByte, wkt, false, watch,
            [&](int row, std::uint8_t* v) { VisibilityRow(scene, cells, lens, row, v); })) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool WriteSampleTown(const SampleOptions& options, std::string& error,
                     const std::function<bool(double)>& progress) {
  error.clear();
  if (!CheckOptions(options, error)) return false;
  const TownScene scene(PlanTown(options.seed, options.sizeM), options.photoGsdM);
  const double ground = GroundHeight(scene.Plan(), options.sizeM / 2, options.sizeM / 2);
  Survey survey;
  if (!PlanFlight(options, ground, scene.Top() - ground, survey, error)) return false;
  std::error_code failed;
  for (const char* folder : {"photos", "truth/visibility"}) {
    fs::create_directories(fs::path(options.outDir) / folder, failed);
    if (failed) {
      error = options.outDir + "/" + folder + " cannot be created: " + failed.message();
      return false;
    }
  }
  const auto square = [&](double cell) { return std::pow(options.sizeM / cell, 2); };
  const SurveyCamera& camera = survey.cameras.front();
  Watch watch(progress, square(options.dsmCellM) +
                            (3 + options.photoCount) * square(options.truthCellM) +
                            12 * options.photoCount * camera.width * camera.height);
  std::string path;
  if (!WriteAll(options, scene, survey, watch, path)) {
    error = watch.Stopped() ? "stopped" : path + " cannot be written";
    return false;
  }
  return true;
}

}  // namespace tqtortho::host
