// SPDX-License-Identifier: Apache-2.0
#include "stage/border_mask.h"

#include <gtest/gtest.h>

#include <limits>

#include "stage/photo_files.h"
#include "testing/output_dir.h"
#include "testing/raster_file.h"

namespace tqtortho {
namespace {

/// A border mask of 10 x 8 cells of 2 m, first centre at (100, 200), cell value 10 * row + column.
class BorderMaskTest : public ::testing::Test {
 protected:
  static void WriteMask() {
    std::vector<std::uint8_t> cells;
    for (int i = 0; i < 80; ++i) cells.push_back(static_cast<std::uint8_t>(i));
    ASSERT_TRUE(tqtortho::testing::WriteRaster(BorderMaskPath(), tqimage::kByte, cells.data(), 10,
                                               8, {100, 200, 2, ""}, nullptr));
  }
  tqtortho::testing::OutputDir dir_;
};

TEST_F(BorderMaskTest, MissingOrBrokenFileIsNoMask) {
  EXPECT_FALSE(ReadBorderTile({100, 186, 118, 200}).has_value());
  dir_.Write("ot/bordermsk.tif", "no raster");
  EXPECT_FALSE(ReadBorderTile({100, 186, 118, 200}).has_value());
}

TEST_F(BorderMaskTest, RectangleGivesItsInclusiveCells) {
  WriteMask();
  const auto tile = ReadBorderTile({104, 192, 108, 196});
  ASSERT_TRUE(tile.has_value());
  EXPECT_EQ(tile->cols, 3);
  EXPECT_EQ(tile->rows, 3);
  EXPECT_EQ(tile->cellRect, (tqfd::Rect2_T<int>{2, 2, 4, 4}));
  EXPECT_EQ(tile->cells, (std::vector<std::uint8_t>{22, 23, 24, 32, 33, 34, 42, 43, 44}));
}

TEST_F(BorderMaskTest, OutsideReadsAsZeroAtItsTruePlace) {
  WriteMask();
  const auto tile = ReadBorderTile({98, 198, 102, 202});
  ASSERT_TRUE(tile.has_value());
  EXPECT_EQ(tile->cells, (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 1, 0, 10, 11}));
}

TEST_F(BorderMaskTest, RectanglesThatCannotBeReadAreEmptyOrRefused) {
  WriteMask();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const tqfd::Rect2_T<double>& rect :
       {tqfd::Rect2_T<double>{300, 100, 310, 120}, tqfd::Rect2_T<double>{},
        tqfd::Rect2_T<double>{nan, nan, nan, nan}, tqfd::Rect2_T<double>{-1e9, -1e9, 1e9, 1e9},
        tqfd::Rect2_T<double>{-1e300, -1e300, 1e300, 1e300}}) {
    const auto tile = ReadBorderTile(rect);
    EXPECT_TRUE(!tile || tile->cells.empty());
  }
}

}  // namespace
}  // namespace tqtortho
