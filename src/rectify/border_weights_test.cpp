// SPDX-License-Identifier: Apache-2.0
#include "rectify/border_weights.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "stage/border_mask.h"
#include "stage/photo_files.h"
#include "testing/output_dir.h"
#include "testing/raster_file.h"

namespace tqtortho {
namespace {

class BorderWeightsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ortho_.width = 30;
    ortho_.height = 20;
    ortho_.resX = 1;
    ortho_.resY = -1;
    ortho_.geoRect[0] = 100;
    ortho_.geoRect[3] = 200;
  }

  /// A border mask of 40 x 40 cells of 2 m, first centre at (90.5, 210.5).
  static void WriteBorder(int row, int col, std::uint8_t value, std::uint8_t ground = 0) {
    std::vector<std::uint8_t> cells(1600, ground);
    cells[row * 40 + col] = value;
    ASSERT_TRUE(tqtortho::testing::WriteRaster(BorderMaskPath(), tqimage::kByte, cells.data(), 40,
                                               40, {90.5, 210.5, 2, ""}, nullptr));
  }
  static int Weight(const tqorkit::PhotoInfo& mask, double x, double y) {
    const int col = static_cast<int>(x - mask.geoRect[0]);
    const int row = static_cast<int>(mask.geoRect[3] - y);
    return mask.data[row * mask.width + col];
  }

  tqtortho::testing::OutputDir dir_;
  tqorkit::PhotoInfo ortho_;
};

TEST_F(BorderWeightsTest, NothingWithoutTallBorders) {
  EXPECT_EQ(MakeBorderWeights(ortho_).width, 0);
  WriteBorder(10, 10, 199);
  EXPECT_EQ(MakeBorderWeights(ortho_).width, 0);
  WriteBorder(39, 39, kTallBorder);  // far away
  EXPECT_EQ(MakeBorderWeights(ortho_).width, 0);
}

TEST_F(BorderWeightsTest, HighestOnTheBorderAndFallingInRings) {
  WriteBorder(10, 10, kTallBorder);  // centre (110.5, 190.5): the cells X 110, 111, Y 190, 191
  const tqorkit::PhotoInfo mask = MakeBorderWeights(ortho_);
  ASSERT_EQ(mask.width, 36);
  ASSERT_EQ(mask.height, 26);
  EXPECT_EQ(mask.geoRect[0], 97);
  EXPECT_EQ(mask.geoRect[3], 203);
  const int ring[] = {255, 191, 127, 63, 0};
  for (int y = 178; y <= 203; ++y) {
    for (int x = 97; x <= 132; ++x) {
      const int dx = std::max({110 - x, x - 111, 0});
      const int dy = std::max({190 - y, y - 191, 0});
      ASSERT_EQ(Weight(mask, x, y), ring[std::min(4, std::max(dx, dy))]) << x << " " << y;
    }
  }
}

TEST_F(BorderWeightsTest, BorderJustOutsideReachesIn) {
  WriteBorder(10, 4, kTallBorder);  // X 98, 99
  const tqorkit::PhotoInfo mask = MakeBorderWeights(ortho_);
  ASSERT_EQ(mask.width, 36);
  EXPECT_EQ(Weight(mask, 100, 190), 191);
  EXPECT_EQ(Weight(mask, 102, 190), 63);
  EXPECT_EQ(Weight(mask, 103, 190), 0);
}

TEST_F(BorderWeightsTest, LinesCountWhereTheMaskTellsThemFromGroundToBeTraced) {
  WriteBorder(10, 10, kBorderLine, kTallBorder);
  const tqorkit::PhotoInfo mask = MakeBorderWeights(ortho_);
  ASSERT_EQ(mask.width, 36);
  EXPECT_EQ(Weight(mask, 110, 190), 255);
  EXPECT_EQ(Weight(mask, 112, 190), 191);
  EXPECT_EQ(Weight(mask, 125, 185), 0);
  WriteBorder(10, 10, kTallBorder, kTallBorder);
  EXPECT_EQ(MakeBorderWeights(ortho_).width, 0) << "all ground to be traced, no border known";
}

}  // namespace
}  // namespace tqtortho
