// SPDX-License-Identifier: Apache-2.0
// The extent estimation's members of tqTORectify: reading, orchestration, results.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "camera/photo_camera.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "pipeline/extent_estimation.h"
#include "pipeline/neighbours.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/progress.h"
#include "tqimage/TqImage.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

namespace {

using Rect = tqfd::Rect2_T<double>;

bool Fail(std::string_view detail, std::string_view path = {}) {
  LogMessage(std::string(message::kEstimateAbnormal) + std::string(detail) + std::string(path));
  return false;
}

// Cells per patch side that bring a raster down to at most maxPatches patches.
int ReductionFactor(int cols, int rows, int maxPatches) {
  const double cells = static_cast<double>(cols) * rows;
  int factor = std::max(1, TruncToInt(std::sqrt(cells / std::max(maxPatches, 1))));
  while (static_cast<std::int64_t>(ReducedCount(cols, factor)) * ReducedCount(rows, factor) >
         std::max(maxPatches, 1)) {
    ++factor;
  }
  return factor;
}

// A window of the DSM as a record of float heights.
bool ReadHeights(const tqimage::TqImage& image, const tqfd::Rect2_T<int>& window,
                 tqorkit::PhotoInfo& heights) {
  heights.width = window.maxX - window.minX;
  heights.height = window.maxY - window.minY;
  heights.bands = 1;
  heights.dataType = tqimage::kFloat32;
  heights.noData = image.GetNoDataValue(0);
  heights.data.resize(static_cast<std::size_t>(heights.width) *
                      static_cast<std::size_t>(heights.height) * sizeof(float));
  return image.ReadHeights(0, window, NarrowToFloat(heights.noData),
                           reinterpret_cast<float*>(heights.data.data()));
}

bool IsNorthUp(const tqimage::GeoCoefficients& coefficients) {
  const auto cell = coefficients.GetResolution();
  const auto origin = coefficients.GetOrigin();
  return std::isfinite(origin.x) && std::isfinite(origin.y) && std::isfinite(cell.x) &&
         std::isfinite(cell.y) && cell.x > 0 && cell.y < 0;
}

JobArea AreaOf(const tqimage::GeoCoefficients& dsm,
               const std::vector<tqfd::Point2_T<double>>* polygon) {
  const auto first = dsm.Raster2World(0, 0);
  const auto last = dsm.Raster2World(dsm.GetWidth() - 1, dsm.GetHeight() - 1);
  const auto cell = dsm.GetResolution();
  return {{first.x, last.y, last.x, first.y}, std::max(cell.x, -cell.y), polygon};
}

// The job's resolution as the workers will read it; 0 when it is none.
double JobResolution(double requested, double dsmCell) {
  const bool given = !(std::fabs(requested) < kResolutionTolerance);  // NaN is given, and refused
  const double step = RoundedToFile(given ? requested : dsmCell);
  return std::isfinite(step) && step > 0 ? step : 0;
}

struct PhotoOfJob {
  std::uint64_t key = 0;
  tqorkit::tqExtOri* photo = nullptr;
};

std::vector<PhotoOfJob> AllPhotos(std::vector<tqorkit::tqPhotoCategory>& photoBlocks) {
  std::vector<PhotoOfJob> all;
  for (std::size_t b = 0; b < photoBlocks.size(); ++b) {
    auto& photos = photoBlocks[b].GetPhotos();
    for (std::size_t i = 0; i < photos.size(); ++i) all.push_back({PhotoKey(b, i), &photos[i]});
  }
  return all;
}

// Gives every photo its footprint, and the job's sample distance where it has none of its own.
// False after a stop.
bool EstimateAll(std::vector<PhotoOfJob>& photos, const std::map<int, tqorkit::tqIntOri>& cameras,
                 const HeightPyramid& surface, const JobLattice& lattice, const JobArea& area,
                 tqfd::ProgressCallback progress, void* user) {
  const int photoCount = static_cast<int>(photos.size());
  StageProgress stage(photoCount, message::kEstimating, progress, user);
#pragma omp parallel for schedule(static)
  for (int i = 0; i < photoCount; ++i) {
    if (stage.Stopped()) continue;
    tqorkit::tqExtOri& photo = *photos[static_cast<std::size_t>(i)].photo;
    Rect footprint;
    const auto camera = cameras.find(photo.GetCameraId());
    if (camera != cameras.end()) {
      (void)Guarded([&] {
        footprint = EstimateFootprint(surface, CameraOf(camera->second, photo), area, lattice);
        return true;
      });
    }
    photo.SetGeoRect(footprint);
    // A value within the rounding of the parameter file is the job's own, not yet rounded.
    const double gsd = photo.GetGSD().x;
    if (!(std::fabs(gsd) >= kZeroTolerance) || std::fabs(gsd - lattice.Step()) < 1e-6) {
      photo.SetGSD(lattice.Step(), -lattice.Step());
    }
    stage.FinishOne();
  }
  return !stage.Stopped();
}

}  // namespace

// Joins `factor` x `factor` neighbours into their height ranges: a record of two interleaved float
// bands, lowest and highest. Takes heights (one band) or ranges (two bands); a factor below 1
// counts as 1. The ground rectangle grows to whole patches.
void tqTORectify::ZoomNeighbor(const tqorkit::PhotoInfo& in, double factor,
                               tqorkit::PhotoInfo& out) {
  const int side = std::max(1, TruncToInt(factor));
  tqorkit::PhotoInfo zoomed;
  zoomed.width = ReducedCount(in.width, side);
  zoomed.height = ReducedCount(in.height, side);
  zoomed.bands = 2;
  zoomed.dataType = tqimage::kFloat32;
  zoomed.noData = in.noData;
  zoomed.defaultZ = in.defaultZ;
  zoomed.resX = in.resX * side;
  zoomed.resY = in.resY * side;
  zoomed.geoRect[0] = in.geoRect[0];
  zoomed.geoRect[3] = in.geoRect[3];
  zoomed.geoRect[2] = in.geoRect[0] + zoomed.width * zoomed.resX;
  zoomed.geoRect[1] = in.geoRect[3] + zoomed.height * zoomed.resY;
  zoomed.data.resize(static_cast<std::size_t>(zoomed.width) *
                     static_cast<std::size_t>(zoomed.height) * sizeof(HeightRange));
  const GridView<HeightRange> ranges(reinterpret_cast<HeightRange*>(zoomed.data.data()),
                                     zoomed.height, zoomed.width);
  if (in.bands == 2) {
    ReduceRanges({reinterpret_cast<const HeightRange*>(in.data.data()), in.height, in.width}, side,
                 ranges);
  } else {
    ReduceHeights({reinterpret_cast<const float*>(in.data.data()), in.height, in.width},
                  NarrowToFloat(in.noData), side, ranges);
  }
  out = std::move(zoomed);
}

// The DSM as at most `maxCells` height ranges, read window by window: memory does not grow with the
// DSM. The record's rectangle runs along the outer edges of the patches.
bool tqTORectify::ReadAndStrechDSM(const char* dsmPath, int maxCells, tqorkit::PhotoInfo& dsm) {
  tqimage::TqImage image;
  if (dsmPath == nullptr || !image.Open(dsmPath, true)) return false;
  const int cols = image.GetWidth();
  const int rows = image.GetHeight();
  if (cols <= 0 || rows <= 0) return false;
  constexpr int kWindowCols = 4096;  // whole file tiles: nothing is decoded twice
  constexpr int kWindowRows = 512;
  const int factor = ReductionFactor(cols, rows, maxCells);
  if (factor > kWindowCols) return false;
  const int windowCols = kWindowCols / factor * factor;
  const int windowRows = std::max(1, kWindowRows / factor) * factor;

  const auto coefficients = image.GetGeoCoefficients();
  const auto cell = coefficients.GetResolution();
  const auto corner = coefficients.Raster2World(-0.5, -0.5);
  dsm = {};
  dsm.width = ReducedCount(cols, factor);
  dsm.height = ReducedCount(rows, factor);
  dsm.bands = 2;
  dsm.dataType = tqimage::kFloat32;
  dsm.resX = cell.x * factor;
  dsm.resY = cell.y * factor;
  dsm.noData = image.GetNoDataValue(0);
  dsm.geoRect[0] = corner.x;
  dsm.geoRect[1] = corner.y + dsm.height * dsm.resY;
  dsm.geoRect[2] = corner.x + dsm.width * dsm.resX;
  dsm.geoRect[3] = corner.y;
  const std::size_t rowBytes = static_cast<std::size_t>(dsm.width) * sizeof(HeightRange);
  dsm.data.resize(rowBytes * static_cast<std::size_t>(dsm.height));

  tqorkit::PhotoInfo window;
  tqorkit::PhotoInfo ranges;
  for (std::int64_t top = 0; top < rows; top += windowRows) {
    for (std::int64_t left = 0; left < cols; left += windowCols) {
      const tqfd::Rect2_T<int> rect{
          static_cast<int>(left), static_cast<int>(top),
          static_cast<int>(std::min<std::int64_t>(left + windowCols, cols)),
          static_cast<int>(std::min<std::int64_t>(top + windowRows, rows))};
      if (!ReadHeights(image, rect, window)) return false;
      ZoomNeighbor(window, factor, ranges);
      const std::size_t bytes = static_cast<std::size_t>(ranges.width) * sizeof(HeightRange);
      for (int row = 0; row < ranges.height; ++row) {
        const auto target = static_cast<std::size_t>(rect.minY / factor + row) * rowBytes +
                            static_cast<std::size_t>(rect.minX / factor) * sizeof(HeightRange);
        std::memcpy(&dsm.data[target], &ranges.data[static_cast<std::size_t>(row) * bytes], bytes);
      }
    }
  }
  return true;
}

bool tqTORectify::OrthoRectifyEstSize(
    std::vector<tqorkit::tqPhotoCategory>* photoBlocks, std::map<int, tqorkit::tqIntOri>* cameras,
    const char* dsmPath, double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
    int /*rectifyOption*/, const char* /*outputDir*/, int& width, int& height, bool /*flagB*/,
    std::map<std::uint64_t, std::vector<std::uint64_t>>& photoNeighbours,
    std::vector<tqfd::Point2_T<int>>& extentPoints, tqfd::ProgressCallback progress, void* user) {
  width = 0;
  height = 0;
  photoNeighbours.clear();
  extentPoints.clear();
  if (photoBlocks == nullptr || cameras == nullptr || heightPair == nullptr || dsmPath == nullptr) {
    return Fail("");
  }
  return Guarded([&] {
    tqimage::GeoCoefficients dsm;
    {
      tqimage::TqImage image;
      if (!image.Open(dsmPath, true)) return Fail(message::kDsmUnreadable, dsmPath);
      dsm = image.GetGeoCoefficients();
    }
    const double step = JobResolution(heightPair[0], dsm.GetResolution().x);
    if (!IsNorthUp(dsm) || step == 0) return Fail(message::kDsmUnplaced, dsmPath);
    HeightPyramid surface;
    {
      tqorkit::PhotoInfo ranges;
      if (!ReadAndStrechDSM(dsmPath, kMaxSurfacePatches, ranges)) {
        return Fail(message::kDsmUnreadable, dsmPath);
      }
      surface = PyramidOf(ranges);
    }
    heightPair[0] = step;
    const JobLattice lattice(dsm, step);
    const JobArea area = AreaOf(dsm, areaPolygon);

    std::vector<PhotoOfJob> photos = AllPhotos(*photoBlocks);
    if (photos.empty()) return Fail(message::kNoPhotos);
    if (!EstimateAll(photos, *cameras, surface, lattice, area, progress, user)) return false;
    Rect job;
    std::vector<KeyedFootprint> footprints;
    for (const PhotoOfJob& p : photos) {
      const Rect& rect = p.photo->GetGeoRect();
      if (HasArea(rect)) {
        FoldInto(job, rect);
        footprints.push_back({p.key, rect});
      } else {
        (void)Fail(p.photo->GetPhotoName());
      }
    }
    if (footprints.empty()) return Fail(message::kNoFootprint, dsmPath);
    photoNeighbours = OverlappingPhotos(std::move(footprints));
    const int left = lattice.ColumnOf(job.minX);
    const int right = lattice.ColumnOf(job.maxX);
    const int top = lattice.RowOf(job.maxY);
    const int bottom = lattice.RowOf(job.minY);
    extentPoints = {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
    width = TruncToInt((job.maxX - job.minX) / step + 1.0);
    height = TruncToInt((job.maxY - job.minY) / step + 1.0);
    return true;
  });
}

}  // namespace tqtortho
