// SPDX-License-Identifier: Apache-2.0
#include "geo/ScaledRead.h"

#include <cpl_conv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>

#include "geo/ImageCodec.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace geo {
namespace {

using ::testing::ElementsAre;
using tqimage::TqImage;
using tqtortho::testing::TempDir;

template <class T>
std::string WriteRaster(const TempDir& dir, int cols, int rows, int type,
                        const std::vector<T>& cells, double noData) {
  const std::string path = dir.File("raster.tif");
  EXPECT_TRUE(tqtortho::testing::WriteRaster(path, type, cells.data(), cols, rows, {}, &noData));
  return path;
}

TEST(ScaledReadTest, NumbersComeFromTheCellUnderTheMiddleAlsoOfFractionalWindows) {
  const TempDir dir;
  constexpr int kCols = 23, kRows = 17;
  std::vector<std::uint16_t> cells(kCols * kRows);
  std::iota(cells.begin(), cells.end(), 300);
  const std::string path = WriteRaster(dir, kCols, kRows, tqimage::kUInt16, cells, 0);
  const ScaledWindow windows[] = {{0, 0, kCols, kRows, kCols, kRows},
                                  {0, 0, kCols, kRows, 5, 4},
                                  {3.4, 2.7, 10.2, 9.1, 4, 3},
                                  {20.25, 14.5, 2.75, 2.5, 11, 9},
                                  {5.5, 6.25, 0.4, 0.3, 2, 2}};
  for (const ScaledWindow& w : windows) {
    std::vector<std::uint16_t> read;
    ASSERT_TRUE(ReadScaled(path, 1, w, Scaling::kNearest, read));
    for (int row = 0; row < w.outRows; ++row) {
      for (int col = 0; col < w.outCols; ++col) {
        const int c = static_cast<int>(std::floor(w.col + (col + 0.5) * w.cols / w.outCols));
        const int r = static_cast<int>(std::floor(w.row + (row + 0.5) * w.rows / w.outRows));
        EXPECT_EQ(read[row * w.outCols + col], cells[r * kCols + c])
            << "window at " << w.col << ", cell " << row << " " << col;
      }
    }
  }
  std::vector<std::uint16_t> read;
  EXPECT_FALSE(ReadScaled(path, 1, {15, 0, 10, 5, 5, 5}, Scaling::kNearest, read));
  EXPECT_FALSE(ReadScaled(path, 2, windows[0], Scaling::kNearest, read));
  EXPECT_FALSE(ReadScaled(path, 1, {0, 0, 5, 5, 0, 5}, Scaling::kNearest, read));
  EXPECT_FALSE(ReadScaled(dir.File("none.tif"), 1, windows[0], Scaling::kNearest, read));
}

TEST(ScaledReadTest, MeansLeaveEmptyCellsOut) {
  const TempDir dir;
  constexpr float kNone = -9999;
  const std::string path = WriteRaster<float>(dir, 4, 2, tqimage::kFloat32,
                                              {1, 3, kNone, kNone, 5, kNone, kNone, kNone}, kNone);
  std::vector<float> read;
  ASSERT_TRUE(ReadScaled(path, 1, {0, 0, 4, 2, 2, 1}, Scaling::kSmooth, read));
  EXPECT_THAT(read, ElementsAre(3, kNone));
}

TEST(ImageCodecTest, PicturesAndBytesComeBack) {
  const TempDir dir;
  constexpr int kSide = 64;
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < kSide * kSide; ++i) {
    pixels.insert(pixels.end(), {static_cast<std::uint8_t>(2 * (i % kSide)),
                                 static_cast<std::uint8_t>(3 * (i / kSide)), 90});
  }
  const std::string jpeg = EncodeJpeg(pixels.data(), kSide, kSide, 3, 90);
  tqorkit::PhotoInfo back;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.Write("p.jpg", jpeg), back, nullptr));
  ASSERT_EQ(back.data.size(), pixels.size());
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    ASSERT_LE(std::abs(back.data[i] - pixels[i]), 12) << i;
  }
  EXPECT_EQ(EncodeJpeg(pixels.data(), 0, kSide, 3, 90), "");

  const std::string stream = Deflate(pixels.data(), pixels.size());
  std::vector<std::uint8_t> inflated(pixels.size() + 1);
  std::size_t length = 0;
  ASSERT_NE(CPLZLibInflate(stream.data(), stream.size(), inflated.data(), inflated.size(), &length),
            nullptr);
  inflated.resize(length);
  EXPECT_EQ(inflated, pixels);
}

}  // namespace
}  // namespace geo
