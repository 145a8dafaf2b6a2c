// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "update/feather_blend.h"
#include "update/mark_occluded.h"
#include "update/ownership_mask.h"

namespace tqtortho {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

GridView<const std::uint8_t> View(const Bytes& cells, int rows, int cols) {
  return {cells.data(), rows, cols};
}

// Literal twin: the largest of nine cells, then the mean at the stretched position.
TEST(OwnershipMaskTest, SavedMaskIsDilatedAndStretchedByOneCell) {
  constexpr int kRows = 9, kCols = 12;
  std::mt19937 random(3);
  Bytes mask(kRows * kCols);
  for (auto& cell : mask) cell = random() % 8 == 0 ? 255 : 0;
  Bytes dilated(mask.size());
  for (int r = 0; r < kRows; ++r) {
    for (int c = 0; c < kCols; ++c) {
      for (int y = std::max(r - 1, 0); y <= std::min(r + 1, kRows - 1); ++y) {
        for (int x = std::max(c - 1, 0); x <= std::min(c + 1, kCols - 1); ++x) {
          auto& cell = dilated[r * kCols + c];
          cell = std::max(cell, mask[y * kCols + x]);
        }
      }
    }
  }
  const Bytes grown = GrowOwnership(View(mask, kRows, kCols));
  ASSERT_EQ(grown.size(), (kRows + 1) * (kCols + 1));
  for (int r = 0; r <= kRows; ++r) {
    for (int c = 0; c <= kCols; ++c) {
      const double y = std::clamp((r + 0.5) * kRows / (kRows + 1) - 0.5, 0.0, kRows - 1.0);
      const double x = std::clamp((c + 0.5) * kCols / (kCols + 1) - 0.5, 0.0, kCols - 1.0);
      const int y0 = std::min(static_cast<int>(y), kRows - 2);
      const int x0 = std::min(static_cast<int>(x), kCols - 2);
      const auto at = [&](int row, int col) {
        return static_cast<double>(dilated[row * kCols + col]);
      };
      const double mean =
          (1 - (y - y0)) * ((1 - (x - x0)) * at(y0, x0) + (x - x0) * at(y0, x0 + 1)) +
          (y - y0) * ((1 - (x - x0)) * at(y0 + 1, x0) + (x - x0) * at(y0 + 1, x0 + 1));
      EXPECT_NEAR(grown[r * (kCols + 1) + c], mean, 1.0) << r << " " << c;
    }
  }
}

TEST(KeptShareTest, HiddenCellsKeepNothingAndTheSeamIsSoft) {
  constexpr int kRows = 64, kCols = 80;
  for (const int width : {1, 3, 12, 30}) {
    Bytes hidden(kRows * kCols, 0);
    for (int r = 0; r < kRows; ++r) {
      for (int c = 25; c < 25 + width; ++c) hidden[r * kCols + c] = 255;
    }
    const Bytes kept = KeptShare(View(hidden, kRows, kCols), kRows, kCols);
    const auto at = [&](int c) { return int{kept[30 * kCols + c]}; };
    int previous = 0;
    for (int c = 25 + width; c < kCols; ++c) {
      EXPECT_GE(at(c), previous) << width << " " << c;
      EXPECT_TRUE(c == 25 + width || at(c) - previous <= 64) << "a step at " << c;
      previous = at(c);
    }
    for (int c = 0; c < kCols; ++c) {
      const int seen = c < 25 ? 25 - c : c - 24 - width;  // cells from what is hidden
      EXPECT_TRUE(seen > 0 || at(c) == 0) << width << " " << c;
      EXPECT_TRUE(seen <= 20 || at(c) == 255) << width << " " << c;
    }
    EXPECT_TRUE(width < 12 || at(25 + width) <= 8) << "the seam lies on seen ground";
  }
}

// A literal pass-by-pass twin; equal colours must stay equal whatever the weight.
TEST(BlendTextureTest, PassesAndBlendEqualTheirPlainForm) {
  std::mt19937 random(11);
  for (const auto& [texBands, bands] : {std::pair{3, 3}, {3, 1}, {3, 4}, {1, 3}, {4, 4}}) {
    constexpr int kRows = 20, kCols = 23, kCells = kRows * kCols;
    const auto fill = [&](int samplesPerCell) {
      Bytes image(kCells * samplesPerCell);
      for (int i = 0; i < kCells; ++i) {
        const bool empty = random() % 4 == 0;
        for (int b = 0; b < samplesPerCell; ++b) {
          image[i * samplesPerCell + b] = static_cast<std::uint8_t>(empty ? 0 : random() % 256);
        }
      }
      return image;
    };
    Bytes texture = fill(texBands), ortho = fill(bands);
    Bytes hidden(kCells), kept(kCells);
    for (auto& cell : hidden) cell = static_cast<std::uint8_t>(random() % 2 ? 255 : random() % 255);
    for (auto& cell : kept) cell = static_cast<std::uint8_t>(random() % 256);
    Bytes t = texture, o = ortho;
    const int common = std::min(texBands, bands);
    const auto sample = [](Bytes& image, int cell, int count, int band) -> std::uint8_t& {
      return image[cell * count + band];
    };
    const auto isZero = [&](Bytes& image, int cell, int count) {
      for (int b = 0; b < count; ++b) {
        if (sample(image, cell, count, b) != 0) return false;
      }
      return true;
    };
    for (int i = 0; i < kCells; ++i) {
      if (hidden[i] == 255 || isZero(t, i, texBands)) continue;
      for (int b = 0; b < common; ++b) sample(o, i, bands, b) = sample(t, i, texBands, b);
    }
    for (int i = 0; i < kCells; ++i) {
      if (!isZero(t, i, texBands) || isZero(o, i, bands)) continue;
      for (int b = 0; b < common; ++b) sample(t, i, texBands, b) = sample(o, i, bands, b);
    }
    for (int i = 0; i < kCells; ++i) {
      const float w = static_cast<float>(kept[i] * 0.00392156862745098);
      for (int b = 0; b < std::min(common, 3); ++b) {
        const double share = static_cast<double>(w);
        const int a = sample(t, i, texBands, b), own = sample(o, i, bands, b);
        const double mixed = a * (1 - share) + own * share;
        sample(o, i, bands, b) = static_cast<std::uint8_t>(mixed);
        ASSERT_TRUE(a != own || sample(o, i, bands, b) == a);
      }
    }
    BlendTexture(View(hidden, kRows, kCols), View(kept, kRows, kCols),
                 {texture.data(), kRows, kCols, texBands}, {ortho.data(), kRows, kCols, bands});
    EXPECT_EQ(ortho, o) << texBands << " " << bands;
    EXPECT_EQ(texture, t);
  }
}

TEST(MarkOccludedTest, TheMaskIsIndexedByItsOwnWidth) {
  struct Case {
    const char* name;
    Bytes mask;
    int maskCols;
    Bytes hidden;
    Bytes expected;  // of a 2 x 3 ortho of ones
  };
  const Case cases[] = {
      {"same size", {1, 0, 255, 255, 255, 255}, 3, {0, 0, 0, 255, 254, 0}, {1, 0, 1, 0, 1, 1}},
      {"wider by one", {9, 9, 9, 0, 9, 9, 9, 0}, 4, Bytes(6, 0), {1, 1, 1, 1, 1, 1}},
      {"narrower", {9, 9, 0, 9}, 2, Bytes(6, 0), {1, 1, 0, 0, 1, 0}},
      {"no mask cells", {}, 0, Bytes(6, 0), {0, 0, 0, 0, 0, 0}},
      {"short hidden cells", Bytes(6, 255), 3, {255}, {0, 1, 1, 1, 1, 1}},
      {"all hidden", Bytes(6, 255), 3, Bytes(6, 255), Bytes(6, 0)},
  };
  for (const Case& c : cases) {
    Bytes ortho(6 * 4, 1), expected;
    for (const std::uint8_t cell : c.expected) expected.insert(expected.end(), 4, cell);
    MarkOccluded(c.mask, c.maskCols, c.hidden, 2, 3, 4, ortho.data());
    EXPECT_EQ(ortho, expected) << c.name;
  }
}

}  // namespace
}  // namespace tqtortho
