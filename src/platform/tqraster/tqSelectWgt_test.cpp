// SPDX-License-Identifier: Apache-2.0
#include "tqraster/tqSelectWgt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tqraster/tqRasterTorMsk.h"

namespace TqRaster {
namespace {

tqorkit::PhotoInfo Mask(int width, int height) {
  tqorkit::PhotoInfo mask;
  mask.width = width;
  mask.height = height;
  mask.bands = 1;
  mask.data.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
  return mask;
}

// Distances by looking at every hidden cell and at the ring around the raster.
double TrueDistance(const tqorkit::PhotoInfo& mask, int row, int col) {
  double best = std::min({row + 1, col + 1, mask.height - row, mask.width - col});
  for (int r = 0; r < mask.height; ++r) {
    for (int c = 0; c < mask.width; ++c) {
      if (mask.data[static_cast<std::size_t>(r * mask.width + c)] == 0) continue;
      best = std::min(best, std::hypot(r - row, c - col));
    }
  }
  return best;
}

TEST(TqSelectWgtTest, WeightsFollowTheDistanceToHiddenCellsAndBorder) {
  tqorkit::PhotoInfo mask = Mask(40, 30);
  for (const int cell : {7 * 40 + 9, 7 * 40 + 10, 20 * 40 + 33}) {
    mask.data[static_cast<std::size_t>(cell)] = 200;
  }
  tqorkit::tqExtOri photo;
  tqSelectWgt weights;
  tqSelectWgt::GenerateDisLookUpTab();
  tqorkit::PhotoInfo out;
  ASSERT_TRUE(weights.CombinedWeight(photo, mask, out, 8, 1));
  ASSERT_EQ(out.width, 40);
  ASSERT_EQ(out.height, 30);
  for (int row = 0; row < 30; ++row) {
    for (int col = 0; col < 40; ++col) {
      const double part = std::min(TrueDistance(mask, row, col) * 8 / tqSelectWgt::kReach, 1.0);
      const double truth = 127.5 * (1 - std::cos(3.14159265358979 * part));
      const int weight = out.data[static_cast<std::size_t>(row * 40 + col)];
      const bool hidden = mask.data[static_cast<std::size_t>(row * 40 + col)] != 0;
      if (hidden) {
        EXPECT_EQ(weight, 0);
      } else {
        EXPECT_NEAR(weight, std::max(truth, 1.0), 1.0) << row << " " << col;
      }
    }
  }
}

TEST(TqSelectWgtTest, RefusesWhatIsNoMask) {
  tqorkit::tqExtOri photo;
  tqSelectWgt weights;
  tqorkit::PhotoInfo out = Mask(3, 3);
  tqorkit::PhotoInfo threeBands = Mask(3, 3);
  threeBands.bands = 3;
  tqorkit::PhotoInfo shortData = Mask(3, 3);
  shortData.data.pop_back();
  tqorkit::PhotoInfo empty;
  for (tqorkit::PhotoInfo* bad : {&threeBands, &shortData, &empty}) {
    EXPECT_FALSE(weights.CombinedWeight(photo, *bad, out, 2, 0));
  }
  tqorkit::PhotoInfo good = Mask(3, 3);
  EXPECT_FALSE(weights.CombinedWeight(photo, good, out, 0, 0));
  EXPECT_EQ(out.data, std::vector<std::uint8_t>(9, 0));
}

TEST(TqRasterTorMskTest, WithoutAMakerTheStageSucceedsInSilence) {
  std::vector<tqorkit::tqPhotoCategory> blocks;
  tqRasterTorMsk masks;
  EXPECT_TRUE(masks.DoMosaicMskByBlock(
      blocks,
      [](double, const char*, void*) {
        std::abort();
        return 0;
      },
      nullptr));
}

}  // namespace
}  // namespace TqRaster
