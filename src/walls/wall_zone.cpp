// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_zone.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "core/numeric.h"
#include "walls/wall_sides.h"

namespace tqtortho {
namespace {

constexpr float kNoPlateau = std::numeric_limits<float>::quiet_NaN();

std::size_t At(const GridView<const float>& grid, int row, int col) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(grid.cols) +
         static_cast<std::size_t>(col);
}

/// Gives each fine cell near a steep cell the sides of the nearest one.
void SpreadSides(const WallSides& sides, GridView<const float> heights, GridView<const float> fine,
                 const WallZoneOptions& options, WallZone& zone) {
  const double reach = 2 * options.band / options.cell + 1;  // in fine cells
  const int span = TruncToInt(reach);
  std::vector<float> nearest(zone.upper.size(), std::numeric_limits<float>::infinity());
  for (int row = 0; row < heights.rows; ++row) {
    for (int col = 0; col < heights.cols; ++col) {
      const std::size_t i = At(heights, row, col);
      if (sides.upper[i] < 0) continue;
      const LevelPlane& upper = sides.planes[static_cast<std::size_t>(sides.upper[i])];
      const LevelPlane& lower = sides.planes[static_cast<std::size_t>(sides.lower[i])];
      for (int r = std::max(2 * row - span, 0); r <= std::min(2 * row + span, fine.rows - 1); ++r) {
        for (int c = std::max(2 * col - span, 0); c <= std::min(2 * col + span, fine.cols - 1);
             ++c) {
          const auto away = static_cast<float>(std::hypot(r - 2 * row, c - 2 * col));
          const std::size_t k = At(fine, r, c);
          if (away > reach || !(away < nearest[k])) continue;
          const float height = fine.At(r, c);
          if (!std::isfinite(height) ||
              std::fabs(height - options.noData) < kRectifyNoDataTolerance) {
            continue;
          }
          nearest[k] = away;
          const float high = PlaneHeight(upper, 0.5 * r, 0.5 * c, options);
          const float low = PlaneHeight(lower, 0.5 * r, 0.5 * c, options);
          const bool apart = high - low >= options.leastWall;
          zone.upper[k] = apart ? high : kNoPlateau;
          zone.lower[k] = apart ? low : kNoPlateau;
          zone.level[k] = sides.level[i];
        }
      }
    }
  }
}

/// Distances from the line half way up by two sweeps of a chamfer.
void MeasureOffsets(GridView<const float> fine, const WallZoneOptions& options, WallZone& zone) {
  constexpr float kFar = 1e6F;
  constexpr float kStraight = 1;
  constexpr float kDiagonal = 1.41421356F;
  const int rows = fine.rows;
  const int cols = fine.cols;
  std::vector<float>& away = zone.offset;
  away.assign(zone.upper.size(), kFar);
  const auto inZone = [&](std::size_t i) { return !std::isnan(zone.upper[i]); };
  const auto isUpper = [&](std::size_t i, float height) {
    return IsUpperByHeight(height, zone.upper[i], zone.lower[i], zone.level[i]);
  };
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const std::size_t i = At(fine, row, col);
      if (!inZone(i)) continue;
      const bool side = isUpper(i, fine.At(row, col));
      const auto meet = [&](int r, int c) {
        if (r >= rows || c >= cols) return;
        const std::size_t k = At(fine, r, c);
        if (!inZone(k) || isUpper(k, fine.At(r, c)) == side) return;
        away[i] = away[k] = 0.5F;
      };
      meet(row, col + 1);
      meet(row + 1, col);
    }
  }
  const auto take = [&](std::size_t i, int r, int c, float step) {
    if (r >= 0 && r < rows && c >= 0 && c < cols) {
      away[i] = std::min(away[i], away[At(fine, r, c)] + step);
    }
  };
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const std::size_t i = At(fine, row, col);
      take(i, row - 1, col - 1, kDiagonal), take(i, row - 1, col, kStraight);
      take(i, row - 1, col + 1, kDiagonal), take(i, row, col - 1, kStraight);
    }
  }
  for (int row = rows - 1; row >= 0; --row) {
    for (int col = cols - 1; col >= 0; --col) {
      const std::size_t i = At(fine, row, col);
      take(i, row + 1, col + 1, kDiagonal), take(i, row + 1, col, kStraight);
      take(i, row + 1, col - 1, kDiagonal), take(i, row, col + 1, kStraight);
    }
  }
  const auto step = static_cast<float>(0.5 * options.cell);
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const std::size_t i = At(fine, row, col);
      if (!inZone(i)) {
        away[i] = kNoPlateau;
      } else {
        away[i] *= isUpper(i, fine.At(row, col)) ? -step : step;
      }
    }
  }
}

}  // namespace

WallZone FindWallZone(GridView<const float> heights, GridView<const float> fine,
                      const WallZoneOptions& options) {
  WallZone zone;
  zone.upper.assign(fine.CellCount(), kNoPlateau);
  zone.lower.assign(fine.CellCount(), kNoPlateau);
  zone.level.assign(fine.CellCount(), 0.5F);
  zone.offset.assign(fine.CellCount(), kNoPlateau);
  if (heights.Empty() || fine.Empty() || !(options.cell > 0)) return zone;
  const WallSides sides = FindWallSides(heights, options);
  SpreadSides(sides, heights, fine, options, zone);
  MeasureOffsets(fine, options, zone);
  return zone;
}

float HeightOnSide(float height, float upper, float lower, bool isUpper) {
  constexpr float kOwn = 0.5F;  // roofs and ground are level to better than this
  if (isUpper) return height > upper - kOwn ? height : upper;
  return height < lower + kOwn ? height : lower;
}

}  // namespace tqtortho
