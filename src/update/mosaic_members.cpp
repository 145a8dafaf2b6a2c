// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <fstream>

#include "core/limits.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "stage/photo_files.h"
#include "tqfd/FileInput.h"
#include "tqtortho/tqTORProc.h"
#include "update/mosaic_grid.h"

namespace tqtortho {

namespace {

/// Cells added to either side of the grid when regions are planned.
constexpr std::int64_t kRegionMargin = 10;
/// More regions than this, a thousand terabytes of mosaic, come from a damaged resolution.
constexpr std::int64_t kMostRegions = 1'000'000;

}  // namespace

bool tqTORProc::GetGlobalGeoInfoFromFile(tqfd::Rect2_T<double>& rect, double& resolution,
                                         std::vector<std::vector<tqfd::Point2_T<int>>>* stripPhotos,
                                         std::vector<tqfd::Rect2_T<double>>* stripRects) {
  return Guarded([&] {
    std::ifstream file = tqfd::OpenInputFile(ParamFilePath(), limits::kListBytes);
    if (!file.is_open()) return false;
    ParamHeader header;
    if (!ParamFileReader(file).ReadHeader(header)) return false;
    resolution = header.heightPair[0];
    const std::vector<PlacedPhoto> photos = PlacedPhotos(photoBlocks);
    rect = GlobalRectangle(photos);
    if (stripPhotos == nullptr || stripRects == nullptr) return true;
    if (!(resolution >= kZeroTolerance && std::isfinite(resolution))) return false;
    MosaicStrips strips = CutStrips(rect, resolution, photos);
    *stripPhotos = std::move(strips.photos);
    *stripRects = std::move(strips.rects);
    return true;
  });
}

tqimage::GeoCoefficients tqTORProc::GetGeoCoeff() const {
  return MosaicGeoreference(globalRect, globalResX, globalResY);
}

int tqTORProc::GetGlobalWidth() const {
  if (std::abs(globalResX) < kZeroTolerance || std::abs(globalResY) < kZeroTolerance) return 0;
  const auto cells = GetGeoCoeff().World2Raster(globalRect, -1, -1);
  return cells.maxX - cells.minX + 1;
}

int tqTORProc::GetGlobalHeight() const {
  if (std::abs(globalResX) < kZeroTolerance || std::abs(globalResY) < kZeroTolerance) return 0;
  const auto cells = GetGeoCoeff().World2Raster(globalRect, -1, -1);
  return cells.maxY - cells.minY + 1;
}

void tqTORProc::CheckOverlaps() {
  photoOverlaps.clear();
  std::vector<GroundRect> footprints;
  footprints.reserve(photoList.size());
  for (const PhotoRef photo : photoList) {
    footprints.push_back(photoBlocks[static_cast<std::size_t>(photo.x)]
                             .GetPhotos()[static_cast<std::size_t>(photo.y)]
                             .GetGeoRect());
  }
  photoOverlaps = OverlapTable(footprints);
}

bool tqTORProc::ImageRegionPartition(
    std::vector<tqfd::Rect2_T<double>>& regions, double /*ignored*/,
    std::map<std::uint64_t, std::vector<tqfd::Point2_T<int>>>& regionPhotos) {
  return Guarded([&] {
    GroundRect rect;
    double resolution = 0;
    if (!GetGlobalGeoInfoFromFile(rect, resolution, nullptr, nullptr)) return false;
    // Without a placed photo the rectangle is inverted, hence the first test.
    if (!HasArea(rect) || std::abs(rect.maxX - rect.minX) <= kZeroTolerance ||
        std::abs(rect.maxY - rect.minY) < kZeroTolerance ||
        !(std::abs(resolution) >= kZeroTolerance)) {
      return false;
    }
    tqimage::GeoCoefficients geo;
    geo.SetOrigin(rect.minX, rect.maxY);
    geo.SetResolution(resolution, -resolution);
    const auto cells = geo.World2Raster(rect, -1, -1);
    const std::int64_t rows = std::int64_t{cells.maxY} - cells.minY + kRegionMargin;
    const std::int64_t cols = std::int64_t{cells.maxX} - cells.minX + kRegionMargin;
    if (PlanRegions(rows, cols).count > kMostRegions) return false;
    CutRegions(rect, resolution, rows, cols, PlacedPhotos(photoBlocks), regions, regionPhotos);
    return true;
  });
}

bool tqTORProc::PlaceMosaic(std::vector<std::vector<tqfd::Point2_T<int>>>* stripPhotos,
                            std::vector<tqfd::Rect2_T<double>>* stripRects) {
  photoList.clear();
  for (const PlacedPhoto& placed : PlacedPhotos(photoBlocks)) photoList.push_back(placed.photo);
  CheckOverlaps();
  GroundRect rect;
  double resolution = 0;
  if (!GetGlobalGeoInfoFromFile(rect, resolution, stripPhotos, stripRects)) return false;
  if (!(resolution >= kZeroTolerance && std::isfinite(resolution))) return false;
  globalRect = rect;
  globalResX = resolution;
  globalResY = -resolution;
  return true;
}

// Kept: a hook for hosts' colour pipelines; it does nothing and reports success.
bool tqTORProc::ColorCompensation() { return true; }

}  // namespace tqtortho
