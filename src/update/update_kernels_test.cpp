// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "update/feather_blend.h"

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;

GridView<const std::uint8_t> View(const Bytes& cells, int rows, int cols) {
  return {cells.data(), rows, cols};
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

}  // namespace
}  // namespace tqtortho
