// SPDX-License-Identifier: Apache-2.0
#include "mosaic/hole_fill.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tqtortho {
namespace {

constexpr int kSide = 60;

/// Ground of grey 100 in the west, a roof of grey 200 and height 10 from column 30 on, and holes;
/// or the same turned, in the north and from row 30 on.
struct Scene {
  bool turned = false;
  std::vector<std::uint8_t> wanted = std::vector<std::uint8_t>(kSide * kSide, 0);
  std::vector<std::uint8_t> seen = std::vector<std::uint8_t>(kSide * kSide, 1);
  std::vector<std::uint8_t> filled = std::vector<std::uint8_t>(kSide * kSide, 9);
  std::vector<float> heights;
  std::vector<std::uint8_t> pixels;

  explicit Scene(bool rowsForColumns = false) : turned(rowsForColumns) {
    for (int i = 0; i < kSide * kSide; ++i) {
      const bool roof = (turned ? i / kSide : i % kSide) >= 30;
      heights.push_back(roof ? 10.0F : 0.0F);
      pixels.insert(pixels.end(), 3, roof ? 200 : 100);
    }
  }
  void Dig(int row0, int row1, int col0, int col1) {
    for (int row = row0; row < row1; ++row) {
      for (int col = col0; col < col1; ++col) {
        const int i = Index(row, col);
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
  int Index(int row, int col) const { return turned ? col * kSide + row : row * kSide + col; }
  int Grey(int row, int col) const { return pixels[3 * Index(row, col)]; }
};

TEST(FillHolesTest, GroundBesideAWallIsFilledWithGroundAndALevelOfItsOwnFromAny) {
  for (const bool turned : {false, true}) {
    SCOPED_TRACE(turned);
    Scene scene(turned);
    scene.Dig(20, 40, 22, 30);
    // What hides the hole leaks into the cells at its rim.
    for (int row = 20; row < 40; ++row) {
      std::fill_n(scene.pixels.begin() + 3 * scene.Index(row, 21), 3, 255);
    }
    scene.Dig(5, 9, 8, 13);
    for (int row = 5; row < 9; ++row) {
      for (int col = 8; col < 13; ++col) scene.heights[scene.Index(row, col)] = -8;
    }
    scene.Fill();
    for (int row = 20; row < 40; ++row) {
      for (int col = 22; col < 30; ++col) EXPECT_NEAR(scene.Grey(row, col), 100, 1);
      EXPECT_EQ(scene.Grey(row, 21), 255) << "seen cells never change";
      EXPECT_EQ(scene.Grey(row, 30), 200);
    }
    EXPECT_EQ(scene.filled[scene.Index(30, 25)], 1);
    EXPECT_EQ(scene.filled[scene.Index(30, 21)], 0);
    EXPECT_NEAR(scene.Grey(7, 10), 100, 1);
    // Where no height is known no cell is trusted, so nothing is filled.
    scene.Dig(45, 50, 40, 44);
    scene.heights.assign(scene.heights.size(), std::numeric_limits<float>::quiet_NaN());
    scene.Fill();
    EXPECT_EQ(scene.Grey(47, 42), 0);
  }
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

}  // namespace
}  // namespace tqtortho
