// SPDX-License-Identifier: Apache-2.0
#include "stage/border_mask.h"

#include <limits>

#include "stage/photo_files.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

/// Tiles beyond this are refused: no photo covers as much, so the rectangle is damaged.
constexpr std::int64_t kMaxTileCells = 2'000'000'000;

}  // namespace

std::optional<BorderTile> ReadBorderTile(const tqfd::Rect2_T<double>& rect) {
  tqimage::TqImage image;
  if (!image.Open(BorderMaskPath(), true)) return std::nullopt;
  BorderTile tile;
  tile.coefficients = image.GetGeoCoefficients();
  tile.cellRect = tile.coefficients.World2Raster(rect, -1, -1);
  const std::int64_t cols = std::int64_t{tile.cellRect.maxX} - tile.cellRect.minX + 1;
  const std::int64_t rows = std::int64_t{tile.cellRect.maxY} - tile.cellRect.minY + 1;
  if (cols <= 0 || rows <= 0) return tile;
  constexpr int kLast = std::numeric_limits<int>::max();
  if (tile.cellRect.maxX == kLast || tile.cellRect.maxY == kLast || cols > kMaxTileCells / rows) {
    return std::nullopt;
  }
  tile.cells.resize(static_cast<std::size_t>(cols * rows));
  const tqfd::Rect2_T<int> readRect{tile.cellRect.minX, tile.cellRect.minY, tile.cellRect.maxX + 1,
                                    tile.cellRect.maxY + 1};
  if (!image.ReadImage(0, readRect, tqimage::kByte, tile.cells.data())) return std::nullopt;
  tile.cols = static_cast<int>(cols);
  tile.rows = static_cast<int>(rows);
  return tile;
}

}  // namespace tqtortho
