// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_writer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

constexpr int kCols = 1300;
constexpr int kRows = 700;

/// Kind (0 picture, 1 overview, 4 mask, 5 overview of the mask) and compression of each image of a
/// little-endian TIFF file, read by hand.
std::vector<std::pair<int, int>> ImagesOf(const std::string& file) {
  const auto number = [&file](std::size_t at, std::size_t bytes) {
    std::uint32_t value = 0;
    if (at + bytes <= file.size()) std::memcpy(&value, file.data() + at, bytes);
    return value;
  };
  std::vector<std::pair<int, int>> images;
  for (std::size_t at = number(4, 4); at != 0 && images.size() < 50;) {
    images.emplace_back(0, 0);
    const std::size_t tags = number(at, 2);
    for (std::size_t tag = 0; tag < tags; ++tag) {
      const std::size_t entry = at + 2 + 12 * tag;
      if (number(entry, 2) == 254) images.back().first = static_cast<int>(number(entry + 8, 4));
      if (number(entry, 2) == 259) images.back().second = static_cast<int>(number(entry + 8, 2));
    }
    at = number(at + 2 + 12 * tags, 4);
  }
  return images;
}

// Every format must open elsewhere: cloud-optimised, with overviews, and with what is empty told by
// an alpha band, or by an internal mask where the compression has no room for one.
TEST(MosaicWriterTest, ProductsAreCloudOptimisedAndSayWhatIsEmpty) {
  const tqtortho::testing::TempDir dir;
  MosaicGrid grid{500000, 5400000, 0.5, kCols, kRows, ""};
  std::vector<std::uint8_t> pixels(3 * kCols * kRows, 0);
  std::vector<std::uint8_t> alpha(kCols * kRows, 0);
  for (int i = 0; i < kCols * kRows; ++i) {
    const int row = i / kCols;
    const int col = i % kCols;
    if (col < 300 + row / 4) continue;
    alpha[i] = 255;
    for (int b = 0; b < 3; ++b) pixels[3 * i + b] = 60 + row / 8 + col / 20 * (b == 1);
  }
  const std::vector<std::uint16_t> source(alpha.begin(), alpha.end());
  struct Case {
    const char* compression;
    int code;
    std::vector<int> kinds;
    int bands;
    double meanSquare;
  };
  for (const Case& expected :
       {Case{"jpeg", 7, {0, 4, 1, 1, 5, 5}, 3, 4}, Case{"zstd", 50000, {0, 1, 1}, 4, 0},
        Case{"deflate", 8, {0, 1, 1}, 4, 0}}) {
    SCOPED_TRACE(expected.compression);
    MosaicFormat format;
    format.compression = expected.compression;
    std::string error;
    {
      MosaicWriter writer;
      ASSERT_TRUE(writer.Start(dir.File("out"), dir.File("work"), grid, format, error)) << error;
      ASSERT_TRUE(writer.Write(
          {0, 0, kCols, kRows, pixels.data(), alpha.data(), source.data(), alpha.data()}));
      ASSERT_TRUE(writer.Finish({{1, "a.jpg"}}, {}, error)) << error;
    }
    const std::string bytes = tqtortho::testing::ReadText(dir.File("out/mosaic.tif"));
    EXPECT_NE(bytes.substr(0, 300).find("LAYOUT=IFDS_BEFORE_DATA"), std::string::npos);
    std::vector<int> kinds;
    for (const auto& [kind, compression] : ImagesOf(bytes)) {
      kinds.push_back(kind);
      if ((kind & 4) == 0) {
        EXPECT_EQ(compression, expected.code);
      }
    }
    EXPECT_EQ(kinds, expected.kinds);
    tqorkit::PhotoInfo image;
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(dir.File("out/mosaic.tif"), image, nullptr));
    ASSERT_EQ(image.bands, expected.bands);
    double sum = 0;
    int cells = 0;
    for (std::size_t i = 0; i < alpha.size(); ++i) {
      if (image.bands == 4) {
        ASSERT_EQ(image.data[4 * i + 3], alpha[i]);
      }
      if (alpha[i] == 0) continue;
      const int off = image.data[image.bands * i + 1] - pixels[3 * i + 1];
      sum += off * off;
      ++cells;
    }
    EXPECT_LE(sum / cells, expected.meanSquare);
  }
}

}  // namespace
}  // namespace tqtortho::host
