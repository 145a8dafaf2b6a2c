// SPDX-License-Identifier: Apache-2.0
#include "occlusion/leaf_march.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "occlusion/ray_kernel.h"
#include "occlusion/ray_kernel_reference.h"
#include "testing/ray_scenes.h"

namespace tqtortho {
namespace {

using testing::FlatSurface;
using testing::SetGrid;

/// The answer for one cell; the fast way, the plain way and the twin must agree.
int HiddenAt(const tqDSM& dsm, const Point3& camera, int row, int col) {
  const int twin = reference::Tracer(dsm.Surface(), camera).Trace(row, col);
  for (const char* kernel : {"", "scalar"}) {
    ::setenv("TQTORTHO_KERNEL", kernel, 1);
    std::vector<std::uint8_t> mask(dsm.heights.size());
    MarkHiddenCells(dsm.Surface(), camera, {},
                    GridView<std::uint8_t>(mask.data(), dsm.rows, dsm.cols));
    EXPECT_EQ(mask[static_cast<std::size_t>(row) * dsm.cols + col], twin) << kernel;
  }
  ::unsetenv("TQTORTHO_KERNEL");
  return twin;
}

// A ray along the top row that climbs 3 on 5: every fifth step lies on a cell's border, up to the
// rounding of the additions. A one-cell wall just high enough for that step tells on which side.
TEST(LeafMarchTest, PositionsAreAccumulatedNotMultiplied) {
  constexpr int kCols = 101;
  const double stepX = 800.0 / 1000.0;
  const double stepZ = 600.0 / 1000.0;
  const auto meetsWall = [&](int wall, double height, bool accumulated) {
    double x = 0;
    double z = 0;
    for (int n = 1; n < 130; ++n) {
      x = accumulated ? x + stepX : n * stepX;
      z = accumulated ? z + stepZ : n * stepZ;
      if (static_cast<int>(x) == wall && height > z) return true;
    }
    return false;
  };
  int different = 0;
  for (int wall = 4; wall < kCols - 1; wall += 4) {
    const float height = static_cast<float>((wall / 4 * 5 + 0.5) * stepZ);
    const double top = static_cast<double>(height);
    tqDSM dsm = FlatSurface(2, kCols, 1);
    dsm.heights[wall] = height;
    SetGrid(dsm, 2, kCols, 1, -1);
    EXPECT_EQ(HiddenAt(dsm, {800, 1, 600}, 0, 0), meetsWall(wall, top, true) ? 255 : 0) << wall;
    different += meetsWall(wall, top, true) != meetsWall(wall, top, false) ? 1 : 0;
  }
  EXPECT_GT(different, 0) << "the case would not tell the two apart";
}

// Rays along the axes keep one coordinate exactly on the exit's. Where the comparison is strict the
// march goes on to the wall three cells ahead; where it is not, it ends after one step.
TEST(LeafMarchTest, ExitComparisonsAreStrictOrNotAsTheTableSays) {
  constexpr int kSize = 21;
  const double end = kSize - 1;
  const struct {
    const char* name;
    Point3 camera;
    int row, col, wallRow, wallCol;
    bool hidden;
  } cases[] = {
      {"camera upper right, up: x > exit is strict", {end, 90, 0}, 20, 20, 17, 20, true},
      {"camera upper right, right: y > exit is strict", {90, end, 0}, 0, 5, 0, 8, true},
      {"camera lower right, down: x > exit is strict", {end, -90, 0}, 5, 20, 8, 20, true},
      {"camera lower right, right: exit >= y ends", {90, 10, 0}, 10, 5, 10, 8, false},
      {"camera lower left, down: exit >= x ends", {10, -90, 0}, 5, 10, 8, 10, false},
      {"camera lower left, left: exit >= y ends", {-90, 10, 0}, 10, 15, 10, 12, false},
      {"camera upper left, up: exit >= x ends", {10, 90, 0}, 15, 10, 12, 10, false},
      {"camera upper left, left: y > exit is strict", {-90, end, 0}, 0, 15, 0, 12, true},
      {"a wall in the first step blocks even when it ends", {-90, 10, 0}, 10, 15, 10, 14, true},
  };
  for (const auto& c : cases) {
    tqDSM dsm = FlatSurface(kSize, kSize, 1);
    dsm.heights[static_cast<std::size_t>(c.wallRow) * kSize + c.wallCol] = 9;
    SetGrid(dsm, kSize, kSize, 1, -1);
    EXPECT_EQ(HiddenAt(dsm, c.camera, c.row, c.col), c.hidden ? 255 : 0) << c.name;
  }
}

}  // namespace
}  // namespace tqtortho
