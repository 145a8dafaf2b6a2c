// SPDX-License-Identifier: Apache-2.0
#include "mosaic/photo_choice.h"

#include <gtest/gtest.h>

#include <vector>

#include "mosaic/seam_finder.h"
#include "mosaic/view_rating.h"

namespace tqtortho {
namespace {

constexpr int kRows = 48;
constexpr int kCols = 64;

struct Tile {
  std::vector<std::vector<std::uint8_t>> ratings;
  std::vector<std::vector<std::uint8_t>> pixels;
  std::vector<float> heights = std::vector<float>(kRows * kCols, 0.0F);
  std::vector<std::uint16_t> labels = std::vector<std::uint16_t>(kRows * kCols, 0);

  void AddView(std::uint8_t rating, std::uint8_t grey) {
    ratings.emplace_back(kRows * kCols, rating);
    pixels.emplace_back(3 * kRows * kCols, grey);
  }
  [[nodiscard]] std::vector<GridView<const std::uint8_t>> Ratings() const {
    std::vector<GridView<const std::uint8_t>> views;
    for (const auto& rating : ratings) views.emplace_back(rating.data(), kRows, kCols);
    return views;
  }
  [[nodiscard]] std::vector<MosaicView> Views() const {
    std::vector<MosaicView> views;
    for (std::size_t k = 0; k < ratings.size(); ++k) {
      views.push_back(
          {{ratings[k].data(), kRows, kCols}, {pixels[k].data(), kRows, 3 * kCols}, {}});
    }
    return views;
  }
  [[nodiscard]] GridView<std::uint16_t> Labels() { return {labels.data(), kRows, kCols}; }
  void MoveSeamsOf() {
    ChooseBestViews(Ratings(), Labels());
    MoveSeams(Views(), {heights.data(), kRows, kCols}, {}, Labels());
  }
};

TEST(ChooseBestViewsTest, EverySeenCellIsGivenToAViewThatSeesIt) {
  Tile tile;
  tile.AddView(10, 0);
  tile.AddView(10, 0);
  tile.ratings[0][5] = kHiddenView;  // the other one sees it
  tile.ratings[0][6] = tile.ratings[1][6] = kHiddenView;
  tile.ratings[0][7] = kOutsideView;
  tile.ratings[1][7] = kWorstView;
  ChooseBestViews(tile.Ratings(), tile.Labels());
  EXPECT_EQ(tile.labels[4], 1) << "ties go to the earlier view";
  EXPECT_EQ(tile.labels[5], 2);
  EXPECT_EQ(tile.labels[6], kNoView);
  EXPECT_EQ(tile.labels[7], 2);
}

TEST(MergePatchesTest, ConfettiGoesToNeighboursThatSeeIt) {
  Tile tile;
  tile.AddView(20, 0);
  tile.AddView(30, 0);
  const auto patch = [&](int row, int col) { return static_cast<std::size_t>(row) * kCols + col; };
  for (int i = 0; i < 4; ++i) tile.ratings[1][patch(10, 10 + i)] = 0;  // a whim
  tile.ratings[0][patch(20, 20)] = kHiddenView;                        // a need
  tile.ratings[1][patch(0, 30)] = 0;                                   // at the border of the tile
  ChooseBestViews(tile.Ratings(), tile.Labels());
  MergePatches(tile.Ratings(), {}, tile.Labels());
  EXPECT_EQ(tile.labels[patch(10, 11)], 1);
  EXPECT_EQ(tile.labels[patch(20, 20)], 2);
  EXPECT_EQ(tile.labels[patch(0, 30)], 2);
}

// The best ratings change sides in column 32. The photos differ there and agree from column 40 on.
TEST(MoveSeamsTest, ASeamMovesToWhereThePhotosAgree) {
  Tile tile;
  tile.AddView(0, 100);
  tile.AddView(0, 100);
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const std::size_t i = static_cast<std::size_t>(row) * kCols + col;
      tile.ratings[0][i] = static_cast<std::uint8_t>(col);
      tile.ratings[1][i] = static_cast<std::uint8_t>(kCols - col);
      if (col < 40) std::fill_n(tile.pixels[1].begin() + static_cast<long>(3 * i), 3, 160);
    }
  }
  tile.MoveSeamsOf();
  for (int row = 0; row < kRows; ++row) {
    const auto* label = tile.labels.data() + static_cast<std::size_t>(row) * kCols;
    const int seam = static_cast<int>(std::find(label, label + kCols, 2) - label);
    ASSERT_GE(seam, 40) << row;
    ASSERT_LE(seam, 48) << row;
  }
}

TEST(MoveSeamsTest, SeamsKeepOffSteps) {
  Tile tile;
  tile.AddView(0, 100);
  tile.AddView(0, 100);
  for (int i = 0; i < kRows * kCols; ++i) {
    tile.ratings[0][i] = static_cast<std::uint8_t>(40 + i % kCols / 8);
    tile.ratings[1][i] = static_cast<std::uint8_t>(48 - i % kCols / 8);
    tile.heights[i] = i % kCols < 32 + i % 2 ? 0.0F : 20.0F;  // a wall where ratings change sides
  }
  tile.MoveSeamsOf();
  for (int row = 0; row < kRows; ++row) {
    EXPECT_EQ(tile.labels[row * kCols + 31], tile.labels[row * kCols + 34]) << row;
  }
}

TEST(MoveSeamsTest, NoCellIsTakenFromTheOnlyViewThatSeesIt) {
  Tile tile;
  tile.AddView(0, 100);
  tile.AddView(9, 200);
  for (int row = 10; row < 14; ++row) {
    for (int col = 0; col < 30; ++col) tile.ratings[0][row * kCols + col] = kHiddenView;
  }
  tile.ratings[0][700] = tile.ratings[1][700] = kOutsideView;
  tile.MoveSeamsOf();
  for (int i = 0; i < kRows * kCols; ++i) {
    if (i == 700) {
      EXPECT_EQ(tile.labels[i], kNoView);
    } else {
      ASSERT_NE(tile.labels[i], kNoView);
      ASSERT_TRUE(IsSeen(tile.ratings[tile.labels[i] - 1U][i])) << i;
    }
  }
}

}  // namespace
}  // namespace tqtortho
