// SPDX-License-Identifier: Apache-2.0
#include "occlusion/gap_fill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// The rule as it is told, cell by cell and line by line.
void FillLiterally(Bytes& mask, int cols, int rows) {
  const auto pass = [&](int count, int lines, auto cell) {
    for (int line = 0; line < lines; ++line) {
      for (int x = 2; x <= count - 3; ++x) {
        const std::uint8_t v = cell(line, x);
        if (cell(line, x - 1) == cell(line, x + 1) && cell(line, x - 1) != v) {
          cell(line, x) = cell(line, x - 1);
        } else if (cell(line, x - 2) == cell(line, x + 2) && cell(line, x - 2) != v) {
          cell(line, x) = cell(line, x - 2);
        }
      }
    }
  };
  pass(cols, rows, [&](int y, int x) -> std::uint8_t& { return mask[y * cols + x]; });
  pass(rows, cols, [&](int x, int y) -> std::uint8_t& { return mask[y * cols + x]; });
}

/// 3 x 3 median with replicated border.
Bytes MedianLiterally(const Bytes& mask, int cols, int rows) {
  Bytes result(mask.size());
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      Bytes near;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          near.push_back(
              mask[std::clamp(y + dy, 0, rows - 1) * cols + std::clamp(x + dx, 0, cols - 1)]);
        }
      }
      std::nth_element(near.begin(), near.begin() + 4, near.end());
      result[y * cols + x] = near[4];
    }
  }
  return result;
}

TEST(FillNarrowGapsTest, EqualsTheLiteralRuleOnRandomMasks) {
  std::mt19937 random(20240611);  // fixed seed: a failure must repeat
  CleanMask({nullptr, -3, 9});
  for (int round = 0; round < 400; ++round) {
    const int cols = 1 + static_cast<int>(random() % 70);
    const int rows = 1 + static_cast<int>(random() % 30);
    const unsigned density = 1 + random() % 9;
    const bool manyValues = round % 4 == 0;
    Bytes mask(static_cast<std::size_t>(cols) * rows);
    std::uint8_t value = 0;
    for (auto& cell : mask) {  // runs of equal cells, as masks have them
      if (random() % 10 < density) value = manyValues ? random() % 4 : (random() % 2) * 255;
      cell = value;
    }
    Bytes expected = mask;
    Bytes cleaned = mask;
    FillLiterally(expected, cols, rows);
    FillNarrowGaps({mask.data(), rows, cols});
    ASSERT_EQ(mask, expected) << "round " << round << ", " << cols << " x " << rows;

    expected = MedianLiterally(cleaned, cols, rows);
    FillLiterally(expected, cols, rows);
    CleanMask({cleaned.data(), rows, cols});
    ASSERT_EQ(cleaned, expected) << "round " << round << ", " << cols << " x " << rows;
  }
}

}  // namespace
}  // namespace tqtortho
