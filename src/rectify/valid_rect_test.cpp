// SPDX-License-Identifier: Apache-2.0
#include "rectify/valid_rect.h"

#include <gtest/gtest.h>

#include <vector>

namespace tqtortho {
namespace {

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
  EXPECT_EQ(part.cols, 41) << "both ends";
  EXPECT_EQ(part.rows, 41);
  EXPECT_FALSE(GridOnTile({100, 0, 120, 10}, tile, 1, 1)) << "only touches the tile";
  EXPECT_FALSE(GridOnTile({-100, -100, 100, 100}, tile, 0.006, 2)) << "too many bytes";
  EXPECT_TRUE(GridOnTile({-100, -100, 100, 100}, tile, 0.006, 1));  // 1.1e9 cells of one band
  const tqfd::Rect2_T<double> expected{0, -100, 100, 100};
  EXPECT_EQ(CoveredRect(camera, tile, part), expected);
}

}  // namespace
}  // namespace tqtortho
