// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_sight.h"

#include <cmath>
#include <cstddef>

#include "core/numeric.h"

namespace tqtortho {

bool WouldSee(const WallGround& ground, const WallZone& zone, const tqfd::Point3_T<double>& camera,
              int row, int col, double z, double margin) {
  constexpr double kClear = 0.2;  // heights are noisy
  constexpr int kFineSteps = 24;  // beyond them whole cells are near enough
  const double half = 0.5 * ground.cell;
  const double dCol = (camera.x - ground.X(col)) / half;
  const double dRow = (ground.Y(row) - camera.y) / half;
  const double away = std::hypot(dCol, dRow);
  if (!(camera.z > z)) return false;
  if (!(away > 1)) return true;
  const double perStep = (camera.z - z) / away;
  const std::size_t own =
      static_cast<std::size_t>(row) * static_cast<std::size_t>(ground.part.cols) +
      static_cast<std::size_t>(col);
  const double inside = zone.offset[own] - margin;
  const double most = std::fmin(away, (ground.highest - z) / perStep);
  double step = 2;
  for (int k = 0; step <= most; ++k) {
    const double height = z + perStep * step + kClear;
    const int r = FloorToInt(row + dRow / away * step + 0.5);
    const int c = FloorToInt(col + dCol / away * step + 0.5);
    if (ground.part.Contains(r, c)) {
      const std::size_t i =
          static_cast<std::size_t>(r) * static_cast<std::size_t>(ground.part.cols) +
          static_cast<std::size_t>(c);
      const float offset = zone.offset[i];
      const float there = std::isnan(offset) ? ground.part.At(r, c)
                          : offset < inside  ? zone.upper[i]
                                             : zone.lower[i];
      if (there > height) return false;
    } else {
      const int wholeRow = (ground.firstRow + r) / 2;
      const int wholeCol = (ground.firstCol + c) / 2;
      if (!ground.whole.Contains(wholeRow, wholeCol)) return true;
      if (ground.whole.At(wholeRow, wholeCol) > height) return false;
    }
    step += k < kFineSteps ? 1 : 2;
  }
  return true;
}

}  // namespace tqtortho
