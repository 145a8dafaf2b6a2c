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

// Rings of 255, 191, 127 and 63 around border cells, wherever they lie to the ortho.
TEST_F(BorderWeightsTest, HighestOnTheBorderAndFallingInRings) {
  struct Case {
    const char* what;
    int row, col;
    std::uint8_t value, ground;
    bool any;
  };
  for (const Case& c :
       {Case{"tall border", 10, 14, kTallBorder, 0, true},
        Case{"just outside, reaching in", 12, 4, kTallBorder, 0, true},
        Case{"a line among ground to be traced", 7, 17, kBorderLine, kTallBorder, true},
        Case{"all ground to be traced", 10, 10, kTallBorder, kTallBorder, false},
        Case{"another value", 10, 10, 199, 0, false},
        Case{"far away", 39, 39, kTallBorder, 0, false}}) {
    SCOPED_TRACE(c.what);
    WriteBorder(c.row, c.col, c.value, c.ground);
    const tqorkit::PhotoInfo mask = MakeBorderWeights(ortho_);
    ASSERT_EQ(mask.width, c.any ? 36 : 0);
    if (!c.any) continue;
    ASSERT_EQ(mask.height, 26);
    EXPECT_EQ(mask.geoRect[0], 97);
    EXPECT_EQ(mask.geoRect[3], 203);
    const int west = 90 + 2 * c.col, south = 210 - 2 * c.row;  // of the border cell, 2 x 2 units
    const int ring[] = {255, 191, 127, 63, 0};
    for (int y = 178; y <= 203; ++y) {
      for (int x = 97; x <= 132; ++x) {
        const int dx = std::max({west - x, x - west - 1, 0});
        const int dy = std::max({south - y, y - south - 1, 0});
        ASSERT_EQ(Weight(mask, x, y), ring[std::min(4, std::max(dx, dy))]) << x << " " << y;
      }
    }
  }
}

}  // namespace
}  // namespace tqtortho
