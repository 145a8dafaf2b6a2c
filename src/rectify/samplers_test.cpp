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

std::vector<int> Sample(const std::vector<std::uint8_t>& pixels, int cols, int bands,
                        Resampling method, double column, double row) {
  const int rows = static_cast<int>(pixels.size()) / (cols * bands);
  std::vector<std::uint8_t> out(bands, 77);
  SamplePhoto({pixels.data(), cols, rows, bands}, method, column, row, out.data());
  return {out.begin(), out.end()};
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

}  // namespace
}  // namespace tqtortho
