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

// The best ratings change sides in the middle of a tile of 64 x 48 cells, across its columns or its
// rows. In the first case photos differ there and agree from cell 40 on; in the second a step of
// the surface runs where ratings change sides.
TEST(MoveSeamsTest, SeamsMoveToWhereThePhotosAgreeAndKeepOffSteps) {
  for (const bool turned : {false, true}) {
    for (const bool step : {false, true}) {
      SCOPED_TRACE(::testing::Message() << turned << step);
      Tile tile;
      tile.AddView(0, 100);
      tile.AddView(0, 100);
      const int across = turned ? kRows : kCols, middle = turned ? 20 : 32;
      for (int i = 0; i < kRows * kCols; ++i) {
        const int k = turned ? i / kCols : i % kCols, other = turned ? i % kCols : i / kCols;
        tile.ratings[0][i] = static_cast<std::uint8_t>(step ? 40 + k / 8 : 30 + k);
        tile.ratings[1][i] =
            static_cast<std::uint8_t>(step ? 40 + (2 * middle - k) / 8 : 30 + 2 * middle - k);
        if (step) tile.heights[i] = k < middle + other % 2 ? 0.0F : 20.0F;
        if (!step && k < middle + 8) std::fill_n(tile.pixels[1].begin() + 3 * i, 3, 160);
      }
      tile.MoveSeamsOf();
      for (int line = 2; line < (turned ? kCols : kRows) - 2; ++line) {
        const auto label = [&](int k) {
          return tile.labels[turned ? k * kCols + line : line * kCols + k];
        };
        int seam = 0;
        while (seam < across && label(seam) != 2) ++seam;
        ASSERT_LT(seam, across);
        if (step) {
          EXPECT_EQ(label(middle - 1), label(middle + 2)) << line;
        } else {
          EXPECT_GE(seam, middle + 8) << line;
          EXPECT_LE(seam, middle + 16) << line;
        }
      }
    }
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
