// SPDX-License-Identifier: Apache-2.0
#include "mosaic/view_rating.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace tqtortho {
namespace {

constexpr int kSide = 81;

/// A camera 100 units above the middle cell of a level raster of one-unit cells, looking down; a
/// pixel shows half a unit there.
struct Scene {
  PhotoCamera camera;
  VisibilityLattice lattice{0, 0, 1, kSide, kSide};
  std::vector<float> heights = std::vector<float>(kSide * kSide, 0.0F);
  std::vector<std::uint8_t> rating = std::vector<std::uint8_t>(kSide * kSide, 0);
  ViewRatingOptions options;

  Scene() {
    camera.centre = {40, -40, 100};
    camera.focal = 0.2;
    camera.pixelSize = 0.001;
    camera.width = camera.height = 400;
    options.cellSize = 1;
    options.frameMargin = 0.5;
    options.hiddenMargin = 4;
  }
  void Rate() {
    RateView(camera, lattice, {heights.data(), kSide, kSide}, options,
             {rating.data(), kSide, kSide});
  }
  int At(int row, int col) const { return rating[static_cast<std::size_t>(row) * kSide + col]; }
};

TEST(RateViewTest, TheRatingIsTheNadirAngle) {
  Scene scene;
  scene.Rate();
  EXPECT_EQ(scene.At(40, 40), 0);
  for (const int col : {10, 45, 70, 79}) {
    const double degrees = std::atan(std::fabs(col - 40.0) / 100) * 57.29577951308232;
    EXPECT_NEAR(scene.At(40, col), degrees * kRatingsPerDegree, 1.2) << col;
  }
  // A roof comes nearer to the camera, so the same place is seen at a larger angle.
  Scene roof;
  roof.heights.assign(roof.heights.size(), 50.0F);
  roof.Rate();
  EXPECT_NEAR(roof.At(40, 70), std::atan(30.0 / 50) * 57.29577951308232 * kRatingsPerDegree, 1.2);
}

TEST(RateViewTest, BordersOfWhatIsSeenAreWorse) {
  Scene plain;
  plain.Rate();
  Scene scene;
  scene.rating[40 * kSide + 60] = kHiddenView;
  scene.options.frameMargin = 10;
  scene.Rate();
  EXPECT_EQ(scene.At(40, 60), kHiddenView);
  EXPECT_NEAR(scene.At(40, 61) - plain.At(40, 61), 45, 2);  // one of four cells away
  EXPECT_EQ(scene.At(40, 65), plain.At(40, 65));
  EXPECT_NEAR(scene.At(40, 0) - plain.At(40, 0), 45, 2);  // one of ten cells from the raster's end
  EXPECT_EQ(scene.At(40, 12), plain.At(40, 12));
}

TEST(RateViewTest, UnknownHeightsAndCellsAboveTheCameraAreSeenBadlyButSeen) {
  Scene scene;
  scene.heights[40 * kSide + 50] = std::numeric_limits<float>::quiet_NaN();
  scene.heights[40 * kSide + 51] = 200;
  scene.Rate();
  for (const int col : {50, 51}) {
    EXPECT_TRUE(IsSeen(static_cast<std::uint8_t>(scene.At(40, col))));
    EXPECT_GT(scene.At(40, col), 200);
  }
}

}  // namespace
}  // namespace tqtortho
