// SPDX-License-Identifier: Apache-2.0
#include "rectify/dsm_tile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

using Rect = tqfd::Rect2_T<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

/// A surface of 10 x 8 cells of 2 m, first centre at (100, 200), heights 10 * row + column + 1.
class DsmTileTest : public ::testing::Test {
 protected:
  void Write(const double* noData, const std::vector<std::pair<int, float>>& holes = {}) {
    std::vector<float> heights(80);
    for (int i = 0; i < 80; ++i) heights[i] = static_cast<float>(i + 1);
    for (const auto& [cell, height] : holes) heights[cell] = height;
    ASSERT_TRUE(tqtortho::testing::WriteRaster(path_, tqimage::kFloat32, heights.data(), 10, 8,
                                               {100, 200, 2, ""}, noData));
  }
  static float Height(const DsmTile& tile, int row, int col) {
    return reinterpret_cast<const float*>(tile.record.data.data())[row * tile.record.width + col];
  }

  tqtortho::testing::TempDir dir_;
  std::string path_ = dir_.File("dsm.tif");
};

// Each tile against the surface itself: its cells, its place, and what they say in sum.
TEST_F(DsmTileTest, TilesAreWindowsOfTheSurfaceWithNoDataAround) {
  const double noData = -50;
  Write(&noData, {{23, -50.0F}});
  struct Case {
    Rect rect;
    int row, col, rows, cols;  // trunc(extent / 2 + 1)
  };
  for (const Case& c :
       {Case{{104, 193.001, 110, 198}, 1, 2, 3, 4}, Case{{94, 180, 104, 204}, -2, -3, 13, 6},
        Case{{113.9, 185.9, 125, 192}, 4, 7, 4, 6}}) {
    const auto tile = ReadDsmTile(path_, c.rect);
    ASSERT_TRUE(tile.has_value());
    const auto& r = tile->record;
    ASSERT_EQ(r.width, c.cols);
    ASSERT_EQ(r.height, c.rows);
    EXPECT_EQ((std::vector<double>{r.geoRect[0], r.geoRect[1], r.geoRect[2], r.geoRect[3]}),
              (std::vector<double>{c.rect.minX, c.rect.maxY - 2 * c.rows, c.rect.minX + 2 * c.cols,
                                   c.rect.maxY}));
    int count = 0;
    double sum = 0, least = 1e10;
    for (int row = 0; row < c.rows; ++row) {
      for (int col = 0; col < c.cols; ++col) {
        const int i = c.row + row, j = c.col + col;
        const bool there = i >= 0 && i < 8 && j >= 0 && j < 10 && i * 10 + j != 23;
        ASSERT_EQ(Height(*tile, row, col), there ? i * 10 + j + 1 : -50) << row << " " << col;
        if (!there) continue;
        ++count;
        sum += i * 10 + j + 1;
        least = std::min(least, i * 10.0 + j + 1);
      }
    }
    EXPECT_EQ(r.noData, -50);
    EXPECT_EQ(tile->statistics.count, count);
    EXPECT_EQ(tile->statistics.sum, sum);
    EXPECT_EQ(tile->statistics.minimum, least);
  }
}

TEST_F(DsmTileTest, TilesThatCannotBeReadAreRefused) {
  const double noData = -9999;
  EXPECT_FALSE(ReadDsmTile(path_, {104, 193, 110, 198}).has_value()) << "missing file";
  Write(&noData);
  for (const Rect& rect : {Rect{130, 190, 140, 200}, Rect{100, 150, 118, 170},
                           Rect{0, 190, 50, 200}, Rect{100, 300, 118, 320}, Rect{},
                           Rect{kNaN, kNaN, kNaN, kNaN}, Rect{-kInf, -kInf, kInf, kInf},
                           Rect{-1e12, -1e12, 1e12, 1e12}, Rect{-1e300, 0, 1e300, 1}}) {
    EXPECT_FALSE(ReadDsmTile(path_, rect).has_value()) << rect.minX << " " << rect.minY;
  }
}

TEST_F(DsmTileTest, CellsWithoutHeightNeverCountInTheStatistics) {
  struct Case {
    const char* what;
    const double* fileNoData;
    float hole;
    double noData;
  };
  const double named = -32767, unusable = -3.4028234663852886e38, zero = 0;
  for (const Case& c :
       {Case{"named value", &named, -32767.0F, -32767}, Case{"NaN", &named, NAN, -32767},
        Case{"unusable value", &unusable, -3.4028234663852886e38F, -9999},
        Case{"no value, NaN", nullptr, NAN, 0}, Case{"zero", &zero, 0.0F, 0}}) {
    Write(c.fileNoData, {{0, c.hole}});
    const auto tile = ReadDsmTile(path_, {98, 186, 118, 200});  // one column outside
    ASSERT_TRUE(tile.has_value()) << c.what;
    EXPECT_EQ(tile->record.noData, c.noData) << c.what;
    EXPECT_EQ(tile->statistics.count, 79) << c.what;
    EXPECT_EQ(tile->statistics.minimum, 2) << c.what;
  }
}

}  // namespace
}  // namespace tqtortho
