// SPDX-License-Identifier: Apache-2.0
#include "geo/RasterTools.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <limits>

#include "geo/Crs.h"
#include "internal/gdal_raster.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace geo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using tqtortho::testing::RasterPlace;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

PhotoInfo Flat(int width, int height, int bands, std::uint8_t value) {
  PhotoInfo image;
  image.width = width;
  image.height = height;
  image.bands = bands;
  image.data.assign(static_cast<std::size_t>(width * height * bands), value);
  return image;
}

TEST(FillNoDataTest, OnlyHolesNearDataAreFilledAndFromTheirSurroundings) {
  constexpr int kSide = 40;
  constexpr float kNone = -9999;
  std::vector<float> heights(kSide * kSide, 7);
  const auto at = [&](int row, int col) -> float& {
    return heights[static_cast<std::size_t>(row * kSide + col)];
  };
  at(5, 5) = kNone;
  at(5, 6) = std::numeric_limits<float>::quiet_NaN();
  for (int row = 20; row < kSide; ++row) {
    for (int col = 0; col < kSide; ++col) at(row, col) = kNone;  // no data beyond row 19
  }
  ASSERT_TRUE(FillNoData(heights, kSide, kSide, kNone, 3));
  EXPECT_NEAR(at(5, 5), 7, 1e-5);
  EXPECT_NEAR(at(5, 6), 7, 1e-5);
  EXPECT_NEAR(at(21, 10), 7, 1e-5);
  EXPECT_EQ(at(30, 10), kNone);
  EXPECT_EQ(at(0, 0), 7);
  std::vector<float> few(3);
  EXPECT_FALSE(FillNoData(few, 2, 2, kNone, 3));
}

TEST(BuildVrtTest, SourcesLieSideBySideUnderRelativeNames) {
  const TempDir dir;
  const GeoCoefficients westGeo = RasterPlace{1000.5, 4999.5, 1, ""}.Coefficients(10, 10);
  const GeoCoefficients eastGeo = RasterPlace{1010.5, 4999.5, 1, ""}.Coefficients(10, 10);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("t/w.tif"), Flat(10, 10, 3, 50), &westGeo, true));
  PhotoInfo partial = Flat(10, 10, 3, 90);
  partial.data[0] = partial.data[1] = partial.data[2] = 0;
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("t/e.tif"), partial, &eastGeo, true));
  const std::string vrt = dir.File("all.vrt");
  ASSERT_TRUE(BuildVrt(vrt, {dir.File("t/w.tif"), dir.File("t/e.tif")}, 0));
  const std::string text = ReadText(vrt);
  EXPECT_THAT(text, HasSubstr(">t/w.tif<"));
  EXPECT_THAT(text, Not(HasSubstr(dir.Path())));
  EXPECT_THAT(text, HasSubstr("<NoDataValue>0</NoDataValue>"));

  // The folder can be moved as a whole.
  const TempDir other;
  std::filesystem::rename(dir.File("t"), other.File("t"));
  std::filesystem::rename(vrt, other.File("all.vrt"));
  PhotoInfo image;
  GeoCoefficients geo;
  ASSERT_TRUE(TqImage::QuickReadImage(other.File("all.vrt"), image, &geo));
  EXPECT_EQ(image.width, 20);
  EXPECT_EQ(geo.GetOrigin(), westGeo.GetOrigin());
  EXPECT_EQ(image.data[0], 50);
  EXPECT_EQ(image.data[30], 0);
  EXPECT_EQ(image.data[33], 90);
}

TEST(BuildVrtTest, ASourceThatDoesNotFitFailsAndLeavesNothing) {
  const TempDir dir;
  const GeoCoefficients geo = RasterPlace{0.5, 9.5, 1, ""}.Coefficients(10, 10);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("rgb.tif"), Flat(10, 10, 3, 50), &geo, true));
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("one.tif"), Flat(10, 10, 1, 50), &geo, true));
  dir.Write("no.tif", "text");
  for (const char* other : {"one.tif", "no.tif", "missing.tif"}) {
    EXPECT_FALSE(BuildVrt(dir.File("a.vrt"), {dir.File("rgb.tif"), dir.File(other)}, -1)) << other;
  }
  EXPECT_FALSE(BuildVrt(dir.File("a.vrt"), {}, -1));
  EXPECT_EQ(dir.FileCount(), 3);
}

TEST(WritePngTest, PixelsSurviveAndNoSideFileAppears) {
  const TempDir dir;
  for (const int bands : {1, 3, 4}) {
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < 5 * 4 * bands; ++i) pixels.push_back(static_cast<std::uint8_t>(i * 3));
    ASSERT_TRUE(WritePng(dir.File("a.png"), pixels.data(), 5, 4, bands));
    EXPECT_EQ(ReadText(dir.File("a.png")).substr(1, 3), "PNG");
    PhotoInfo image;
    ASSERT_TRUE(TqImage::QuickReadImage(dir.File("a.png"), image, nullptr));
    EXPECT_EQ(image.data, pixels) << bands;
  }
  EXPECT_EQ(dir.FileCount(), 1);
  EXPECT_FALSE(WritePng(dir.File("b.png"), nullptr, 5, 4, 1));
  const std::uint8_t two[2] = {};
  EXPECT_FALSE(WritePng(dir.File("b.png"), two, 1, 1, 2));
}

TEST(ReadReducedTest, AveragesAndKeepsTheShape) {
  const TempDir dir;
  PhotoInfo image = Flat(400, 200, 3, 0);
  for (std::size_t i = 0; i < image.data.size(); i += 6) image.data[i] = 200;  // every second red
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("a.tif"), image, nullptr, true));
  std::vector<std::uint8_t> data;
  int width = 0;
  int height = 0;
  int bands = 0;
  ASSERT_TRUE(ReadReduced(dir.File("a.tif"), 100, data, width, height, bands));
  EXPECT_EQ(width, 100);
  EXPECT_EQ(height, 50);
  EXPECT_EQ(bands, 3);
  ASSERT_EQ(data.size(), 15000u);
  EXPECT_EQ(data[3 * 50], 100);
  EXPECT_EQ(data[3 * 50 + 1], 0);
  ASSERT_TRUE(ReadReduced(dir.File("a.tif"), 5000, data, width, height, bands));
  EXPECT_EQ(data, image.data);
  EXPECT_FALSE(ReadReduced(dir.File("a.tif"), 0, data, width, height, bands));
  EXPECT_FALSE(ReadReduced(dir.File("missing.tif"), 10, data, width, height, bands));
}

TEST(DescribeRasterTest, SaysWhatTheFileIsOrWhyItIsNone) {
  const TempDir dir;
  const RasterPlace place{1000.5, 4999.5, 1, CrsToWkt("EPSG:32651")};
  const GeoCoefficients geo = place.Coefficients(10, 12);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("a.tif"), Flat(10, 12, 3, 50), &geo, true));
  RasterSummary summary;
  std::string error;
  ASSERT_TRUE(DescribeRaster(dir.File("a.tif"), summary, error)) << error;
  EXPECT_EQ(summary.width, 10);
  EXPECT_EQ(summary.height, 12);
  EXPECT_EQ(summary.bands, 3);
  EXPECT_EQ(summary.sampleType, "Byte");
  EXPECT_EQ(summary.format, "GTiff");
  EXPECT_TRUE(summary.hasGeoreference);
  EXPECT_FALSE(summary.rotated);
  EXPECT_FALSE(summary.palette);
  EXPECT_EQ(summary.coefficients.GetOrigin(), geo.GetOrigin());

  for (const auto& terms :
       {std::array<double, 6>{0, 1, 0.1, 0, 0, -1}, std::array<double, 6>{0, 1, 0, 0, 0, 1}}) {
    {
      const tqimage::GdalScope scope;
      const tqimage::DatasetPtr file = tqimage::OpenRaster(dir.File("a.tif"), true);
      std::array<double, 6> changed = terms;
      ASSERT_EQ(file->SetGeoTransform(changed.data()), CE_None);
    }
    ASSERT_TRUE(DescribeRaster(dir.File("a.tif"), summary, error));
    EXPECT_TRUE(summary.rotated);
  }
  EXPECT_FALSE(DescribeRaster(dir.File("missing.tif"), summary, error));
  EXPECT_THAT(error, HasSubstr("no such file"));
  EXPECT_FALSE(DescribeRaster(dir.Write("b.tif", "text"), summary, error));
  EXPECT_THAT(error, HasSubstr("not a raster"));
}

}  // namespace
}  // namespace geo
