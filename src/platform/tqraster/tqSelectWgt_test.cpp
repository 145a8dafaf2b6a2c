// SPDX-License-Identifier: Apache-2.0
#include "tqraster/tqSelectWgt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "testing/photo_records.h"
#include "tqraster/tqRasterTorMsk.h"

namespace TqRaster {
namespace {

using tqtortho::testing::PhotoAt;

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

double Ramp(double distance) {
  const double part = std::min(distance / tqSelectWgt::kReach, 1.0);
  return 0.5 * (1 - std::cos(3.14159265358979 * part));
}

// Cells of 0.5 units around the origin of the ground.
void PlaceAroundOrigin(tqorkit::PhotoInfo& mask) {
  mask.resX = 0.5;
  mask.resY = -0.5;
  mask.geoRect[0] = -0.25 * (mask.width - 1);
  mask.geoRect[1] = -0.25 * (mask.height - 1);
  mask.geoRect[2] = -mask.geoRect[0];
  mask.geoRect[3] = -mask.geoRect[1];
}

TEST(TqSelectWgtTest, WeightsFollowTheDistanceToHiddenCellsAndBorder) {
  tqorkit::PhotoInfo mask = Mask(140, 70);
  for (const int cell : {7 * 140 + 9, 7 * 140 + 10, 40 * 140 + 83}) {
    mask.data[static_cast<std::size_t>(cell)] = 200;
  }
  tqorkit::tqExtOri photo;
  tqSelectWgt weights;
  tqSelectWgt::GenerateDisLookUpTab();
  for (const int least : {0, 30}) {
    tqorkit::PhotoInfo out;
    ASSERT_TRUE(weights.CombinedWeight(photo, mask, out, 2, least));  // not placed: no nadir
    ASSERT_EQ(out.width, 140);
    ASSERT_EQ(out.height, 70);
    for (int row = 0; row < 70; ++row) {
      for (int col = 0; col < 140; ++col) {
        const std::size_t cell = static_cast<std::size_t>(row * 140 + col);
        const double truth = 255 * Ramp(TrueDistance(mask, row, col));
        if (mask.data[cell] != 0) {
          ASSERT_EQ(out.data[cell], 0);
        } else {
          // Half a table step (1/16 cell) of at most 6.3 weights per cell, and the rounding.
          ASSERT_NEAR(out.data[cell], std::max(truth, std::max(1.0, double(least))), 0.95)
              << row << " " << col;
        }
      }
    }
  }
}

TEST(TqSelectWgtTest, WeightsFallWithTheNadirAngleAsTheirPowerSays) {
  tqorkit::PhotoInfo mask = Mask(301, 201);
  PlaceAroundOrigin(mask);
  mask.defaultZ = 300;
  for (const int power : {0, 1, 2, 3}) {
    tqorkit::tqExtOri photo = PhotoAt(0, 0, 340);
    tqorkit::PhotoInfo out;
    ASSERT_TRUE(tqSelectWgt().CombinedWeight(photo, mask, out, power, 0));
    EXPECT_EQ(out.data[100 * 301 + 150], 255) << "the nadir";
    for (const int col : {70, 100, 150, 200, 230}) {
      const double cosine = 40 / std::hypot(40, 0.5 * (col - 150));
      EXPECT_NEAR(out.data[static_cast<std::size_t>(100 * 301 + col)],
                  255 * std::pow(cosine, power), 0.51)
          << power << " " << col;
    }
    for (int row = 0; row < 201; ++row) {  // nothing prefers a side
      for (int col = 0; col < 301; ++col) {
        const int weight = out.data[static_cast<std::size_t>(row * 301 + col)];
        ASSERT_EQ(weight, out.data[static_cast<std::size_t>((200 - row) * 301 + col)]);
        ASSERT_EQ(weight, out.data[static_cast<std::size_t>(row * 301 + 300 - col)]);
      }
    }
  }
  // Seen from elsewhere the best cell is the one below, and the south is where Y is small.
  tqorkit::tqExtOri photo = PhotoAt(10, -15, 340);
  tqorkit::PhotoInfo out;
  ASSERT_TRUE(tqSelectWgt().CombinedWeight(photo, mask, out, 2, 0));
  const auto best = std::max_element(out.data.begin(), out.data.end()) - out.data.begin();
  EXPECT_NEAR(static_cast<double>(best % 301), 170, 6);
  EXPECT_NEAR(static_cast<double>(best / 301), 130, 6);
}

TEST(TqSelectWgtTest, GroundThatCannotBeBelowLeavesDistancesAlone) {
  tqorkit::PhotoInfo mask = Mask(60, 60);
  tqorkit::tqExtOri photo = PhotoAt(0, 0, 340);
  tqorkit::PhotoInfo plain;
  ASSERT_TRUE(tqSelectWgt().CombinedWeight(photo, mask, plain, 0, 0));
  PlaceAroundOrigin(mask);
  for (const double ground : {340.0, 500.0, std::nan(""), -HUGE_VAL, HUGE_VAL, -1e200}) {
    mask.defaultZ = ground;
    tqorkit::PhotoInfo out;
    ASSERT_TRUE(tqSelectWgt().CombinedWeight(photo, mask, out, 2, 0));
    EXPECT_EQ(out.data, plain.data) << ground;
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
  EXPECT_FALSE(weights.CombinedWeight(photo, good, out, -1, 0));
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
