// SPDX-License-Identifier: Apache-2.0
#include "rectify/valid_rect.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tqtortho {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// A tile over [-100, 100] squared with cells of 1 and height 0; a camera 50 above its middle that
/// maps ground (X, Y) to column X + 50 and row 50 - Y of a frame of 100 pixels.
class CoverageTest : public ::testing::Test {
 protected:
  CoverageTest() : heights(200 * 200, 0.0F) {
    tile = {{heights.data(), 200, 200}, -100, -100, 100, 100, 1, -1, -9999, 0};
    camera.centre = {0, 0, 50};
    camera.focal = 0.05;
    camera.pixelSize = 0.001;
    camera.width = camera.height = 100;
  }
  [[nodiscard]] GroundGrid WholeTile(double cell = 1) const {
    return GridOnTile({-100, -100, 100, 100}, tile, cell, 1).value();
  }
  std::vector<float> heights;
  SurfaceTile tile;
  PhotoCamera camera;
};

TEST_F(CoverageTest, GridHoldsTheSharedRectangleWithBothEnds) {
  const auto grid = GridOnTile({90, -40, 130, -38.5}, tile, 0.5, 3);
  ASSERT_TRUE(grid);
  EXPECT_EQ(grid->minX, 90);
  EXPECT_EQ(grid->maxX, 100);
  EXPECT_EQ(grid->cols, 21);
  EXPECT_EQ(grid->rows, 4);
  EXPECT_EQ(grid->X(3), 91.5);
  EXPECT_EQ(grid->Y(3), -40);
}

TEST_F(CoverageTest, GridIsRefused) {
  const struct {
    const char* why;
    tqfd::Rect2_T<double> footprint;
    double cell;
    int bands;
  } cases[] = {
      {"only touches the tile", {100, 0, 120, 10}, 1, 1},
      {"empty footprint", {}, 1, 1},
      {"below two columns", {0, 0, 0.9, 10}, 1, 1},
      {"below two rows", {0, 0, 10, 0.9}, 1, 1},
      {"too many bytes", {-100, -100, 100, 100}, 0.006, 2},
      {"too many cells for an int", {-100, -100, 100, 100}, 1e-12, 1},
      {"negative cell", {0, 0, 10, 10}, -1, 1},
      {"zero cell", {0, 0, 10, 10}, 0, 1},
      {"NaN cell", {0, 0, 10, 10}, kNan, 1},
      {"NaN corner", {kNan, 0, 10, 10}, 1, 1},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(GridOnTile(c.footprint, tile, c.cell, c.bands)) << c.why;
  }
  EXPECT_TRUE(GridOnTile({-100, -100, 100, 100}, tile, 0.006, 1));  // 1.1e9 cells of one band
}

// Lines come every ten cells from each side; the frame covers X in [-50, 50) and Y in (-50, 50].
TEST_F(CoverageTest, SidesMoveInwardToTheFirstLineThatSeesSomething) {
  const tqfd::Rect2_T<double> expected{-50, -40, 40, 50};
  EXPECT_EQ(CoveredRect(camera, tile, WholeTile()), expected);
  const GroundGrid odd = GridOnTile({-97, -97, 96, 96}, tile, 1, 1).value();
  const tqfd::Rect2_T<double> oddExpected{-47, -47, 46, 46};
  EXPECT_EQ(CoveredRect(camera, tile, odd), oddExpected);
}

// Kept: left takes 0 and the others the tile's own edge, whatever the grid.
TEST_F(CoverageTest, SidesThatFindNothingTakeFixedValues) {
  camera.centre = {1000, 1000, 50};
  const GroundGrid part = GridOnTile({20, 30, 60, 70}, tile, 1, 1).value();
  const tqfd::Rect2_T<double> expected{0, -100, 100, 100};
  EXPECT_EQ(CoveredRect(camera, tile, part), expected);
}

}  // namespace
}  // namespace tqtortho
