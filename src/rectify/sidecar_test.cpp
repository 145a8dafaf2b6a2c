// SPDX-License-Identifier: Apache-2.0
#include "rectify/sidecar.h"

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>

#include "testing/temp_dir.h"

namespace tqtortho {
namespace {

using tqtortho::testing::ReadText;

tqorkit::PhotoInfo Raster() {
  tqorkit::PhotoInfo raster;
  raster.width = 40;
  raster.height = 30;
  raster.geoRect[0] = 500000.25;
  raster.geoRect[3] = 3400010.5;
  raster.resX = 0.5;
  raster.resY = -0.5;
  return raster;
}

TEST(SidecarTest, ReadsBackWhatItWroteUnderAnyLocale) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("a.georef");
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "de_DE.UTF-8"}) {
    if (std::setlocale(LC_ALL, locale) == nullptr) continue;  // not on this machine
    Sidecar read;
    ASSERT_TRUE(WriteSidecar(path, SidecarOf(Raster()), SidecarLines::kEight));
    ASSERT_TRUE(ReadSidecar(path, read));
    // What the driver makes of it: the centres of the first and the last cell.
    EXPECT_EQ(read.c + 0.5 * read.a, 500000.25);
    EXPECT_EQ(read.f + 0.5 * read.e, 3400010.5);
    EXPECT_EQ((read.cols - 1) * read.a + 500000.25, 500019.75);
    EXPECT_EQ(read.rows, 30);
  }
  std::setlocale(LC_ALL, before.c_str());
}

TEST(SidecarTest, DamagedFilesReadAsZeros) {
  const tqtortho::testing::TempDir dir;
  const std::string six = "1\n0\n0\n-1\n5\n6\n";
  for (const std::string& text : {std::string(), six, six + "10\n", six + "x\n10\n",
                                  six + "10\nnan\n", std::string("inf\n0\n0\n-1\n5\n6\n1\n1\n")}) {
    Sidecar read{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_FALSE(ReadSidecar(dir.Write("bad", text), read)) << text;
    EXPECT_EQ(read.a, 0);
    EXPECT_EQ(read.cols, 0);
  }
  Sidecar read;
  EXPECT_FALSE(ReadSidecar(dir.File("missing"), read));
  EXPECT_TRUE(ReadSidecar(dir.Write("huge", six + "1e300\n-1e300\n"), read));  // saturates
}

}  // namespace
}  // namespace tqtortho
