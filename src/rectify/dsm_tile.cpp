// SPDX-License-Identifier: Apache-2.0
#include "rectify/dsm_tile.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/numeric.h"
#include "core/rect_ops.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

/// Eight gigabytes of heights; more is a damaged rectangle.
constexpr std::int64_t kMaxTileCells = 2'000'000'000;

bool IsFootprint(const tqfd::Rect2_T<double>& r) {
  return HasArea(r) && std::isfinite(r.minX) && std::isfinite(r.minY) && std::isfinite(r.maxX) &&
         std::isfinite(r.maxY);
}

/// Cells of a tile in the surface model, last column and row exclusive. Nothing when the tile would
/// be empty, too large or nowhere on the surface model.
std::optional<tqfd::Rect2_T<int>> TileCells(const tqimage::TqImage& image,
                                            const tqimage::GeoCoefficients& geo,
                                            const tqfd::Rect2_T<double>& rect) {
  const auto [resX, resY] = geo.GetResolution();
  const std::int64_t cols = TruncToInt64((rect.maxX - rect.minX) / resX + 1.0);
  const std::int64_t rows = TruncToInt64(1.0 - (rect.maxY - rect.minY) / resY);
  if (cols <= 0 || rows <= 0 || cols > kMaxTileCells / rows) return std::nullopt;
  const tqfd::Point2_T<int> first = geo.World2Raster(rect.minX, rect.maxY, -1, -1);
  const std::int64_t right = first.x + cols;
  const std::int64_t bottom = first.y + rows;
  if (first.x >= image.GetWidth() || first.y >= image.GetHeight() || right <= 0 || bottom <= 0 ||
      right > std::numeric_limits<int>::max() || bottom > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  return tqfd::Rect2_T<int>{first.x, first.y, static_cast<int>(right), static_cast<int>(bottom)};
}

}  // namespace

HeightStatistics SummariseHeights(GridView<const float> heights, float noData) {
  HeightStatistics statistics;
  for (int row = 0; row < heights.rows; ++row) {
    const float* cells = heights.Row(row);
    for (int col = 0; col < heights.cols; ++col) {
      if (cells[col] == noData) continue;
      const double height = cells[col];
      statistics.sum += height;
      ++statistics.count;
      statistics.minimum = std::min(statistics.minimum, height);
    }
  }
  return statistics;
}

tqfd::Rect2_T<double> BlockRectangle(const std::vector<tqorkit::tqPhotoCategory>& photoBlocks) {
  tqfd::Rect2_T<double> box;
  for (const auto& block : photoBlocks) {
    for (const auto& photo : block.GetPhotos()) {
      if (IsFootprint(photo.GetGeoRect())) FoldInto(box, photo.GetGeoRect());
    }
  }
  return box;
}

std::optional<DsmTile> ReadDsmTile(const std::string& dsmPath, const tqfd::Rect2_T<double>& rect) {
  tqimage::TqImage image;
  if (!image.Open(dsmPath, true)) return std::nullopt;
  const tqimage::GeoCoefficients geo = image.GetGeoCoefficients();
  const auto cells = TileCells(image, geo, rect);
  if (!cells) return std::nullopt;

  DsmTile tile;
  tqorkit::PhotoInfo& record = tile.record;
  record.width = cells->maxX - cells->minX;
  record.height = cells->maxY - cells->minY;
  record.bands = 1;
  record.dataType = tqimage::kFloat32;
  const std::size_t count = static_cast<std::size_t>(record.width) * record.height;
  record.data.resize(count * sizeof(float));
  auto* heights = reinterpret_cast<float*>(record.data.data());
  // Heights are floats, so the no-data value is compared as one.
  const float noData = NarrowToFloat(image.GetNoDataValue(0));
  if (!image.ReadHeights(0, *cells, noData, heights)) return std::nullopt;
  tile.statistics = SummariseHeights({heights, record.height, record.width}, noData);
  tile.projection = geo.GetProjection();
  const auto [resX, resY] = geo.GetResolution();
  record.resX = resX;
  record.resY = resY;
  record.noData = noData;
  record.defaultZ = tile.statistics.minimum;
  record.geoRect[0] = rect.minX;
  record.geoRect[1] = rect.maxY + record.height * resY;
  record.geoRect[2] = rect.minX + record.width * resX;
  record.geoRect[3] = rect.maxY;
  return tile;
}

}  // namespace tqtortho
