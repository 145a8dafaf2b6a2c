// SPDX-License-Identifier: Apache-2.0
#include "update/mosaic_grid.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/numeric.h"
#include "core/rect_ops.h"

namespace tqtortho {

namespace {

constexpr double kStripShare = 0.5;    // of a photo's area that makes it a strip's
constexpr double kOverlapShare = 0.3;  // of a photo's area that makes another its neighbour
constexpr double kRegionBytes = 1e9;
constexpr double kRegionBands = 3.0;

bool IsPlaced(const GroundRect& r) {
  return HasArea(r) && std::isfinite(r.minX) && std::isfinite(r.minY) && std::isfinite(r.maxX) &&
         std::isfinite(r.maxY);
}

double Area(const GroundRect& r) { return (r.maxX - r.minX) * (r.maxY - r.minY); }

int SaturatedInt(std::int64_t value) {
  return static_cast<int>(std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(),
                                                   std::numeric_limits<int>::max()));
}

}  // namespace

std::vector<PlacedPhoto> PlacedPhotos(const std::vector<tqorkit::tqPhotoCategory>& blocks) {
  std::vector<PlacedPhoto> placed;
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    const auto& photos = blocks[b].GetPhotos();
    for (std::size_t p = 0; p < photos.size(); ++p) {
      const GroundRect& rect = photos[p].GetGeoRect();
      if (IsPlaced(rect)) placed.push_back({{static_cast<int>(b), static_cast<int>(p)}, rect});
    }
  }
  return placed;
}

int CountPhotos(const std::vector<tqorkit::tqPhotoCategory>& blocks) {
  std::size_t count = 0;
  for (const auto& block : blocks) count += block.GetPhotos().size();
  return static_cast<int>(count);
}

int GlobalPhotoNumber(const std::vector<tqorkit::tqPhotoCategory>& blocks, PhotoRef photo) {
  std::size_t before = 0;
  for (int b = 0; b < photo.x; ++b)
    before += blocks[static_cast<std::size_t>(b)].GetPhotos().size();
  return static_cast<int>(before) + photo.y + 1;
}

GroundRect GlobalRectangle(const std::vector<PlacedPhoto>& photos) {
  GroundRect global;
  for (const PlacedPhoto& placed : photos) FoldInto(global, placed.rect);
  return global;
}

std::int64_t StripCount(std::int64_t rows) {
  return std::max<std::int64_t>((rows + 10) / kStripRows, 1);
}

MosaicStrips CutStrips(const GroundRect& global, double resolution,
                       const std::vector<PlacedPhoto>& photos) {
  const int rows = TruncToInt((global.maxY - global.minY) / resolution + 0.5);
  const auto count = static_cast<std::size_t>(StripCount(rows));
  std::vector<GroundRect> bands(count);
  double lower = global.minY;
  for (GroundRect& band : bands) {
    band = {global.minX, lower, global.maxX, lower + resolution * kStripRows};
    lower = band.maxY;
  }
  bands.back().maxY = global.maxY;

  MosaicStrips strips;
  strips.rects.resize(count);
  strips.photos.resize(count);
  for (const auto& [photo, rect] : photos) {
    for (std::size_t i = 0; i < count; ++i) {
      if (!OverlapsStrictly(rect, bands[i])) continue;
      if (!(Area(Intersection(rect, bands[i])) / Area(rect) > kStripShare)) continue;
      strips.photos[i].push_back(photo);
      FoldInto(strips.rects[i], rect);
      break;
    }
  }
  return strips;
}

RegionPlan PlanRegions(std::int64_t rows, std::int64_t cols) {
  RegionPlan plan;
  // Beyond 333 million columns a single row exceeds the budget.
  plan.rowsPerRegion = std::max<std::int64_t>(
      TruncToInt64(kRegionBytes / (static_cast<double>(cols) * kRegionBands)), 1);
  plan.count = rows / plan.rowsPerRegion;
  if (plan.count == 0 && rows % plan.rowsPerRegion != 0) plan.count = 1;
  return plan;
}

void CutRegions(const GroundRect& global, double resolution, std::int64_t rows, std::int64_t cols,
                const std::vector<PlacedPhoto>& photos, std::vector<GroundRect>& regions,
                std::map<std::uint64_t, std::vector<PhotoRef>>& byRegion) {
  const RegionPlan plan = PlanRegions(rows, cols);
  const auto count = static_cast<std::size_t>(std::max<std::int64_t>(plan.count, 0));
  std::vector<GroundRect> bands(count);
  const auto perRegion = static_cast<double>(plan.rowsPerRegion);
  for (std::size_t k = 0; k < count; ++k) {
    const auto index = static_cast<double>(k);
    bands[k] = {global.minX, global.maxY - (index + 1) * perRegion * resolution, global.maxX,
                global.maxY - index * perRegion * resolution};
    if (k + 1 == count) bands[k].minY = global.maxY - static_cast<double>(rows) * resolution;
    byRegion[k].clear();
  }
  regions.assign(count, GroundRect{});
  for (const auto& [photo, rect] : photos) {
    for (std::size_t k = 0; k < count; ++k) {
      if (!OverlapsStrictly(bands[k], rect)) continue;
      byRegion[k].push_back(photo);
      FoldInto(regions[k], rect);
      break;
    }
  }
}

tqimage::GeoCoefficients MosaicGeoreference(const GroundRect& global, double resX, double resY) {
  // Written so that NaN counts as unset.
  if (!(std::abs(resX) >= kZeroTolerance && std::abs(resY) >= kZeroTolerance)) return {};
  const std::int64_t lastCol = TruncToInt((global.maxX - global.minX) / resX + 0.5);
  const std::int64_t lastRow = TruncToInt((global.maxY - global.minY) / resY - 0.5);
  const double transform[] = {global.minX, resX, 0, global.maxY, 0, resY};
  return {transform, SaturatedInt(lastCol + 1), SaturatedInt(1 - lastRow)};
}

std::map<std::size_t, std::vector<std::size_t>> OverlapTable(
    const std::vector<GroundRect>& footprints) {
  std::map<std::size_t, std::vector<std::size_t>> table;
  for (std::size_t i = 0; i < footprints.size(); ++i) {
    const GroundRect& own = footprints[i];
    for (std::size_t j = 0; j < footprints.size(); ++j) {
      if (j == i || !OverlapsStrictly(footprints[j], own)) continue;
      if (Area(Intersection(own, footprints[j])) / Area(own) > kOverlapShare) {
        table[i].push_back(j);
      }
    }
  }
  return table;
}

}  // namespace tqtortho
