// SPDX-License-Identifier: Apache-2.0
#include "rectify/weighted_median.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

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

}  // namespace
}  // namespace tqtortho
