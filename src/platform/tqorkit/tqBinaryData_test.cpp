// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqBinaryData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <vector>

#include "testing/temp_dir.h"
#include "tqfd/StringConverter.h"
#include "tqimage/TqImage.h"

namespace tqorkit {
namespace {

using Cells = std::vector<std::uint16_t>;
using tqtortho::testing::TempDir;

std::wstring Wide(const std::string& path) { return tqfd::StringConverter::Convert(path); }

TEST(BinaryDataTest, BlocksInAnyOrderReadBackAsOneRaster) {
  const TempDir dir;
  const std::string path = dir.File("ot/pix_map.bin");
  constexpr int kWidth = 700, kHeight = 531;
  std::mt19937 random(7);
  Cells truth(static_cast<std::size_t>(kWidth) * kHeight, 0);
  tqBinaryData map;
  ASSERT_TRUE(map.Create(path, kWidth, kHeight, 2));
  for (int block = 0; block < 40; ++block) {
    const int col = static_cast<int>(random() % kWidth), row = static_cast<int>(random() % kHeight);
    const int width = 1 + static_cast<int>(random() % static_cast<unsigned>(kWidth - col));
    const int height = 1 + static_cast<int>(random() % static_cast<unsigned>(kHeight - row));
    Cells cells(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (auto& cell : cells) cell = static_cast<std::uint16_t>(random() % 65536);
    ASSERT_TRUE(map.SaveBlkData(col, row, width, height, cells.data()));
    for (int r = 0; r < height; ++r) {
      for (int c = 0; c < width; ++c) {
        truth[static_cast<std::size_t>((row + r) * kWidth + col + c)] =
            cells[static_cast<std::size_t>(r * width + c)];
      }
    }
  }
  EXPECT_FALSE(std::filesystem::exists(path)) << "the name belongs to complete files";
  ASSERT_TRUE(map.Close());
  ASSERT_TRUE(map.Open(Wide(path)));
  EXPECT_EQ(map.GetWidth(), kWidth);
  EXPECT_EQ(map.GetHeight(), kHeight);
  EXPECT_EQ(map.GetBytesPerCell(), 2);
  Cells all(truth.size());
  ASSERT_TRUE(map.ReadBlkData(0, 0, kWidth, kHeight, all.data()));
  EXPECT_EQ(all, truth);
  Cells part(static_cast<std::size_t>(20) * 3);
  ASSERT_TRUE(map.ReadBlkData(250, 255, 270, 258, part.data())) << "ends, not a size";
  EXPECT_EQ(part[0], truth[static_cast<std::size_t>(255 * kWidth + 250)]);
  EXPECT_EQ(part[59], truth[static_cast<std::size_t>(257 * kWidth + 269)]);
}

TEST(BinaryDataTest, OtherProgramsSeeAPlacedRasterOfPhotoNumbers) {
  const TempDir dir;
  const std::string path = dir.File("pix_map.bin");
  const double transform[] = {1000.5, 0.25, 0, 2000.5, 0, -0.25};
  tqBinaryData map;
  ASSERT_TRUE(map.Create(path, 4, 3));
  ASSERT_TRUE(map.SetGeoCoefficients({transform, 4, 3}));
  const Cells row{7, 0, 65535, 1};
  ASSERT_TRUE(map.SaveBlkData(0, 1, 4, 1, row.data()));
  ASSERT_TRUE(map.Close());
  tqimage::TqImage image;
  ASSERT_TRUE(image.Open(path, true));
  EXPECT_EQ(image.GetDataType(), tqimage::kUInt16);
  EXPECT_EQ(image.GetGeoCoefficients().GetOrigin(), (tqfd::Point2_T<double>{1000.5, 2000.5}));
  Cells cells(4);
  ASSERT_TRUE(image.ReadImage(0, {0, 1, 4, 2}, tqimage::kUInt16, cells.data()));
  EXPECT_EQ(cells, row);
}

// Ground without photos is most of many jobs' bounding box.
TEST(BinaryDataTest, CellsNeverWrittenTakeNoSpaceAndReadAsZero) {
  const TempDir dir;
  const std::string path = dir.File("pix_map.bin");
  tqBinaryData map;
  ASSERT_TRUE(map.Create(path, 40000, 40000));
  const Cells one{9};
  ASSERT_TRUE(map.SaveBlkData(39999, 39999, 1, 1, one.data()));
  ASSERT_TRUE(map.Close());
  EXPECT_LT(std::filesystem::file_size(path), 200'000U);
  ASSERT_TRUE(map.Open(Wide(path)));
  Cells cells(4, 1);
  ASSERT_TRUE(map.ReadBlkData(39998, 39998, 40000, 40000, cells.data()));
  EXPECT_THAT(cells, ::testing::ElementsAre(0, 0, 0, 9));
}

TEST(BinaryDataTest, BlocksOutsideTheRasterAndMissingFilesAreRefused) {
  const TempDir dir;
  Cells cells(100);
  tqBinaryData map;
  EXPECT_FALSE(map.Open(Wide(dir.File("none.bin"))));
  EXPECT_FALSE(map.ReadBlkData(0, 0, 1, 1, cells.data()));
  EXPECT_FALSE(map.Close());
  EXPECT_FALSE(map.Create(dir.File("map.bin"), 10, 10, 3));
  ASSERT_TRUE(map.Create(dir.File("map.bin"), 10, 10));
  constexpr int kMost = std::numeric_limits<int>::max();
  constexpr int kBlocks[][4] = {{-1, 0, 2, 1},    {0, -1, 1, 2},    {9, 0, 2, 1},
                                {0, 9, 1, 2},     {0, 0, 0, 1},     {0, 0, 1, -1},
                                {0, 0, kMost, 1}, {0, 5, 1, kMost}, {kMost, 0, 1, 1}};
  for (const auto& b : kBlocks) {
    EXPECT_FALSE(map.SaveBlkData(b[0], b[1], b[2], b[3], cells.data())) << b[0] << " " << b[2];
  }
  constexpr int kEnds[][4] = {{-1, 0, 2, 1}, {0, 0, 11, 1}, {0, 0, 1, 11},
                              {5, 5, 5, 6},  {5, 5, 4, 6},  {0, 0, kMost, kMost}};
  for (const auto& b : kEnds) {
    EXPECT_FALSE(map.ReadBlkData(b[0], b[1], b[2], b[3], cells.data())) << b[0] << " " << b[2];
  }
  ASSERT_TRUE(map.Close());
  std::ofstream(dir.File("text.bin")) << "no raster";
  EXPECT_FALSE(map.Open(Wide(dir.File("text.bin"))));
}

}  // namespace
}  // namespace tqorkit
