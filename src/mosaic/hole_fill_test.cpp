// SPDX-License-Identifier: Apache-2.0
#include "mosaic/hole_fill.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tqtortho {
namespace {

constexpr int kSide = 60;

/// Ground of grey 100 in the west, a roof of grey 200 and height 10 from column 30 on, and a hole.
struct Scene {
  std::vector<std::uint8_t> wanted = std::vector<std::uint8_t>(kSide * kSide, 0);
  std::vector<std::uint8_t> seen = std::vector<std::uint8_t>(kSide * kSide, 1);
  std::vector<std::uint8_t> filled = std::vector<std::uint8_t>(kSide * kSide, 9);
  std::vector<float> heights;
  std::vector<std::uint8_t> pixels;

  Scene() {
    for (int i = 0; i < kSide * kSide; ++i) {
      const bool roof = i % kSide >= 30;
      heights.push_back(roof ? 10.0F : 0.0F);
      pixels.insert(pixels.end(), 3, roof ? 200 : 100);
    }
  }
  void Dig(int row0, int row1, int col0, int col1) {
    for (int row = row0; row < row1; ++row) {
      for (int col = col0; col < col1; ++col) {
        const int i = row * kSide + col;
        wanted[i] = 1;
        seen[i] = 0;
        std::fill_n(pixels.begin() + 3 * i, 3, std::uint8_t{0});
      }
    }
  }
  void Fill(HoleFillOptions options = {}) {
    FillHoles({wanted.data(), kSide, kSide}, {seen.data(), kSide, kSide},
              {heights.data(), kSide, kSide}, options, {pixels.data(), kSide, 3 * kSide},
              {filled.data(), kSide, kSide});
  }
  int Grey(int row, int col) const { return pixels[3 * (row * kSide + col)]; }
};

TEST(FillHolesTest, GroundBesideAWallIsFilledWithGround) {
  Scene scene;
  scene.Dig(20, 40, 22, 30);
  // What hides the hole leaks into the cells at its rim.
  for (int row = 20; row < 40; ++row)
    std::fill_n(scene.pixels.begin() + 3 * (row * kSide + 21), 3, 255);
  scene.Fill();
  for (int row = 20; row < 40; ++row) {
    for (int col = 22; col < 30; ++col) EXPECT_NEAR(scene.Grey(row, col), 100, 1);
    EXPECT_EQ(scene.Grey(row, 21), 255) << "seen cells never change";
    EXPECT_EQ(scene.Grey(row, 30), 200);
  }
  EXPECT_EQ(scene.filled[30 * kSide + 25], 1);
  EXPECT_EQ(scene.filled[30 * kSide + 21], 0);
}

TEST(FillHolesTest, ALevelOfItsOwnIsFilledFromAnyLevel) {
  Scene scene;
  scene.Dig(10, 14, 10, 14);
  for (int row = 10; row < 14; ++row) {
    for (int col = 10; col < 14; ++col) scene.heights[row * kSide + col] = -8;
  }
  scene.Fill();
  EXPECT_NEAR(scene.Grey(12, 12), 100, 1);
}

TEST(FillHolesTest, CellsBeyondReachStayEmpty) {
  Scene scene;
  scene.Dig(0, kSide, 0, kSide);
  scene.seen[0] = 1;
  scene.wanted[0] = 0;
  HoleFillOptions options;
  options.reach = 10;
  options.clearance = 0;
  scene.Fill(options);
  EXPECT_EQ(scene.filled[5 * kSide + 5], 1);
  EXPECT_EQ(scene.filled[25 * kSide + 25], 0);
  EXPECT_EQ(scene.Grey(25, 25), 0);
}

TEST(FillHolesTest, HeightsThatAreUnknownDoNoHarm) {
  Scene scene;
  scene.Dig(20, 30, 10, 20);
  scene.heights.assign(scene.heights.size(), std::numeric_limits<float>::quiet_NaN());
  scene.Fill();  // no cell is trusted, so nothing is filled
  EXPECT_EQ(scene.Grey(25, 15), 0);
}

}  // namespace
}  // namespace tqtortho
