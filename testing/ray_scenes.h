// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "occlusion/tqDSM.h"

namespace tqtortho::testing {

/// A surface, a camera in its local frame and an optional mask of cells to examine.
struct RayCase {
  tqDSM dsm;
  Point3 camera;
  std::vector<std::uint8_t> examine;  ///< empty: all
};

/// Sizes, cell sizes, extremes and box of a surface whose heights are set, as the loaders set them.
inline void SetGrid(tqDSM& dsm, int rows, int cols, float cellSizeX, float cellSizeY) {
  dsm.rows = rows;
  dsm.cols = cols;
  dsm.cellSizeX = cellSizeX;
  dsm.cellSizeY = cellSizeY;
  float low = 1e6f;
  float high = -1e6f;
  for (const float h : dsm.heights) {
    if (!IsValidHeight(h, dsm.noData)) continue;
    low = std::min(low, h);
    high = std::max(high, h);
  }
  const float width = static_cast<float>(cols - 1) * cellSizeX;
  const float depth = static_cast<float>(rows - 1) * -cellSizeY;
  dsm.maxX = static_cast<double>(width);
  dsm.maxY = static_cast<double>(depth);
  dsm.minZ = static_cast<double>(low);
  dsm.maxZ = static_cast<double>(high);
}

/// A flat surface at height 0 with square cells; nothing but its size.
inline tqDSM FlatSurface(int rows, int cols, float cellSize) {
  tqDSM dsm;
  dsm.noData = -9999;
  dsm.heights.assign(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 0.0f);
  SetGrid(dsm, rows, cols, cellSize, -cellSize);
  return dsm;
}

/// Rolling ground with box houses and towers, as a survey of a town sees it.
inline tqDSM TownSurface(int rows, int cols, float cellSize, unsigned seed) {
  tqDSM dsm = FlatSurface(rows, cols, cellSize);
  std::mt19937 random(seed);
  const auto between = [&](double a, double b) {
    return std::uniform_real_distribution<double>(a, b)(random);
  };
  const double size = static_cast<double>(cellSize);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      dsm.heights[static_cast<std::size_t>(r) * cols + c] = static_cast<float>(
          2 * std::sin(r * size * 0.04) + 1.5 * std::cos(c * size * 0.052) + between(0, 0.05));
    }
  }
  const int houses = std::max(1, static_cast<int>(rows * size * cols * size / (35.0 * 35.0)));
  for (int house = 0; house < houses; ++house) {
    const int r0 = static_cast<int>(between(0, rows));
    const int c0 = static_cast<int>(between(0, cols));
    const int r1 = std::min(rows, r0 + static_cast<int>(between(8, 30) / size) + 1);
    const int c1 = std::min(cols, c0 + static_cast<int>(between(8, 30) / size) + 1);
    const double height = between(0, 1) < 0.9 ? between(3, 20) : between(20, 45);
    for (int r = r0; r < r1; ++r) {
      std::fill(dsm.heights.begin() + static_cast<std::ptrdiff_t>(r) * cols + c0,
                dsm.heights.begin() + static_cast<std::ptrdiff_t>(r) * cols + c1,
                static_cast<float>(height));
    }
  }
  SetGrid(dsm, rows, cols, cellSize, -cellSize);
  return dsm;
}

/// Draws whole numbers below a limit; the seam between a random engine and a fuzzer's bytes.
using Draw = std::function<unsigned(unsigned limit)>;

inline double DrawBetween(double low, double high, const Draw& draw) {
  return low + (high - low) * draw(1u << 16) / 65536.0;
}

/// Over the surface mostly, else on one of the places that AwkwardCase names.
/// @param ground, relief  the surface's lowest regular height, and how far it rises from there
inline void PlaceAwkwardCamera(RayCase& result, double size, double ground, double relief,
                               const Draw& draw) {
  const auto real = [&](double low, double high) { return DrawBetween(low, high, draw); };
  const tqDSM& dsm = result.dsm;
  const double spanX = std::max(dsm.maxX, size);
  const double spanY = std::max(dsm.maxY, size);
  Point3& camera = result.camera;
  camera = {real(0, spanX), real(0, spanY), ground + relief * real(1.01, 4)};
  switch (draw(8)) {
    case 0:
      camera.x = spanX * real(-1, 2);
      break;
    case 1:
      camera.y = spanY * real(-1, 2);
      break;
    case 2:
      camera = {spanX * real(-3, 4), spanY * real(-3, 4), camera.z};
      break;
    case 3:
      camera.z = ground + relief * real(-0.5, 1);
      break;
    case 4:
      camera.x = static_cast<double>(draw(static_cast<unsigned>(dsm.cols))) *
                 static_cast<double>(dsm.cellSizeX);
      if (draw(2) == 0) {
        camera.y = -static_cast<double>(draw(static_cast<unsigned>(dsm.rows))) *
                   static_cast<double>(dsm.cellSizeY);
      }
      if (draw(2) == 0) camera.z = ground;
      break;
    case 5:
      camera.z = draw(2) == 0 ? 1e6 * size : ground + relief * real(-20, 20);
      break;
    default:
      break;
  }
}

/// Surfaces and cameras made to be awkward: walls, holes with high and low no-data, ties, slender
/// grids with deep trees, tiny and huge and oblong cells, boxes that do not fit their grid, cameras
/// on lattice points, on the ground, under roofs, outside and far away.
inline RayCase AwkwardCase(const Draw& draw) {
  RayCase result;
  tqDSM& dsm = result.dsm;
  const auto real = [&](double low, double high) { return DrawBetween(low, high, draw); };
  static constexpr float kCells[] = {0.25f, 0.1f, 0.2f, 0.5f, 1.0f, 0.05f, 0.013f, 3.7f, 1000.0f};
  static constexpr float kOblong[] = {1, 1, 1, 1, 1, 0.5f, 2, 7, 0.1f, 40};
  int rows = 1 + static_cast<int>(draw(24));
  int cols = 1 + static_cast<int>(draw(24));
  switch (draw(6)) {  // the tree divides beyond 100 cells only
    case 0:
      cols = 101 + static_cast<int>(draw(140));
      break;
    case 1:
      rows = 101 + static_cast<int>(draw(140));
      break;
    case 2:
      rows = 20 + static_cast<int>(draw(60));
      cols = 105 + static_cast<int>(draw(20));
      break;
    default:
      break;
  }
  const float cellX = kCells[draw(9)];
  const float cellY = -cellX * kOblong[draw(10)];
  const double size = static_cast<double>(cellX);
  static constexpr float kNoData[] = {-9999, 0, 500, -3};
  dsm.noData = kNoData[draw(4)];
  const bool ties = draw(2) == 0;  // whole multiples of the cell size
  const double relief = size * (draw(3) == 0 ? 40 : 6);
  dsm.heights.assign(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 0.0f);
  const unsigned kind = draw(4);
  const double ground = draw(3) == 0 ? -relief : 0;
  for (float& h : dsm.heights) {
    double z = ground;
    if (kind == 1) z += real(0, relief);
    if (kind >= 2) z += real(0, 0.2 * size);
    h = static_cast<float>(ties ? std::floor(z / size) * size : z);
  }
  if (kind >= 2 || draw(2) == 0) {
    for (unsigned walls = 1 + draw(5); walls > 0; --walls) {
      const int r0 = static_cast<int>(draw(static_cast<unsigned>(rows)));
      const int c0 = static_cast<int>(draw(static_cast<unsigned>(cols)));
      const int r1 = std::min(rows, r0 + 1 + static_cast<int>(draw(9)));
      const int c1 = std::min(cols, c0 + 1 + static_cast<int>(draw(9)));
      const float top =
          draw(5) == 0 ? dsm.noData
                       : static_cast<float>(ground + std::floor(real(0, relief) / size) * size);
      for (int r = r0; r < r1; ++r) {
        for (int c = c0; c < c1; ++c) dsm.heights[static_cast<std::size_t>(r) * cols + c] = top;
      }
    }
  }
  if (draw(12) == 0) {
    static constexpr float kOdd[] = {-HUGE_VALF, HUGE_VALF, 1e30f, -1e30f,
                                     std::numeric_limits<float>::quiet_NaN()};
    const float odd = kOdd[draw(5)];
    for (unsigned cells = 1 + draw(6); cells > 0; --cells) {
      dsm.heights[draw(static_cast<unsigned>(dsm.heights.size()))] = odd;
    }
  }
  SetGrid(dsm, rows, cols, cellX, cellY);
  if (draw(8) == 0) dsm.Rescale(draw(2) == 0 ? 0.25f : 0.6f);

  PlaceAwkwardCamera(result, size, ground, relief, draw);
  if (draw(4) == 0) {
    result.examine.resize(dsm.heights.size());
    for (std::uint8_t& byte : result.examine) byte = draw(3) == 0 ? 255 : 0;
  }
  return result;
}

}  // namespace tqtortho::testing
