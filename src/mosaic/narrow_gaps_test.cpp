// SPDX-License-Identifier: Apache-2.0
#include "mosaic/narrow_gaps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

/// The literal rule: a cell stays wanted unless some disk of the given width that holds no seen
/// cell covers it.
std::vector<std::uint8_t> Twin(const std::vector<std::uint8_t>& seen, int rows, int cols,
                               double width) {
  const double radius = 0.5 * (width + 1);
  std::vector<std::uint8_t> wanted(seen.size());
  for (std::size_t i = 0; i < seen.size(); ++i) wanted[i] = seen[i] == 0 ? 1 : 0;
  for (int row = -20; row < rows + 20; ++row) {  // disks may lie partly outside
    for (int col = -20; col < cols + 20; ++col) {
      const auto nearest = [&](const auto& use) {
        for (int r = 0; r < rows; ++r) {
          for (int c = 0; c < cols; ++c) use(r * cols + c, std::hypot(r - row, c - col));
        }
      };
      double free = 1e9;
      nearest([&](int i, double d) { free = seen[i] != 0 ? std::min(free, d) : free; });
      if (free <= radius + 1e-3) continue;
      nearest([&](int i, double d) { wanted[i] = d < radius ? 0 : wanted[i]; });
    }
  }
  return wanted;
}

TEST(KeepNarrowGapsTest, EqualsTheLiteralRule) {
  constexpr int kRows = 37, kCols = 52;
  std::mt19937 random(11);
  for (const double width : {1.0, 3.0, 5.5, 8.0}) {
    std::vector<std::uint8_t> seen(kRows * kCols, 1), wanted(seen.size());
    for (int hole = 0; hole < 9; ++hole) {  // boxes, some over the rim
      const int row = static_cast<int>(random() % kRows), col = static_cast<int>(random() % kCols);
      const int high = 1 + static_cast<int>(random() % 14),
                wide = 1 + static_cast<int>(random() % 9);
      for (int r = row; r < std::min(row + high, kRows); ++r) {
        for (int c = col; c < std::min(col + wide, kCols); ++c) seen[r * kCols + c] = 0;
      }
    }
    for (std::size_t i = 0; i < seen.size(); ++i) wanted[i] = seen[i] == 0 ? 1 : 0;
    const auto before = wanted;
    KeepNarrowGaps({seen.data(), kRows, kCols}, width, {wanted.data(), kRows, kCols});
    EXPECT_EQ(wanted, Twin(seen, kRows, kCols, width)) << width;
    EXPECT_NE(wanted, before) << "holes of up to nine cells";
    EXPECT_NE(std::count(wanted.begin(), wanted.end(), 1), 0);
  }
}

}  // namespace
}  // namespace tqtortho
