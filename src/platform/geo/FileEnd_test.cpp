// SPDX-License-Identifier: Apache-2.0
#include "geo/FileEnd.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "geo/CellSample.h"
#include "geo/ImageCodec.h"
#include "geo/RasterTools.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace geo {
namespace {

using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

TEST(EndsEarlyTest, PicturesCutAnywhereAreFoundAndWholeOnesAreNot) {
  const TempDir dir;
  tqorkit::PhotoInfo noise;
  noise.width = 300;
  noise.height = 200;
  noise.bands = 3;
  std::mt19937 random(7);
  for (int i = 0; i < 300 * 200 * 3; ++i) {
    noise.data.push_back(static_cast<std::uint8_t>(random() % 256));
  }
  const std::string jpeg = EncodeJpeg(noise.data.data(), 300, 200, 3, 90);
  // A preview in a segment before the picture has an end mark of its own.
  const std::string preview = jpeg.substr(0, 9000) + "\xFF\xD9";
  const auto length = static_cast<int>(preview.size()) + 2;
  const std::string segment = std::string("\xFF\xE1") + static_cast<char>(length >> 8) +
                              static_cast<char>(length & 255) + preview;
  dir.Write("a.jpg", jpeg.substr(0, 2) + segment + jpeg.substr(2));
  dir.Write("notes.jpg", jpeg + std::string(5000, 'n'));
  ASSERT_TRUE(WritePng(dir.File("a.png"), noise.data.data(), 300, 200, 3));
  ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(dir.File("a.tif"), noise, nullptr, true));
  EXPECT_FALSE(EndsEarly(dir.File("notes.jpg")));
  for (const char* name : {"a.jpg", "a.png", "a.tif"}) {
    EXPECT_FALSE(EndsEarly(dir.File(name))) << name;
    const std::string whole = ReadText(dir.File(name));
    for (const double share : {0.05, 0.3, 0.7, 0.98}) {
      dir.Write("cut", whole.substr(0, static_cast<std::size_t>(share * whole.size())));
      // A TIFF whose directory is cut off is no TIFF any more: others say so.
      geo::RasterSummary summary;
      std::string why;
      EXPECT_TRUE(EndsEarly(dir.File("cut")) || !DescribeRaster(dir.File("cut"), summary, why))
          << name << " " << share;
    }
  }
}

TEST(SampleCellsTest, ASampleOfALargeSurfaceHasItsShareOfEmptyCellsAndItsMean) {
  const TempDir dir;
  constexpr int kSide = 3000;  // more cells than are looked at
  std::vector<float> cells;
  for (int row = 0; row < kSide; ++row) {
    for (int col = 0; col < kSide; ++col) {
      cells.push_back(col < kSide / 4 ? -32767 : static_cast<float>(row));
    }
  }
  const double noData = -32767;
  ASSERT_TRUE(tqtortho::testing::WriteRaster(dir.File("dsm.tif"), tqimage::kFloat32, cells.data(),
                                             kSide, kSide, {}, &noData));
  CellSample sample;
  ASSERT_TRUE(SampleCells(dir.File("dsm.tif"), sample));
  EXPECT_LT(sample.looked, 5'000'000);
  EXPECT_NEAR(static_cast<double>(sample.heights.size()) / static_cast<double>(sample.looked), 0.75,
              0.04);
  double sum = 0;
  for (const float h : sample.heights) sum += h;
  EXPECT_NEAR(sum / static_cast<double>(sample.heights.size()), kSide / 2, 0.04 * kSide);
}

}  // namespace
}  // namespace geo
