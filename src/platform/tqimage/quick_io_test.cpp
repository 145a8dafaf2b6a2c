// SPDX-License-Identifier: Apache-2.0
#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "internal/gdal_raster.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqimage {
namespace {

using ::testing::ElementsAre;
using tqorkit::PhotoInfo;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

PhotoInfo RandomRecord(int width, int height, int bands, int dataType, std::size_t sampleSize) {
  std::mt19937 random(static_cast<unsigned>(width + 31 * height + bands));
  PhotoInfo record;
  record.width = width;
  record.height = height;
  record.bands = bands;
  record.dataType = dataType;
  record.data.resize(static_cast<std::size_t>(width * height * bands) * sampleSize);
  for (std::uint8_t& byte : record.data) byte = static_cast<std::uint8_t>(random() % 100);
  return record;
}

/// A file of any format through GDAL itself.
void CopyAs(const char* driver, const std::string& path, const PhotoInfo& record,
            const GDALColorTable* palette = nullptr) {
  const GdalScope scope;
  auto* manager = GetGDALDriverManager();
  const DatasetPtr memory(manager->GetDriverByName("MEM")->Create("", record.width, record.height,
                                                                  record.bands, GDT_Byte, nullptr));
  ASSERT_EQ(memory->RasterIO(GF_Write, 0, 0, record.width, record.height,
                             const_cast<std::uint8_t*>(record.data.data()), record.width,
                             record.height, GDT_Byte, record.bands, nullptr, record.bands,
                             record.bands * record.width, 1, nullptr),
            CE_None);
  if (palette != nullptr) {
    memory->GetRasterBand(1)->SetColorTable(const_cast<GDALColorTable*>(palette));
  }
  const DatasetPtr file(manager->GetDriverByName(driver)->CreateCopy(path.c_str(), memory.get(), 0,
                                                                     nullptr, nullptr, nullptr));
  ASSERT_NE(file, nullptr);
}

TEST(QuickIoTest, RecordsOfAnyTypeAndShapeComeBackAsTheyWere) {
  const struct {
    int width, height, bands, dataType;
    std::size_t sampleSize;
  } cases[] = {
      {1, 1, 1, kByte, 1},       {300, 7, 3, kByte, 1},     {257, 256, 4, kByte, 1},
      {2100, 2050, 1, kByte, 1}, {300, 300, 3, kUInt16, 2}, {33, 44, 1, kFloat32, 4},
      {33, 44, 2, kInt16, 2},
  };
  const TempDir dir;
  const double transform[6] = {298000.25, 0.5, 0, 2731000.75, 0, -0.5};
  for (const auto& c : cases) {
    PhotoInfo record = RandomRecord(c.width, c.height, c.bands, c.dataType, c.sampleSize);
    if (c.dataType == kFloat32) record.noData = -9999;
    const GeoCoefficients geo(transform, c.width, c.height);
    for (const std::string& path : {dir.File("a.tif"), std::string("/vsimem/quick/a.tif")}) {
      ASSERT_TRUE(TqImage::QuickWriteImage(path, record, &geo, true));
      PhotoInfo back;
      GeoCoefficients geoBack;
      int bands = 0;
      ASSERT_TRUE(TqImage::QuickReadImage(path, back, &geoBack, 0, &bands));
      EXPECT_EQ(back.data, record.data) << c.width << " " << c.bands;
      EXPECT_EQ(back.width, c.width);
      EXPECT_EQ(back.height, c.height);
      EXPECT_EQ(back.bands, c.bands);
      EXPECT_EQ(bands, c.bands);
      EXPECT_EQ(back.dataType, c.dataType);
      EXPECT_EQ(back.noData, record.noData);
      EXPECT_EQ(geoBack.GetOrigin(), geo.GetOrigin());
      // Centres of the first and the last cell, as the rectangles of orthos have them.
      EXPECT_THAT(back.geoRect, ElementsAre(298000.25, 2731000.75 - 0.5 * (c.height - 1),
                                            298000.25 + 0.5 * (c.width - 1), 2731000.75));
      EXPECT_EQ(back.resX, 0.5);
      EXPECT_EQ(back.resY, -0.5);
    }
    VSIUnlink("/vsimem/quick/a.tif");
  }
}

TEST(QuickIoTest, BandsCanBeChosen) {
  const TempDir dir;
  const PhotoInfo record = RandomRecord(20, 10, 4, kByte, 1);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("a.tif"), record, nullptr, true));
  PhotoInfo part;
  int bands = 2;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("a.tif"), part, nullptr, 1, &bands));
  ASSERT_EQ(part.bands, 2);
  for (std::size_t i = 0; i < 200; ++i) {
    ASSERT_EQ(part.data[2 * i], record.data[4 * i + 1]);
    ASSERT_EQ(part.data[2 * i + 1], record.data[4 * i + 2]);
  }
  bands = 9;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("a.tif"), part, nullptr, 3, &bands));
  EXPECT_EQ(bands, 1);
  EXPECT_FALSE(TqImage::QuickReadImage(dir.File("a.tif"), part, nullptr, 4, nullptr));
  EXPECT_FALSE(TqImage::QuickReadImage(dir.File("a.tif"), part, nullptr, -1, nullptr));
}

TEST(QuickIoTest, PalettesBecomeColours) {
  const TempDir dir;
  GDALColorTable palette;
  const GDALColorEntry colours[] = {{10, 20, 30, 255}, {200, 100, 50, 255}, {1, 2, 3, 255}};
  for (int i = 0; i < 3; ++i) palette.SetColorEntry(i, &colours[i]);
  PhotoInfo indices = RandomRecord(2, 2, 1, kByte, 1);
  indices.data = {1, 0, 2, 1};
  CopyAs("PNG", dir.File("p.png"), indices, &palette);
  PhotoInfo image;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("p.png"), image, nullptr));
  EXPECT_EQ(image.bands, 3);
  EXPECT_THAT(image.data, ElementsAre(200, 100, 50, 10, 20, 30, 1, 2, 3, 200, 100, 50));
  int bands = 1;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("p.png"), image, nullptr, 2, &bands));
  EXPECT_THAT(image.data, ElementsAre(50, 30, 3, 50));
}

TEST(QuickIoTest, FormatsGoByContentNotByName) {
  const TempDir dir;
  const PhotoInfo record = RandomRecord(64, 48, 3, kByte, 1);
  CopyAs("PNG", dir.File("photo.tif"), record);
  PhotoInfo image;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("photo.tif"), image, nullptr));
  EXPECT_EQ(image.data, record.data);
  CopyAs("JPEG", dir.File("photo.png"), record);
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("photo.png"), image, nullptr));
  EXPECT_EQ(image.data.size(), record.data.size());
}

TEST(QuickIoTest, ATruncatedFileIsNoPhoto) {
  const TempDir dir;
  const PhotoInfo record = RandomRecord(800, 600, 3, kByte, 1);
  CopyAs("JPEG", dir.File("whole.jpg"), record);
  CopyAs("PNG", dir.File("whole.png"), record);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("whole.tif"), record, nullptr, true));
  PhotoInfo image;
  for (const char* extension : {".jpg", ".png", ".tif"}) {
    const std::string whole = ReadText(dir.File(std::string("whole") + extension));
    ASSERT_TRUE(
        TqImage::QuickReadImage(dir.File(std::string("whole") + extension), image, nullptr));
    for (const double part : {0.999, 0.9, 0.5, 0.05, 0.001, 0.0}) {
      const auto length = static_cast<std::size_t>(static_cast<double>(whole.size()) * part);
      const std::string path = dir.Write(std::string("cut") + extension, whole.substr(0, length));
      EXPECT_FALSE(TqImage::QuickReadImage(path, image, nullptr)) << extension << " " << part;
    }
  }
  EXPECT_FALSE(TqImage::QuickReadImage(dir.File("missing.jpg"), image, nullptr));
  EXPECT_FALSE(TqImage::QuickReadImage(dir.Path(), image, nullptr));
}

TEST(QuickIoTest, NothingIsSaidOnStandardErrorAndNoSideFileIsLeft) {
  const TempDir dir;
  const PhotoInfo record = RandomRecord(400, 300, 3, kByte, 1);
  CopyAs("JPEG", dir.File("a.jpg"), record);
  const std::string bytes = ReadText(dir.File("a.jpg"));
  dir.Write("cut.jpg", bytes.substr(0, bytes.size() / 2));
  PhotoInfo image;
  GeoCoefficients geo;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(TqImage::QuickReadImage(dir.File("cut.jpg"), image, &geo));
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("a.jpg"), image, &geo));
  EXPECT_TRUE(TqImage::QuickWriteImage(dir.File("b.jpg"), image, &geo, true));
  EXPECT_FALSE(TqImage::QuickWriteImage(dir.File("a.jpg/b.tif"), image, &geo, true));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(dir.FileCount(), 3);
}

TEST(QuickIoTest, RecordsThatCannotBeAreRefused) {
  const TempDir dir;
  const PhotoInfo good = RandomRecord(10, 10, 3, kByte, 1);
  PhotoInfo bad[3] = {good, good, good};
  bad[0].data.pop_back();
  bad[1].width = -10;
  bad[2].width = bad[2].height = 2147483647;
  for (const PhotoInfo& record : bad) {
    EXPECT_FALSE(TqImage::QuickWriteImage(dir.File("a.tif"), record, nullptr, true));
  }
  const GeoCoefficients noCellSize;
  EXPECT_FALSE(TqImage::QuickWriteImage(dir.File("a.tif"), good, &noCellSize, true));
  EXPECT_TRUE(TqImage::QuickWriteImage(dir.File("a.tif"), good, nullptr, true));
  EXPECT_FALSE(TqImage::QuickWriteImage(dir.File("a.tif"), good, nullptr, false));
}

// A header of a few bytes may claim a raster that no machine holds.
TEST(QuickIoTest, AClaimedSizeBeyondTheMemoryIsRefusedBeforeItIsTaken) {
  const TempDir dir;
  const std::string path =
      dir.Write("huge.vrt",
                "<VRTDataset rasterXSize=\"2000000000\" rasterYSize=\"2000000000\">"
                "<VRTRasterBand dataType=\"Byte\" band=\"1\"/></VRTDataset>");
  PhotoInfo image;
  EXPECT_FALSE(TqImage::QuickReadImage(path, image, nullptr));
}

}  // namespace
}  // namespace tqimage
