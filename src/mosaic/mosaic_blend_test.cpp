// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_blend.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "mosaic/view_rating.h"

namespace tqtortho {
namespace {

constexpr int kRows = 12;
constexpr int kCols = 40;

/// Two photos, grey 100 and 180, that divide the tile at column 20.
struct Pair {
  std::vector<std::uint8_t> rating[2] = {std::vector<std::uint8_t>(kRows * kCols, 5),
                                         std::vector<std::uint8_t>(kRows* kCols, 5)};
  std::vector<std::uint8_t> pixels[2] = {std::vector<std::uint8_t>(3 * kRows * kCols, 100),
                                         std::vector<std::uint8_t>(3 * kRows * kCols, 180)};
  std::vector<std::uint16_t> labels;
  std::vector<MosaicView> views;
  std::vector<std::uint8_t> out = std::vector<std::uint8_t>(3 * kRows * kCols, 77);

  Pair() {
    for (int i = 0; i < kRows * kCols; ++i) labels.push_back(i % kCols < 20 ? 1 : 2);
    for (int k = 0; k < 2; ++k) {
      views.push_back({{rating[k].data(), kRows, kCols}, {pixels[k].data(), kRows, 3 * kCols}, {}});
    }
  }
  [[nodiscard]] GridView<const std::uint16_t> Labels() const {
    return {labels.data(), kRows, kCols};
  }
  int Blended(int row, int col) {
    BlendViews(views, Labels(), {}, {0, 0, kRows, kCols}, {out.data(), kRows, 3 * kCols});
    return out[3 * (row * kCols + col)];
  }
};

TEST(BlendViewsTest, ColoursChangeEvenlyOverTheFeatherAndNowhereElse) {
  Pair pair;
  EXPECT_EQ(pair.Blended(6, 15), 100);
  EXPECT_EQ(pair.Blended(6, 24), 180);
  for (int col = 16; col < 24; ++col) {
    // Of nine columns around, so many lie beyond the seam.
    EXPECT_NEAR(pair.Blended(6, col), 100 + 80.0 * (col - 15) / 9, 1) << col;
  }
}

TEST(BlendViewsTest, APhotoThatDoesNotSeeTheCellIsNotMixedIn) {
  Pair pair;
  for (int i = 0; i < kRows * kCols; ++i) {
    if (i % kCols < 20) pair.rating[1][i] = kHiddenView;
  }
  EXPECT_EQ(pair.Blended(6, 19), 100);
  EXPECT_LT(pair.Blended(6, 20), 180);  // the first photo sees beyond the seam
}

TEST(BlendViewsTest, CoveredCellsAreNeverZeroAndOthersAlwaysAre) {
  Pair pair;
  std::fill(pair.pixels[0].begin(), pair.pixels[0].end(), std::uint8_t{0});
  pair.labels[0] = 0;
  EXPECT_EQ(pair.Blended(0, 1), 1);
  EXPECT_EQ(pair.Blended(0, 0), 0);
}

// Tones are shifted by 0 at column 0, ln 1.5 at column 32 and 2 ln 1.5 at column 64.
TEST(BlendViewsTest, TonesAreShiftedBetweenNodesAndNoWhiteIsMade) {
  Pair pair;
  const ToneScale scale(16);
  std::vector<float> offsets;
  for (int i = 0; i < 2; ++i) {
    for (int j = 0; j < 3; ++j)
      offsets.insert(offsets.end(), 3, static_cast<float>(j * std::log(1.5)));
  }
  pair.views[0].tones = {&scale, {1, 1, 1}, {offsets.data(), 2, 9}, 32};
  EXPECT_EQ(pair.Blended(3, 0), 100);
  EXPECT_NEAR(pair.Blended(3, 8), 100 * std::pow(1.5, 0.25), 0.51);
  pair.views[0].tones.slope = {0.5, 0.5, 0.5};  // about white
  EXPECT_NEAR(pair.Blended(3, 0), 255 * std::sqrt(100.0 / 255), 1);
  const std::pair<int, int> ends[] = {{255, 255}, {254, 254}, {253, 254}, {0, 1}, {1, 1}};
  pair.views[0].tones.slope = {1, 1, 1};
  std::fill(offsets.begin(), offsets.end(), 0.0F);
  for (const auto& [from, to] : ends) {
    std::fill_n(offsets.begin(), 3, from == 253 ? 2.0F : 0.0F);
    std::fill(pair.pixels[0].begin(), pair.pixels[0].end(), static_cast<std::uint8_t>(from));
    EXPECT_EQ(pair.Blended(0, 0), to) << from;
  }
}

TEST(MeasureSeamsTest, StepsAreCountedAcrossSeamsThatBothPhotosSee) {
  Pair pair;
  pair.rating[1][19] = kHiddenView;
  SeamStatistics statistics;
  MeasureSeams(pair.views, pair.Labels(), {0, 0, kRows, kCols}, statistics);
  EXPECT_EQ(statistics.cells, kRows);
  EXPECT_EQ(statistics.compared, kRows - 1);
  EXPECT_NEAR(statistics.stepBefore, 80.0 * (kRows - 1), 1e-6);
  EXPECT_DOUBLE_EQ(statistics.stepAfter, statistics.stepBefore);
}

}  // namespace
}  // namespace tqtortho
