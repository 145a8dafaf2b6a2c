// SPDX-License-Identifier: Apache-2.0
#include "report/hillshade.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/numeric.h"

namespace tqtortho::host {
namespace {

struct Slope {
  double east = 0;
  double north = 0;
};

Slope SlopeAt(GridView<const float> heights, int row, int col, double cellX, double cellY) {
  const double own = heights.At(row, col);
  const auto at = [&](int dRow, int dCol) {
    if (!heights.Contains(row + dRow, col + dCol)) return own;
    const double h = heights.At(row + dRow, col + dCol);
    return std::isnan(h) ? own : h;
  };
  const double west = at(-1, -1) + 2 * at(0, -1) + at(1, -1);
  const double east = at(-1, 1) + 2 * at(0, 1) + at(1, 1);
  const double north = at(-1, -1) + 2 * at(-1, 0) + at(-1, 1);
  const double south = at(1, -1) + 2 * at(1, 0) + at(1, 1);
  return {(east - west) / (8 * cellX), (north - south) / (8 * cellY)};
}

}  // namespace

void ShadeRelief(GridView<const float> heights, double cellX, double cellY, const Light& light,
                 GridView<std::uint8_t> shades) {
  const double azimuth = light.azimuthDeg * std::numbers::pi / 180;
  const double altitude = light.altitudeDeg * std::numbers::pi / 180;
  const double lightEast = std::sin(azimuth) * std::cos(altitude);
  const double lightNorth = std::cos(azimuth) * std::cos(altitude);
  const double lightUp = std::sin(altitude);
#pragma omp parallel for schedule(static)
  for (int row = 0; row < heights.rows; ++row) {
    for (int col = 0; col < heights.cols; ++col) {
      if (std::isnan(heights.At(row, col))) {
        shades.At(row, col) = 0;
        continue;
      }
      // The normal of the surface is (-east, -north, 1), not yet of length 1.
      const Slope slope = SlopeAt(heights, row, col, cellX, cellY);
      const double facing = (lightUp - slope.east * lightEast - slope.north * lightNorth) /
                            std::sqrt(1 + slope.east * slope.east + slope.north * slope.north);
      shades.At(row, col) =
          static_cast<std::uint8_t>(TruncToInt(1.5 + 254 * std::clamp(facing, 0.0, 1.0)));
    }
  }
}

}  // namespace tqtortho::host
