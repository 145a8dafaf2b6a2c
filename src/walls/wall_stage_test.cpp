// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_stage.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "mosaic/measured_cell.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"
#include "walls/half_cells.h"

namespace tqtortho::host {
namespace {

using tqimage::TqImage;
using Height = std::function<double(int, int)>;

bool Always(double) { return true; }

void WriteDsm(const std::string& path, int rows, int cols, const Height& height) {
  std::vector<float> cells;
  for (int i = 0; i < rows * cols; ++i) {
    cells.push_back(static_cast<float>(height(i / cols, i % cols)));
  }
  ASSERT_TRUE(testing::WriteHeights(path, cells.data(), cols, rows, {100, 900, 0.5, ""}));
}

std::string Bytes(const std::string& path) { return testing::ReadText(path); }

/// A plain with blocks of all sizes, their walls drawn as ramps, over several tiles.
double Blocks(int r, int c) {
  const int y = r % 60, x = c % 70;
  const double inside = std::min({y - 9.5, 45.5 - y, x - 14.5, 50.5 - x});
  return 3 + (5 + r / 60) * std::clamp(0.5 + inside / 3, 0.0, 1.0);
}

TEST(SharpenWallsTest, GivesTheSameBytesWithAnyNumberOfThreads) {
  testing::TempDir dir;
  std::string first;
  const int before = omp_get_max_threads();
  for (const int threads : {1, 2, 5}) {
    omp_set_num_threads(threads);
    const std::string path = dir.File("dsm.tif");
    WriteDsm(path, 420, 430, Blocks);
    WallReport report;
    std::string error;
    ASSERT_TRUE(
        SharpenWalls({}, path, dir.File("walls.tif"), Walls::kSurface, Always, report, error))
        << error;
    EXPECT_GT(report.changedCells, 1000);
    EXPECT_EQ(report.judgedCells, 0);
    EXPECT_FALSE(report.photosTell);
    const std::string bytes = Bytes(path) + Bytes(dir.File("walls.tif"));
    if (first.empty()) first = bytes;
    EXPECT_EQ(bytes, first) << threads << " threads";
  }
  omp_set_num_threads(before);
  // Keeping touches nothing, and a stop leaves the surface as it is.
  const std::string path = dir.File("dsm.tif");
  WriteDsm(path, 120, 140, Blocks);
  const std::string bytes = Bytes(path);
  WallReport report;
  std::string error;
  EXPECT_TRUE(SharpenWalls({}, path, dir.File("w.tif"), Walls::kKeep, Always, report, error));
  EXPECT_FALSE(SharpenWalls(
      {}, path, dir.File("w.tif"), Walls::kPhotos, [](double) { return false; }, report, error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(Bytes(path), bytes);
  EXPECT_FALSE(std::filesystem::exists(dir.File("w.tif")));
}

// The raster of origins stays on the measured cells; its reader must not take half cells for them.
TEST(MeasuredCellTest, ReadsOriginsOfHalfCells) {
  testing::TempDir dir;
  WriteDsm(dir.File("dsm_origin.tif"), 3, 4, [](int r, int c) { return 10 * r + c + 1; });
  TqImage origin;
  ASSERT_TRUE(origin.Open(dir.File("dsm_origin.tif"), true));
  std::vector<std::uint8_t> codes;
  ASSERT_TRUE(ReadOriginOnCells(origin, 0.5, {1, 1, 3, 2}, codes));
  EXPECT_EQ(codes, (std::vector<std::uint8_t>{12, 13}));
  ASSERT_TRUE(ReadOriginOnCells(origin, 0.25, {1, 2, 5, 4}, codes));
  EXPECT_EQ(codes, (std::vector<std::uint8_t>{11, 12, 12, 13, 11, 12, 12, 13}));
  ASSERT_TRUE(ReadOriginOnCells(origin, 0.25, {-1, 5, 2, 7}, codes));
  EXPECT_EQ(codes, (std::vector<std::uint8_t>{0, 21, 21, 0, 0, 0}));
  EXPECT_EQ(MeasuredCell(dir.File("dsm.tif"), 0.25), 0.5);
  EXPECT_EQ(MeasuredCell(dir.File("dsm.tif"), 0.5), 0.5);
  EXPECT_EQ(MeasuredCell("/nowhere/dsm.tif", 0.25), 0.25);
}

}  // namespace
}  // namespace tqtortho::host
