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

Survey PhotosThatSeeNothing() {
  Survey survey;
  SurveyCamera camera;
  camera.id = 1;
  camera.width = 100, camera.height = 80, camera.focalLength = camera.sensorWidth = 100;
  camera.principalX = 50, camera.principalY = 40;
  survey.cameras.push_back(camera);
  SurveyBlock block;
  block.path = "/nowhere";
  SurveyPhoto far, below, missing, alien;
  far.name = below.name = missing.name = alien.name = "none.jpg";
  far.cameraId = below.cameraId = missing.cameraId = 1;
  far.x = 1e7, far.z = 100;
  below.x = 120, below.y = 880, below.z = -500;
  missing.x = 120, missing.y = 880, missing.z = 90;  // looks down on it, but the file is not there
  alien.cameraId = 77;
  block.photos = {far, below, missing, alien};
  survey.blocks.push_back(block);
  return survey;
}

// Whatever the surface: no crash, half cells, and heights without a wall as they were.
TEST(SharpenWallsTest, LeavesSurfacesWithoutWallsAlone) {
  testing::TempDir dir;
  struct Case {
    std::string name;
    int rows, cols;
    Height height;
  };
  const std::vector<Case> cases = {
      {"flat", 30, 40, [](int, int) { return 7; }},
      {"all holes", 30, 40, [](int, int) { return -9999; }},
      {"one cell", 1, 1, [](int, int) { return 7; }},
      {"one row", 1, 50, [](int, int c) { return c; }},
      {"not a number", 9, 9, [](int, int) { return std::numeric_limits<double>::quiet_NaN(); }},
      {"noise", 300, 210, [](int r, int c) { return 0.3 * std::sin(7.1 * r) * std::cos(5.3 * c); }},
      {"a slope", 60, 60, [](int r, int c) { return 0.4 * r + 0.2 * c; }},
  };
  for (const Case& test : cases) {
    for (const Walls walls : {Walls::kPhotos, Walls::kSurface}) {
      const std::string path = dir.File("dsm.tif");
      std::filesystem::remove(dir.File("codes.tif"));
      WriteDsm(path, test.rows, test.cols, test.height);
      WallReport report;
      std::string error;
      ASSERT_TRUE(SharpenWalls(PhotosThatSeeNothing(), path, dir.File("codes.tif"), walls, Always,
                               report, error))
          << test.name << ": " << error;
      EXPECT_EQ(report.changedCells, 0) << test.name;
      TqImage image;
      ASSERT_TRUE(image.Open(path, true));
      if (walls == Walls::kPhotos) {  // which nothing supports
        EXPECT_EQ(image.GetWidth(), test.cols) << test.name;
        EXPECT_FALSE(std::filesystem::exists(dir.File("codes.tif"))) << test.name;
        continue;
      }
      ASSERT_EQ(image.GetWidth(), HalfCells(test.cols));
      ASSERT_EQ(image.GetHeight(), HalfCells(test.rows));
      EXPECT_EQ(image.GetGeoCoefficients().GetOrigin().x, 100);
      std::vector<float> heights(static_cast<std::size_t>(image.GetWidth()) * image.GetHeight());
      ASSERT_TRUE(
          image.ReadHeights(0, {0, 0, image.GetWidth(), image.GetHeight()}, -9999, heights.data()));
      for (int r = 0; r < test.rows; ++r) {
        for (int c = 0; c < test.cols; ++c) {
          const auto before = static_cast<float>(test.height(r, c));
          ASSERT_EQ(heights[static_cast<std::size_t>(2 * r) * image.GetWidth() + 2 * c],
                    std::isnan(before) ? -9999 : before)
              << test.name;
        }
      }
    }
  }
}

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
