// SPDX-License-Identifier: Apache-2.0
#include "tqimage/TqImage.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <thread>

#include "geo/Crs.h"
#include "internal/gdal_raster.h"
#include "testing/full_disk.h"
#include "testing/temp_dir.h"

namespace tqimage {
namespace {

using ::testing::DoubleEq;
using ::testing::Each;
using ::testing::ElementsAre;
using tqtortho::testing::FullDisk;
using tqtortho::testing::TempDir;

using Cells = tqfd::Rect2_T<int>;

GeoCoefficients Georeference(int cols, int rows) {
  const double transform[6] = {298000.25, 0.5, 0, 2731000.75, 0, -0.5};
  GeoCoefficients geo(transform, cols, rows);
  geo.SetProjection(geo::CrsToWkt("EPSG:32651"));
  return geo;
}

/// Writes one-band floats the plain GDAL way, with a corner-based transform of its own.
void WriteFloats(const std::string& path, const std::vector<float>& cells, int cols, int rows,
                 const double* noData, GDALDataType type = GDT_Float32) {
  const GdalScope scope;
  DatasetPtr file(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.c_str(), cols, rows,
                                                                           1, type, nullptr));
  double corner[6] = {1000, 2, 0, 5000, 0, -2};
  file->SetGeoTransform(corner);
  if (noData != nullptr) file->GetRasterBand(1)->SetNoDataValue(*noData);
  ASSERT_EQ(
      file->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, cols, rows, const_cast<float*>(cells.data()),
                                       cols, rows, GDT_Float32, 0, 0, nullptr),
      CE_None);
}

TEST(TqImageTest, FilesHoldCornersAndTheLibraryHoldsCentres) {
  const TempDir dir;
  const std::string path = dir.File("a.jpg");  // a GeoTIFF whatever its name
  TqImage image;
  ASSERT_TRUE(image.Create(path, 300, 280, 1, kByte, kGeoTiff, true));
  EXPECT_TRUE(image.SetGeoCoefficients(Georeference(300, 280)));
  ASSERT_TRUE(image.Close());

  const GdalScope scope;
  const DatasetPtr raw = OpenRaster(path, false);
  ASSERT_NE(raw, nullptr);
  double corner[6];
  ASSERT_EQ(raw->GetGeoTransform(corner), CE_None);
  EXPECT_THAT(corner, ElementsAre(DoubleEq(298000.0), 0.5, 0, DoubleEq(2731001.0), 0, -0.5));
  EXPECT_STREQ(raw->GetDriver()->GetDescription(), "GTiff");
  EXPECT_NE(raw->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), nullptr);
  int block[2] = {};
  raw->GetRasterBand(1)->GetBlockSize(&block[0], &block[1]);
  EXPECT_THAT(block, Each(256));

  ASSERT_TRUE(image.Open(path, true));
  EXPECT_TRUE(image.HasGeoreference());
  const GeoCoefficients back = image.GetGeoCoefficients();
  EXPECT_DOUBLE_EQ(back.GetOrigin().x, 298000.25);
  EXPECT_DOUBLE_EQ(back.GetOrigin().y, 2731000.75);
  EXPECT_EQ(back.GetResolution(), (tqfd::Point2_T<double>{0.5, -0.5}));
  EXPECT_EQ(back.GetWidth(), 300);
  EXPECT_EQ(back.GetHeight(), 280);
  EXPECT_EQ(geo::DescribeCrs(back.GetProjection())->authority, "EPSG:32651");
}

TEST(TqImageTest, WithoutAGeoreferenceTheOriginIsZeroAndRowsRunSouth) {
  const TempDir dir;
  TqImage image;
  ASSERT_TRUE(image.Create(dir.File("plain.tif"), 4, 3, 1, kByte, kGeoTiff, true));
  ASSERT_TRUE(image.Close());
  ASSERT_TRUE(image.Open(dir.File("plain.tif"), true));
  EXPECT_FALSE(image.HasGeoreference());
  EXPECT_EQ(image.GetGeoCoefficients().GetOrigin(), (tqfd::Point2_T<double>{0, 0}));
  EXPECT_EQ(image.GetGeoCoefficients().GetResolution(), (tqfd::Point2_T<double>{1, -1}));
  EXPECT_EQ(image.GetNoDataValue(0), 0);
  EXPECT_FALSE(image.HasNoDataValue(0));
}

TEST(TqImageTest, ANameAppearsOnlyWithACompleteFile) {
  const TempDir dir;
  const std::string path = dir.File("mask.tif");
  {
    TqImage dropped;
    ASSERT_TRUE(dropped.Create(path, 8, 8, 1, kByte, kGeoTiff, true));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(dir.FileCount(), 1);  // beside its target, on the same file system
  }
  EXPECT_EQ(dir.FileCount(), 0);
  TqImage kept;
  ASSERT_TRUE(kept.Create(path, 8, 8, 1, kByte, kGeoTiff, false));
  ASSERT_TRUE(kept.Close());
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_EQ(dir.FileCount(), 1);
  EXPECT_FALSE(kept.Create(path, 8, 8, 1, kByte, kGeoTiff, false));
  EXPECT_TRUE(kept.Create(path, 8, 8, 1, kByte, kGeoTiff, true));
  EXPECT_TRUE(kept.Close());
  EXPECT_FALSE(kept.Close());  // nothing is open any more
  EXPECT_EQ(dir.FileCount(), 1);
}

TEST(TqImageTest, ParentsAreMadeAndImpossibleFilesAreRefused) {
  const TempDir dir;
  TqImage image;
  EXPECT_TRUE(image.Create(dir.File("rs/a.tif"), 2, 2, 1, kByte, kGeoTiff, true));
  EXPECT_TRUE(image.Close());
  dir.Write("file", "x");
  const std::string file = dir.File("b.tif");
  EXPECT_FALSE(image.Create(dir.File("file/a.tif"), 2, 2, 1, kByte, kGeoTiff, true));
  EXPECT_FALSE(image.Create("", 2, 2, 1, kByte, kGeoTiff, true));
  for (const auto& [width, height, bands, type, format] :
       {std::array<int, 5>{0, 2, 1, kByte, kGeoTiff},
        {2, -2, 1, kByte, kGeoTiff},
        {2, 2, 0, kByte, kGeoTiff},
        {2, 2, 1, 0, kGeoTiff},
        {2, 2, 1, kByte, 3}}) {
    EXPECT_FALSE(image.Create(file, width, height, bands, type, format, true)) << width << height;
  }
  EXPECT_FALSE(image.Close());
  for (const auto& path : {dir.File("file"), dir.File("missing.tif"), std::string()}) {
    EXPECT_FALSE(image.Open(path, true)) << path;
  }
}

std::vector<std::uint8_t> Noise(std::size_t count) {
  std::mt19937 random(7);
  std::vector<std::uint8_t> bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

TEST(TqImageTest, AFullDiskFailsTheFileAndLeavesNothing) {
  const std::vector<std::uint8_t> noise = Noise(600 * 600);
  for (const rlim_t limit : {0, 200, 40000, 350000}) {
    const TempDir dir;
    {
      const FullDisk full(limit);
      TqImage image;
      const bool written = image.Create(dir.File("a.tif"), 600, 600, 1, kByte, kGeoTiff, true) &&
                           image.WriteImage(0, Cells{0, 0, 600, 600}, kByte, noise.data()) &&
                           image.Close();
      EXPECT_FALSE(written) << limit;
      tqorkit::PhotoInfo record;
      record.width = 600;
      record.height = 600;
      record.bands = 1;
      record.data = noise;
      EXPECT_FALSE(TqImage::QuickWriteImage(dir.File("b.tif"), record, nullptr, true)) << limit;
    }
    EXPECT_EQ(dir.FileCount(), 0) << limit;
  }
}

TEST(TqImageTest, RectanglesThatReachOutsideLieAtTheirTruePlace) {
  const TempDir dir;
  constexpr int kCols = 7;
  constexpr int kRows = 5;
  std::vector<float> heights(kCols * kRows);
  for (std::size_t i = 0; i < heights.size(); ++i) heights[i] = 100 + static_cast<float>(i);
  const double noData = -32767;
  WriteFloats(dir.File("dsm.tif"), heights, kCols, kRows, &noData);
  TqImage image;
  ASSERT_TRUE(image.Open(dir.File("dsm.tif"), true));
  const Cells cases[] = {
      {0, 0, 7, 5},   {2, 1, 5, 4},     {-3, -2, 4, 3}, {5, 3, 12, 9}, {-2, -2, 9, 8},
      {20, 0, 25, 3}, {-9, -9, -4, -4}, {0, 5, 7, 6},   {7, 0, 8, 5},  {-1, 2, 0, 3},
  };
  for (const Cells& rect : cases) {
    std::vector<float> expected;
    for (int row = rect.minY; row < rect.maxY; ++row) {
      for (int col = rect.minX; col < rect.maxX; ++col) {
        const bool inside = row >= 0 && row < kRows && col >= 0 && col < kCols;
        expected.push_back(inside ? heights[static_cast<std::size_t>(row * kCols + col)] : -32767);
      }
    }
    const auto readAs = [&](auto sample, int type) {
      std::vector<decltype(sample)> got(expected.size(), 1);
      EXPECT_TRUE(image.ReadImage(0, rect, type, got.data()));
      return std::vector<float>(got.begin(), got.end());
    };
    EXPECT_EQ(readAs(float{}, kFloat32), expected) << rect.minX << " " << rect.minY;
    EXPECT_EQ(readAs(double{}, kFloat64), expected) << rect.minX << " " << rect.minY;
    EXPECT_EQ(readAs(std::int16_t{}, kInt16), expected) << rect.minX << " " << rect.minY;
  }
  float one = 0;
  for (const Cells& rect : {Cells{3, 3, 3, 4}, {3, 3, 2, 4}, {}}) {
    EXPECT_FALSE(image.ReadImage(0, rect, kFloat32, &one));
  }
  for (const int band : {1, -1}) {
    EXPECT_FALSE(image.ReadImage(band, Cells{0, 0, 1, 1}, kFloat32, &one));
  }
  EXPECT_FALSE(image.ReadImage(0, Cells{0, 0, 1, 1}, 0, &one));
}

TEST(TqImageTest, OutsideAByteRasterIsZeroEvenWithANoDataValue) {
  const TempDir dir;
  TqImage image;
  const std::uint8_t cells[] = {1, 2, 3, 4};
  ASSERT_TRUE(image.Create(dir.File("m.tif"), 2, 2, 1, kByte, kGeoTiff, true));
  ASSERT_TRUE(image.SetNoDataValue(0, 9));
  ASSERT_TRUE(image.WriteImage(0, Cells{0, 0, 2, 2}, kByte, cells));
  ASSERT_TRUE(image.Close());
  ASSERT_TRUE(image.Open(dir.File("m.tif"), true));
  EXPECT_EQ(image.GetNoDataValue(0), 9);
  std::uint8_t got[9];
  ASSERT_TRUE(image.ReadImage(0, Cells{-1, -1, 2, 2}, kByte, got));
  EXPECT_THAT(got, ElementsAre(0, 0, 0, 0, 1, 2, 0, 3, 4));
}

TEST(TqImageTest, UnusableNoDataAndCellsThatAreNoNumbersBecomeOneValue) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  constexpr float kLowest = std::numeric_limits<float>::lowest();
  struct Case {
    const char* what;
    bool named;
    double noData;
    double reads;  ///< GetNoDataValue
    std::vector<float> cells;
    std::vector<float> clean;
  };
  const Case cases[] = {
      {"NaN", true, kNan, -9999, {1, kNan, kInf, 0}, {1, -9999, -9999, 0}},
      {"infinite", true, -kInf, -9999, {1, -kInf, kNan, 0}, {1, -9999, -9999, 0}},
      {"lowest float", true, kLowest, -9999, {1, kLowest, kNan, 0}, {1, -9999, -9999, 0}},
      {"few digits", true, -3.4e38, -9999, {1, kLowest, kNan, 0}, {1, -9999, -9999, 0}},
      {"1e20", true, 1e20, -9999, {1, 1e20F, kLowest, 0}, {1, -9999, kLowest, 0}},
      {"at the limit", true, 1e6, 1e6, {1, 1e6F, kNan, 0}, {1, 1e6F, 1e6F, 0}},
      {"usual", true, -32767, -32767, {1, -32767, kNan, kInf}, {1, -32767, -32767, -32767}},
      {"narrowed", true, -9999.1, -9999.1F, {-9999.1F, kNan, 0, 0}, {-9999.1F, -9999.1F, 0, 0}},
      {"none", false, 0, 0, {1, kNan, -kInf, 0}, {1, -9999, -9999, 0}},
  };
  for (const GDALDataType type : {GDT_Float32, GDT_Float64}) {
    for (const Case& c : cases) {
      const TempDir dir;
      WriteFloats(dir.File("d.tif"), c.cells, 2, 2, c.named ? &c.noData : nullptr, type);
      TqImage image;
      ASSERT_TRUE(image.Open(dir.File("d.tif"), true));
      EXPECT_EQ(image.GetNoDataValue(0), c.reads) << c.what;
      EXPECT_EQ(image.HasNoDataValue(0), c.named) << c.what;
      std::vector<float> got(4);
      ASSERT_TRUE(image.ReadImage(0, Cells{0, 0, 2, 2}, kFloat32, got.data()));
      EXPECT_EQ(got, c.clean) << c.what;
      tqorkit::PhotoInfo record;
      ASSERT_TRUE(TqImage::QuickReadImage(dir.File("d.tif"), record, nullptr));
      EXPECT_EQ(record.noData, c.reads) << c.what;
      EXPECT_EQ(record.dataType, kFloat32);
      EXPECT_EQ(std::memcmp(record.data.data(), c.clean.data(), 16), 0) << c.what;
    }
  }
}

// Surface models that name no no-data value are common; every reader of heights goes by this.
TEST(TqImageTest, CellsWithoutAHeightAreWhatTheReaderAsksFor) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const double zero = 0;
  const double usual = -32767;
  struct Case {
    const double* named;
    GDALDataType type;
    float asked;
    std::vector<float> cells;  ///< 2 x 2
    std::vector<float> read;   ///< the column before them and they themselves
  };
  const Case cases[] = {
      {nullptr, GDT_Float32, 0, {5, kNan, -9999, 0}, {0, 5, 0, 0, 0, 0}},
      {nullptr, GDT_Float32, -9999, {5, kNan, -9999, 0}, {-9999, 5, -9999, -9999, -9999, 0}},
      {nullptr, GDT_Int16, -9999, {5, 7, -9999, 0}, {-9999, 5, 7, -9999, -9999, 0}},
      {&usual,
       GDT_Float32,
       -32767,
       {5, kNan, -9999, -32767},
       {-32767, 5, -32767, -32767, -9999, -32767}},
      {&usual, GDT_Float64, -1, {5, kNan, -9999, -32767}, {-1, 5, -1, -1, -9999, -1}},
      {&zero, GDT_Float32, -9999, {5, kNan, 3, 0}, {-9999, 5, -9999, -9999, 3, -9999}},
  };
  for (const Case& c : cases) {
    const TempDir dir;
    WriteFloats(dir.File("d.tif"), c.cells, 2, 2, c.named, c.type);
    TqImage image;
    ASSERT_TRUE(image.Open(dir.File("d.tif"), true));
    std::vector<float> got(6);
    ASSERT_TRUE(image.ReadHeights(0, Cells{-1, 0, 2, 2}, c.asked, got.data()));
    EXPECT_EQ(got, c.read) << &c - cases;
  }
}

TEST(TqImageTest, PartsWrittenInAnyOrderMakeTheWholeRaster) {
  const TempDir dir;
  TqImage image;
  ASSERT_TRUE(image.Create(dir.File("a.tif"), 500, 400, 2, kUInt16, kGeoTiff, true));
  EXPECT_FALSE(image.WriteImage(0, Cells{-1, 0, 10, 10}, kUInt16, Noise(220).data()));
  EXPECT_FALSE(image.WriteImage(0, Cells{0, 0, 501, 1}, kUInt16, Noise(1002).data()));
  const std::vector<std::uint8_t> bytes = Noise(2 * 500 * 400);
  const auto* samples = reinterpret_cast<const std::uint16_t*>(bytes.data());
  for (int top = 300; top >= 0; top -= 100) {
    ASSERT_TRUE(image.WriteImage(1, Cells{0, top, 500, top + 100}, kUInt16, samples + top * 500));
  }
  ASSERT_TRUE(image.Close());
  ASSERT_TRUE(image.Open(dir.File("a.tif"), true));
  EXPECT_EQ(image.GetBandCount(), 2);
  EXPECT_EQ(image.GetDataType(), kUInt16);
  std::vector<std::uint16_t> got(500 * 400);
  ASSERT_TRUE(image.ReadImage(1, Cells{0, 0, 500, 400}, kUInt16, got.data()));
  EXPECT_EQ(std::memcmp(got.data(), samples, bytes.size()), 0);
  ASSERT_TRUE(image.ReadImage(0, Cells{0, 0, 500, 400}, kUInt16, got.data()));
  EXPECT_THAT(got, Each(0));
  EXPECT_FALSE(image.WriteImage(0, Cells{0, 0, 1, 1}, kUInt16, samples));  // read only
  EXPECT_TRUE(image.Close());

  ASSERT_TRUE(image.Open(dir.File("a.tif"), false));
  EXPECT_TRUE(image.WriteImage(0, Cells{2, 3, 3, 4}, kUInt16, samples));
  EXPECT_TRUE(image.Close());
  ASSERT_TRUE(image.Open(dir.File("a.tif"), true));
  ASSERT_TRUE(image.ReadImage(0, Cells{2, 3, 3, 4}, kUInt16, got.data()));
  EXPECT_EQ(got[0], samples[0]);
}

TEST(TqImageTest, ThreadsReadOneFileAndWriteTheirOwnAtOnce) {
  const TempDir dir;
  tqorkit::PhotoInfo record;
  record.width = 700;
  record.height = 600;
  record.bands = 3;
  record.data = Noise(700 * 600 * 3);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("shared.tif"), record, nullptr, true));
  std::vector<int> good(4, 0);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < good.size(); ++t) {
    threads.emplace_back([&, t] {
      const std::string own = dir.File("own" + std::to_string(t) + ".tif");
      for (int round = 0; round < 5; ++round) {
        tqorkit::PhotoInfo read;
        tqorkit::PhotoInfo again;
        const bool same = TqImage::QuickReadImage(dir.File("shared.tif"), read, nullptr) &&
                          read.data == record.data &&
                          TqImage::QuickWriteImage(own, read, nullptr, true) &&
                          // all threads replace one more file, which must stay whole all the time
                          TqImage::QuickWriteImage(dir.File("raced.tif"), read, nullptr, true) &&
                          TqImage::QuickReadImage(dir.File("raced.tif"), again, nullptr) &&
                          again.data == record.data;
        good[t] += same ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(good, Each(5));
  EXPECT_EQ(dir.FileCount(), 6);
}

}  // namespace
}  // namespace tqimage
