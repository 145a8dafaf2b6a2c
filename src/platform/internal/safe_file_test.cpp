// SPDX-License-Identifier: Apache-2.0
#include "internal/safe_file.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "internal/gdal_raster.h"
#include "testing/full_disk.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

using testing::FullDisk;
using testing::ReadText;
using testing::TempDir;

std::string Noise(std::size_t count) {
  std::string bytes(count, '\0');
  unsigned state = 1;
  for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
  return bytes;
}

/// A raster of noise in one call; the writing library sees only successes until its file is closed.
bool WriteRaster(const std::string& path) {
  tqimage::StagedRaster raster;
  if (!raster.Start(path, 300, 300, 1, tqimage::kByte, true)) return false;
  std::string noise = Noise(std::size_t{300} * 300);
  const CPLErr moved = raster.Dataset()->GetRasterBand(1)->RasterIO(
      GF_Write, 0, 0, 300, 300, noise.data(), 300, 300, GDT_Byte, 0, 0, nullptr);
  return moved == CE_None && raster.Finish();
}

// Each way to write a file, on disks that are full at its begin, in its middle and at its last
// bytes: the older file of that name stays, nothing is left beside it, and the failure is noted.
TEST(SafeFileTest, AFileIsWholeOrTheOlderOneStays) {
  const TempDir dir;
  const std::string from = dir.File("from");
  std::ofstream(from) << Noise(50000);
  struct Way {
    const char* name;
    std::function<bool(const std::string&)> write;
  };
  const Way ways[] = {
      {"whole", [](const std::string& path) { return WriteWholeFile(path, Noise(50000)); }},
      {"copy", [&](const std::string& path) { return CopyWholeFile(from, path); }},
      {"raster", WriteRaster},
  };
  for (const Way& way : ways) {
    ASSERT_TRUE(way.write(dir.File("whole"))) << way.name;
    const auto size = std::filesystem::file_size(dir.File("whole"));
    std::filesystem::remove(dir.File("whole"));
    for (const std::uintmax_t most : {std::uintmax_t{0}, size / 2, size - 1}) {
      SCOPED_TRACE(std::string(way.name) + " " + std::to_string(most));
      const std::string path = dir.File("target");
      dir.Write("target", "older");
      (void)TakeFailedWrites();
      {
        const FullDisk disk(most);
        EXPECT_FALSE(way.write(path));
      }
      EXPECT_EQ(ReadText(path), "older");
      EXPECT_EQ(dir.FileCount(), 2);  // `from` and the target
      EXPECT_TRUE(AnyFailedWrite(dir.File("targ")));
      const auto failed = TakeFailedWrites();
      ASSERT_EQ(failed.size(), 1U);
      EXPECT_EQ(failed[0].path, path);
      EXPECT_THAT(Describe(failed[0]), ::testing::HasSubstr(path));
    }
  }
}

// The first fault of a file counts, and the file is finished with: nothing later hides it, and
// nothing is read from where bytes are missing.
TEST(SafeFileTest, AFaultIsRememberedUntilTheFileIsGivenUp) {
  const TempDir dir;
  const std::string staged = dir.File("staged");
  VSILFILE* const file = VSIFOpenL(CheckedPath(staged).c_str(), "wb+");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(VSIFWriteL("abcd", 1, 4, file), 4U);
  {
    const FullDisk disk(4);
    EXPECT_EQ(VSIFWriteL("efgh", 1, 4, file), 0U);
  }
  EXPECT_EQ(VSIFWriteL("efgh", 1, 4, file), 0U);
  char read[4];
  VSIFSeekL(file, 0, SEEK_SET);
  EXPECT_EQ(VSIFReadL(read, 1, 4, file), 0U);
  VSIFCloseL(file);
  EXPECT_EQ(WriteFaultOf(staged), EFBIG);
  EXPECT_FALSE(PublishFile(staged, dir.File("target")));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(dir.FileCount(), 0);
  EXPECT_EQ(WriteFaultOf(staged), 0);
}

// rename() of two names of one file does nothing and says that all is well.
TEST(SafeFileTest, TwoNamesOfOneFileLeaveNoStagedName) {
  const TempDir dir;
  dir.Write("target", "content");
  std::filesystem::create_hard_link(dir.File("target"), dir.File("staged"));
  EXPECT_TRUE(PublishFile(dir.File("staged"), dir.File("target")));
  EXPECT_EQ(dir.FileCount(), 1);
  EXPECT_EQ(ReadText(dir.File("target")), "content");
}

// What cannot be renamed: the staged file goes, and the cause is told.
TEST(SafeFileTest, AStagedFileThatCannotGetItsNameGoes) {
  const TempDir dir;
  std::filesystem::create_directories(dir.File("target") + "/full");
  (void)TakeFailedWrites();
  EXPECT_FALSE(WriteWholeFile(dir.File("target"), "content"));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(dir.FileCount(), 1);
  EXPECT_EQ(TakeFailedWrites().size(), 1U);
}

}  // namespace
}  // namespace tqtortho
