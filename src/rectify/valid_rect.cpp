// SPDX-License-Identifier: Apache-2.0
#include "rectify/valid_rect.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"
#include "core/rect_ops.h"
#include "rectify/samplers.h"

namespace tqtortho {
namespace {

/// Lines of the search lie this many cells apart.
constexpr double kLineCells = 10.0;

/// Scans lines from `first` towards `last` in steps of `lineStep` (signed); returns the position of
/// the first line for which `lineHolds`, or `otherwise`.
template <class LineHolds>
double FirstLine(double first, double last, double lineStep, double otherwise,
                 LineHolds&& lineHolds) {
  for (std::int64_t i = 0;; ++i) {
    const double at = first + static_cast<double>(i) * lineStep;
    if (!(lineStep > 0 ? at <= last : at >= last)) return otherwise;
    if (lineHolds(at)) return at;
  }
}

}  // namespace

int CellsAlong(double low, double high, double cell) { return TruncToInt((high - low) / cell + 1); }

std::optional<GroundGrid> GridOnTile(const tqfd::Rect2_T<double>& footprint,
                                     const SurfaceTile& tile, double cell, int bands) {
  const tqfd::Rect2_T<double> tileRect{tile.minX, tile.minY, tile.maxX, tile.maxY};
  const tqfd::Rect2_T<double> shared = Intersection(footprint, tileRect);
  if (tile.heights.Empty() || !HasArea(shared)) return std::nullopt;
  if (!std::isfinite(shared.minX) || !std::isfinite(shared.minY) || !std::isfinite(shared.maxX) ||
      !std::isfinite(shared.maxY) || !std::isfinite(cell)) {
    return std::nullopt;
  }
  GroundGrid grid{shared.minX, shared.minY, shared.maxX, shared.maxY, cell, 0, 0};
  grid.cols = CellsAlong(grid.minX, grid.maxX, cell);
  grid.rows = CellsAlong(grid.minY, grid.maxY, cell);
  if (grid.cols < 2 || grid.rows < 2) return std::nullopt;
  const std::int64_t cells = static_cast<std::int64_t>(grid.cols) * grid.rows;
  if (cells > kMaxGridBytes / std::max(bands, 1)) return std::nullopt;
  return grid;
}

bool IsSeen(const PhotoCamera& camera, const SurfaceTile& tile, double groundX, double groundY) {
  const double tileCol = tile.ColumnOf(groundX);
  const double tileRow = tile.RowOf(groundY);
  if (!tile.HasHeightAt(tileCol, tileRow)) return false;
  const double height = SurfaceNearest(tile, tileCol, tileRow);
  if (!tile.IsHeight(height)) return false;
  const tqfd::Point2_T<double> pixel =
      PixelFromImage(camera, ImageFromGround(camera, groundX, groundY, height));
  // Single precision decides here: a point half a rounding step outside the frame counts as in it.
  const float column = NarrowToFloat(pixel.x);
  const float row = NarrowToFloat(camera.height - pixel.y);
  return column >= 0 && column < camera.width && row >= 0 && row < camera.height;
}

tqfd::Rect2_T<double> CoveredRect(const PhotoCamera& camera, const SurfaceTile& tile,
                                  const GroundGrid& grid) {
  const double step = grid.cell;
  const double lineStep = kLineCells * step;
  const auto seenOnRow = [&](double y, double firstX, double lastX, double pointStep) {
    return !std::isnan(FirstLine(firstX, lastX, pointStep, NAN,
                                 [&](double x) { return IsSeen(camera, tile, x, y); }));
  };
  const auto seenOnColumn = [&](double x, double firstY, double lastY, double pointStep) {
    return !std::isnan(FirstLine(firstY, lastY, pointStep, NAN,
                                 [&](double y) { return IsSeen(camera, tile, x, y); }));
  };
  tqfd::Rect2_T<double> found;
  found.minY = FirstLine(grid.minY, grid.maxY, lineStep, tile.minY,
                         [&](double y) { return seenOnRow(y, grid.minX, grid.maxX, step); });
  found.maxY = FirstLine(grid.maxY, grid.minY, -lineStep, tile.maxY,
                         [&](double y) { return seenOnRow(y, grid.maxX, grid.minX, -step); });
  found.maxX = FirstLine(grid.maxX, grid.minX, -lineStep, tile.maxX,
                         [&](double x) { return seenOnColumn(x, grid.maxY, grid.minY, -step); });
  found.minX = FirstLine(grid.minX, grid.maxX, lineStep, 0.0,
                         [&](double x) { return seenOnColumn(x, grid.minY, grid.maxY, step); });
  return found;
}

}  // namespace tqtortho
