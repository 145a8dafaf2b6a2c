// SPDX-License-Identifier: Apache-2.0
#include "rectify/samplers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tqtortho {
namespace {

using ::testing::ElementsAre;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// A tile over `heights`, 5 x 5 by default, with 10 * row + column in every cell.
class SurfaceTest : public ::testing::Test {
 protected:
  SurfaceTest() : heights(25) {
    for (int i = 0; i < 25; ++i) heights[i] = static_cast<float>(10 * (i / 5) + i % 5);
    tile.heights = {heights.data(), 5, 5};
    tile.noData = -9999;
  }
  std::vector<float> heights;
  SurfaceTile tile;
};

TEST_F(SurfaceTest, BlendsInsideTakesTheNearestOnTheRimAndNothingOutside) {
  const struct {
    double column, row, expected;
  } cases[] = {
      {2.0, 2.0, 22},       {2.25, 2.5, 27.25},  // the surface is a plane
      {1.0, 2.5, 31},                            // column - 1 is not above 0: nearest, rows rounded
      {1.001, 2.5, 26.001}, {0.4, 2.0, 20},       {0.6, 2.0, 21},     {2.5, 1.0, 13},
      {2.5, 0.2, 3},        {3.999, 2.0, 23.999}, {4.0, 2.0, 24},  // column + 1 is not below 5
      {4.49, 2.0, 24},      {4.5, 2.0, -9999},    {2.0, 4.49, 42},    {2.0, 4.5, -9999},
      {-1e-9, 2.0, -9999},  {2.0, -0.3, -9999},   {kNan, 2.0, -9999}, {2.0, kNan, -9999},
      {1e300, 2.0, -9999},
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(SurfaceBilinear(tile, c.column, c.row), c.expected, 1e-9)
        << c.column << ' ' << c.row;
  }
}

// Kept: the filled-in value is (sum of all four) / (valid ones), missing values included.
TEST_F(SurfaceTest, OneMissingHeightIsFilledFromTheSumOfAllFour) {
  heights[3 * 5 + 3] = -9999;
  const double fill = (22.0 + 23 + 32 - 9999) / 3;
  EXPECT_DOUBLE_EQ(SurfaceBilinear(tile, 2.5, 2.5), (22 + 23 + 32 + fill) / 4);
  heights[3 * 5 + 2] = -9999;
  EXPECT_EQ(SurfaceBilinear(tile, 2.5, 2.5), -9999);
}

TEST_F(SurfaceTest, HeightsWithinAThousandthOfNoDataAreMissing) {
  tile.noData = 0;
  heights[3 * 5 + 3] = 0.0009F;
  heights[3 * 5 + 2] = 0.0011F;
  const double v = 0.0011F;
  const double fill = (22 + 23 + v + 0.0009F) / 3;
  EXPECT_DOUBLE_EQ(SurfaceBilinear(tile, 2.5, 2.5), (22 + 23 + v + fill) / 4);
  EXPECT_FALSE(tile.HasHeightAt(3.9, 3.9));
  EXPECT_TRUE(tile.HasHeightAt(2.9, 3.9));
}

// An index between -1 and 0 truncates to the first cell, which exists; the sample there does not.
TEST_F(SurfaceTest, TruncatedIndexJustBelowZeroIsTheFirstCell) {
  EXPECT_TRUE(tile.HasHeightAt(-0.5, 2));
  EXPECT_EQ(SurfaceBilinear(tile, -0.5, 2), -9999);
  EXPECT_FALSE(tile.HasHeightAt(-1, 2));
  EXPECT_FALSE(tile.HasHeightAt(5, 2));
  EXPECT_FALSE(tile.HasHeightAt(kNan, 2));
}

std::vector<int> Sample(const std::vector<std::uint8_t>& pixels, int cols, int bands,
                        Resampling method, double column, double row) {
  const int rows = static_cast<int>(pixels.size()) / (cols * bands);
  std::vector<std::uint8_t> out(bands, 77);
  SamplePhoto({pixels.data(), cols, rows, bands}, method, column, row, out.data());
  return {out.begin(), out.end()};
}

TEST(PhotoSamplerTest, NearestCopiesAllBandsAndGivesOneOutside) {
  // clang-format off
  const std::vector<std::uint8_t> pixels = {10, 11,  20, 21,
                                            30, 31,  40, 41};
  // clang-format on
  const auto at = [&](double column, double row) {
    return Sample(pixels, 2, 2, Resampling::kNearest, column, row);
  };
  EXPECT_THAT(at(0, 0), ElementsAre(10, 11));
  EXPECT_THAT(at(0.5, 0), ElementsAre(20, 21));
  EXPECT_THAT(at(1.49, 1.49), ElementsAre(40, 41));
  EXPECT_THAT(at(1.5, 0), ElementsAre(1, 1));
  EXPECT_THAT(at(-0.1, 0), ElementsAre(1, 1));
  EXPECT_THAT(at(0, kNan), ElementsAre(1, 1));
}

TEST(PhotoSamplerTest, BlendTruncatesAndHandlesInvalidValuesBandByBand) {
  // Two bands; the block at (2, 2) of a 5 x 5 photo is set per case, second band all 100.
  const struct {
    int values[4];
    double fx, fy;
    int expected;
  } cases[] = {
      {{10, 20, 30, 40}, 0.5, 0.5, 25},
      {{10, 20, 30, 40}, 0.99, 0, 19},  // 19.9 truncates
      {{255, 255, 255, 255}, 0.3, 0.7, 255},
      {{1, 20, 30, 40}, 0, 0, 30},    // (1 + 20 + 30 + 40) / 3 = 30.33
      {{20, 1, 30, 40}, 0.5, 0, 25},  // blend of 20 and 30
      {{1, 1, 30, 40}, 0.5, 0.5, 1},
      {{1, 1, 1, 1}, 0.5, 0.5, 1},
      {{0, 0, 0, 1}, 1 - 1e-9, 1 - 1e-9, 0},  // 1 / 3 truncates to 0
      {{0, 2, 0, 2}, 0.6, 0, 1},
  };
  for (const auto& c : cases) {
    std::vector<std::uint8_t> pixels(5 * 5 * 2, 100);
    for (int i = 0; i < 4; ++i) {
      pixels[((2 + i / 2) * 5 + 2 + i % 2) * 2] = static_cast<std::uint8_t>(c.values[i]);
    }
    EXPECT_THAT(Sample(pixels, 5, 2, Resampling::kBilinear, 2 + c.fx, 2 + c.fy),
                ElementsAre(c.expected, 100))
        << c.values[0] << ' ' << c.fx;
  }
}

TEST(PhotoSamplerTest, BlendTakesTheNearestOnTheRimAndOneOutside) {
  std::vector<std::uint8_t> pixels(25);
  for (int i = 0; i < 25; ++i) pixels[i] = static_cast<std::uint8_t>(100 + i);
  const auto at = [&](double column, double row) {
    return Sample(pixels, 5, 1, Resampling::kBilinear, column, row)[0];
  };
  EXPECT_EQ(at(1.0, 2.5), 116);   // nearest of row 3
  EXPECT_EQ(at(1.01, 2.5), 113);  // blended: 113.51
  EXPECT_EQ(at(4.0, 2), 114);
  EXPECT_EQ(at(4.5, 2), 1);
  EXPECT_EQ(at(2, -0.01), 1);
}

}  // namespace
}  // namespace tqtortho
