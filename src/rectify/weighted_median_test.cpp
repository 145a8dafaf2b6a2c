// SPDX-License-Identifier: Apache-2.0
#include "rectify/weighted_median.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// The rule as it is told, on its own median.
void BlendLiterally(Bytes& pixels, int cols, int rows, int bands, const Bytes& weights,
                    int weightCols, int weightRows, int firstRow, int firstCol) {
  const Bytes before = pixels;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      const auto wr = static_cast<std::int64_t>(firstRow) + r;
      const auto wc = static_cast<std::int64_t>(firstCol) + c;
      if (wr < 0 || wr >= weightRows || wc < 0 || wc >= weightCols) continue;
      if (before[(r * cols + c) * bands] == 0) continue;
      const int w = weights[wr * weightCols + wc];
      for (int b = 0; b < bands; ++b) {
        Bytes near;
        for (int dr = -1; dr <= 1; ++dr) {
          for (int dc = -1; dc <= 1; ++dc) {
            near.push_back(
                before[(std::clamp(r + dr, 0, rows - 1) * cols + std::clamp(c + dc, 0, cols - 1)) *
                           bands +
                       b]);
          }
        }
        std::nth_element(near.begin(), near.begin() + 4, near.end());
        const int pixel = before[(r * cols + c) * bands + b];
        pixels[(r * cols + c) * bands + b] =
            static_cast<std::uint8_t>(near[4] * w / 255.0 + (255 - w) * pixel / 255.0);
      }
    }
  }
}

// One picture per median: a plane of that value with single pixels of every value and weight, three
// cells apart, so that the median at each is the plane's. The order of operations is the one of
// doubles: two quotients, their sum, truncation.
TEST(BlendMedianTest, WholeNumberBlendIsExactForEveryInput) {
  Bytes pixels, weights;
  long wrong = 0;
  for (int median = 1; median < 256; ++median) {
    const int rows = 3 * 256;
    const int cols = 3 * 256;
    pixels.assign(static_cast<std::size_t>(rows) * cols * 3, static_cast<std::uint8_t>(median));
    weights.assign(static_cast<std::size_t>(rows) * cols, 0);
    for (int pixel = 1; pixel < 256; ++pixel) {
      for (int weight = 0; weight < 256; ++weight) {
        const std::size_t at = static_cast<std::size_t>(3 * pixel + 1) * cols + 3 * weight + 1;
        std::fill_n(&pixels[at * 3], 3, static_cast<std::uint8_t>(pixel));
        weights[at] = static_cast<std::uint8_t>(weight);
      }
    }
    BlendMedian({pixels.data(), rows, cols * 3}, 3, {weights.data(), rows, cols}, 0, 0);
    for (int pixel = 1; pixel < 256; ++pixel) {
      for (int weight = 0; weight < 256; ++weight) {
        const std::size_t at = static_cast<std::size_t>(3 * pixel + 1) * cols + 3 * weight + 1;
        const auto expected =
            static_cast<std::uint8_t>(median * weight / 255.0 + (255 - weight) * pixel / 255.0);
        wrong += pixels[at * 3] != expected || pixels[at * 3 + 2] != expected;
      }
    }
  }
  EXPECT_EQ(wrong, 0);
}

TEST(BlendMedianTest, EqualsTheLiteralRuleOnRandomImages) {
  std::mt19937 random(11);
  for (int round = 0; round < 200; ++round) {
    const int bands = std::vector<int>{1, 3, 3, 4}[round % 4];
    const int cols = 1 + static_cast<int>(random() % 20);
    const int rows = 1 + static_cast<int>(random() % 20);
    const int weightCols = static_cast<int>(random() % 25);
    const int weightRows = static_cast<int>(random() % 25);
    constexpr int kFar = std::numeric_limits<int>::max();
    const int firstRow = round == 7 ? kFar : static_cast<int>(random() % 20) - 10;
    const int firstCol = round == 9 ? -kFar - 1 : static_cast<int>(random() % 20) - 10;
    Bytes pixels(static_cast<std::size_t>(cols) * rows * bands);
    for (auto& p : pixels) p = random() % 5 == 0 ? 0 : random() % 256;
    Bytes weights(static_cast<std::size_t>(weightCols) * weightRows);
    for (auto& w : weights) w = random() % 3 == 0 ? 255 : random() % 256;
    Bytes expected = pixels;
    if (bands == 3) {  // grey and four-band images stay as they are
      BlendLiterally(expected, cols, rows, bands, weights, weightCols, weightRows, firstRow,
                     firstCol);
    }
    BlendMedian({pixels.data(), rows, cols * bands}, bands,
                {weights.data(), weightRows, weightCols}, firstRow, firstCol);
    ASSERT_EQ(pixels, expected) << "round " << round;
  }
}

// 5 x 5 pixels of (10, 20, 30) with one bright pixel in the middle, its first band 0 in one case.
TEST(RefineTORTest, WeightsOfTheMaskAtItsTruePlace) {
  struct Case {
    const char* what;
    int weight;
    std::uint8_t firstBand;
    double maskMinX;
    std::uint8_t expected;  // second band of the middle pixel, 200 before
  };
  for (const Case& c :
       {Case{"weight 255 takes the median", 255, 90, 100, 20},
        Case{"weight 0 keeps the pixel", 0, 90, 100, 200},
        Case{"between: trunc(20 * 100 / 255 + 155 * 200 / 255)", 100, 90, 100, 129},
        Case{"first band 0 is never touched", 255, 0, 100, 200},
        Case{"a mask one cell to the left covers the middle as well", 255, 90, 98, 20},
        Case{"a mask three cells to the right does not", 255, 90, 106, 200}}) {
    tqorkit::PhotoInfo ortho;
    ortho.width = ortho.height = 5;
    ortho.bands = 3;
    for (int i = 0; i < 25; ++i) ortho.data.insert(ortho.data.end(), {10, 20, 30});
    ortho.data[12 * 3] = c.firstBand;
    ortho.data[12 * 3 + 1] = 200;
    ortho.resX = 2;
    ortho.resY = -2;
    ortho.geoRect[0] = 100;
    ortho.geoRect[3] = 500;
    tqorkit::PhotoInfo mask;
    mask.width = mask.height = 5;
    mask.bands = 1;
    mask.data.assign(25, static_cast<std::uint8_t>(c.weight));
    mask.geoRect[0] = c.maskMinX;
    mask.geoRect[3] = 500;
    tqTORectify rectify;
    EXPECT_TRUE(TestPeer::RefineTOR(rectify, ortho, mask));
    EXPECT_EQ(ortho.data[12 * 3 + 1], c.expected) << c.what;
  }
}

}  // namespace
}  // namespace tqtortho
