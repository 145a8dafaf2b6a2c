// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqMapSpotSimpler.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"

namespace tqorkit {
namespace {

TEST(TqMapSpotSimplerTest, ThumbnailHoldsTheMeansOfWhatItsCellsCover) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("A.JPG_obs.tif");
  constexpr int kCols = 1200;
  constexpr int kRows = 400;
  std::vector<std::uint8_t> cells(kCols * kRows, 0);
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < 600; ++col) cells[row * kCols + col] = 255;
    cells[row * kCols + 1001] = 255;  // one cell wide
  }
  ASSERT_TRUE(TqFSManager::SaveImageFile(cells.data(), kCols, kRows, 1, path, true, nullptr));
  ASSERT_TRUE(tqMapSpotSimpler().DoMapSpotSimpling(path, 300));
  tqorkit::PhotoInfo thumbnail;
  ASSERT_TRUE(tqimage::TqImage::QuickReadImage(path + "_thumb.png", thumbnail, nullptr));
  ASSERT_EQ(thumbnail.width, 300);
  ASSERT_EQ(thumbnail.height, 100);
  ASSERT_EQ(thumbnail.bands, 1);
  for (int col = 0; col < 300; ++col) {
    const int truth = col < 150 ? 255 : col == 250 ? 64 : 0;
    EXPECT_NEAR(thumbnail.data[static_cast<std::size_t>(50 * 300 + col)], truth, 1) << col;
  }
}

TEST(TqMapSpotSimplerTest, SmallMasksKeepTheirCellsAndUnreadableOnesLeaveNoThumbnail) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("m.tif");
  const std::vector<std::uint8_t> cells{0, 255, 7, 255, 0, 9};
  ASSERT_TRUE(TqFSManager::SaveImageFile(cells.data(), 3, 2, 1, path, true, nullptr));
  tqMapSpotSimpler sampler;
  ASSERT_TRUE(sampler.DoMapSpotSimpling(path, 300));
  tqorkit::PhotoInfo thumbnail;
  ASSERT_TRUE(
      tqimage::TqImage::QuickReadImage(tqMapSpotSimpler::ThumbnailName(path), thumbnail, nullptr));
  EXPECT_EQ(thumbnail.data, cells);
  EXPECT_FALSE(sampler.DoMapSpotSimpling(path, 0));
  EXPECT_FALSE(std::filesystem::exists(tqMapSpotSimpler::ThumbnailName(path)));
  EXPECT_FALSE(sampler.DoMapSpotSimpling(dir.File("none.tif"), 300));
}

}  // namespace
}  // namespace tqorkit
