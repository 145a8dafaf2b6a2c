// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "core/rect_ops.h"
#include "pipeline/extent_estimation.h"
#include "pipeline/job_inputs.h"
#include "stage/messages.h"
#include "testing/log_capture.h"
#include "testing/raster_file.h"
#include "testing/test_peer.h"
#include "testing/tiny_job.h"

namespace tqtortho {
namespace {

using ::testing::ElementsAre;
using Rect = tqfd::Rect2_T<double>;
using Polygon = std::vector<tqfd::Point2_T<double>>;
using testing::TinyJob;

struct Estimate {
  bool done = false;
  int width = -1;
  int height = -1;
  double heightPair[2] = {0, 0};
  std::vector<tqorkit::tqPhotoCategory> blocks;
  std::map<std::uint64_t, std::vector<std::uint64_t>> neighbours;
  std::vector<tqfd::Point2_T<int>> extent;
  std::vector<double> percents;
  std::vector<std::string> log;
  [[nodiscard]] const tqorkit::tqExtOri& Photo(std::size_t i) const {
    return blocks.at(0).GetPhotos().at(i);
  }
  [[nodiscard]] const Rect& Box(std::size_t i) const { return Photo(i).GetGeoRect(); }
};

int Collect(double percent, const char* message, void* user) {
  EXPECT_EQ(message, ToGbk(message::kEstimating));
  static_cast<Estimate*>(user)->percents.push_back(percent);
  return 1;
}

Estimate EstimateOf(const TinyJob& job, double gsd, Polygon* polygon = nullptr) {
  Estimate e;
  std::map<int, tqorkit::tqIntOri> cameras;
  std::ifstream cameraFile(job.Cameras());
  ReadCameras(cameraFile, cameras);
  std::ifstream listFile(job.Photos());
  ReadPhotoList(listFile, gsd, e.blocks);
  e.heightPair[0] = gsd;
  const testing::LogCapture log;
  tqTORectify rectify;
  e.done = rectify.OrthoRectifyEstSize(&e.blocks, &cameras, job.Dsm().c_str(), e.heightPair,
                                       polygon, 1, job.Out().c_str(), e.width, e.height, false,
                                       e.neighbours, e.extent, Collect, &e);
  e.log = log.lines;
  return e;
}

TEST(OrthoRectifyEstSizeTest, ExtentCountsOnTheLatticeAndNeighboursOverlap) {
  TinyJob job;
  job.AddPose("a", 15, 12, 0, 0, 0);
  job.AddPose("b", 21.3, 13.7, 0, 0, 0);
  const Estimate e = EstimateOf(job, 0.25);
  ASSERT_TRUE(e.done);
  const Rect& a = e.Box(0);
  const Rect& b = e.Box(1);
  // A surface cell more than the photo shows, for heights are blended beyond it.
  EXPECT_LE(b.minX, TinyJob::kX0 + 21.3 - 12 - 0.49);
  EXPECT_GE(b.maxX, TinyJob::kX0 + 21.3 + 12 + 0.49);
  EXPECT_LE(b.minY, TinyJob::kY0 - 13.7 - 9 - 0.49);
  EXPECT_EQ(e.width, std::lround((std::max(a.maxX, b.maxX) - std::min(a.minX, b.minX)) / 0.25) + 1);
  EXPECT_EQ(e.height, std::lround((std::max(a.maxY, b.maxY) - std::min(a.minY, b.minY)) / 0.25));
  ASSERT_EQ(e.extent.size(), 4U);
  EXPECT_EQ(e.extent[2].x - e.extent[0].x + 1, e.width);
  EXPECT_EQ(e.extent[2].y - e.extent[0].y, e.height);
  EXPECT_THAT(e.neighbours.at(0), ElementsAre(1));
  EXPECT_THAT(e.percents, ElementsAre(50, 100));
}

TEST(OrthoRectifyEstSizeTest, ResolutionIsTheDsmsOrWhatTheParameterFileCanHold) {
  TinyJob job;
  job.AddPose("a", 20, 15, 0, 0, 0);
  // Workers read six decimals; a lattice of the full value would drift against theirs.
  for (const auto& [asked, taken] :
       {std::pair{0.0, 0.5}, {1.0 / 3, 0.333333}, {-0.5, 0.0}, {1e-7, 0.0}, {HUGE_VAL, 0.0}}) {
    const Estimate e = EstimateOf(job, asked);
    ASSERT_EQ(e.done, taken > 0) << asked;
    EXPECT_EQ(e.percents.empty(), !e.done);
    if (!e.done) continue;
    EXPECT_EQ(e.heightPair[0], taken);
    EXPECT_EQ(e.Photo(0).GetGSD().x, taken);
    EXPECT_EQ(e.Photo(0).GetGSD().y, -taken);
  }
}

TEST(OrthoRectifyEstSizeTest, PhotosPartlyBeyondTheDsmAreClippedAndThoseWhollyBeyondAreNamed) {
  TinyJob job;
  job.AddPose("in", 2, 15, 0, 0, 0);
  job.AddPose("out", 90, 15, 0, 0, 0);
  job.AddPose("up", 20, 15, 3.14159, 0, 0);
  job.AddPose("stranger", 20, 15, 0, 0, 0, 77);
  // phi = 45 degrees looks east; from 38 units west of the DSM the axis meets it 2 units inside.
  job.AddPose("oblique", -38, 15, 0, 0.785398, 0);
  const Estimate e = EstimateOf(job, 0.5);
  ASSERT_TRUE(e.done);
  EXPECT_EQ(e.Box(0).minX, TinyJob::kX0) << "the DSM's first cell centre";
  for (std::size_t i = 1; i < 4; ++i) EXPECT_EQ(e.Box(i), Rect());
  const std::string prefix = ToGbk(message::kEstimateAbnormal);
  EXPECT_THAT(e.log, ElementsAre(prefix + "out", prefix + "up", prefix + "stranger"));
  EXPECT_EQ(e.neighbours.size(), 2U);
  // Half the frame is 16.7 degrees, so the oblique photo looks at 21 to 74 units from its foot.
  const double farEdge = TinyJob::kX0 - 38 + 40 * std::tan(0.785398 + 0.2915);
  EXPECT_NEAR(e.Box(4).minX, TinyJob::kX0, 0.01) << "starts west of the DSM";
  EXPECT_GE(e.Box(4).maxX, farEdge);
  EXPECT_LT(e.Box(4).maxX, farEdge + 2.5);  // a pixel is 1.1 units long out there
}

TEST(OrthoRectifyEstSizeTest, OnlyGroundWithHeightsCounts) {
  TinyJob job;
  job.WriteDsm([](int row, int col) {
    if (col < 40) return TinyJob::kNoData;
    return row % 7 == 3 ? std::nanf("") : 0.0F;
  });
  job.AddPose("hole", 5, 15, 0, 0, 0);
  job.AddPose("half", 20, 15, 0, 0, 0);
  const Estimate e = EstimateOf(job, 0.5);
  ASSERT_TRUE(e.done);
  EXPECT_EQ(e.Box(0), Rect()) << "sees only no-data";
  EXPECT_NEAR(e.Box(1).minX, TinyJob::kX0 + 20, 1.01) << "starts at the first column of heights";
}

TEST(OrthoRectifyEstSizeTest, ThePolygonCutsAndDeselects) {
  TinyJob job;
  job.AddPose("west", 10, 15, 0, 0, 0);
  job.AddPose("east", 35, 15, 0, 0, 0);
  const double x = TinyJob::kX0;
  const double y = TinyJob::kY0;
  Polygon triangle{{x + 5, y - 5}, {x + 15, y - 20}, {x + 5, y - 20}};
  const Estimate e = EstimateOf(job, 0.5, &triangle);
  ASSERT_TRUE(e.done);
  EXPECT_EQ(e.Box(1), Rect());
  EXPECT_EQ(e.Box(0).minX, x + 5);
  EXPECT_NEAR(e.Box(0).maxX, x + 15, 0.01);
  EXPECT_GE(e.Box(0).maxY, y - 6) << "the photo's own northern edge";
  EXPECT_LE(e.Box(0).maxY, y - 5) << "the polygon's";

  Polygon elsewhere{{0, 0}, {1, 0}, {0, 1}};
  Polygon noPolygon{{x, y}, {x + 5, y}};
  for (Polygon* polygon : {&elsewhere, &noPolygon}) {
    const Estimate none = EstimateOf(job, 0.5, polygon);
    EXPECT_FALSE(none.done);
  }
  TinyJob corner;  // the photo meets the polygon's box, not the polygon
  corner.AddPose("a", 30, 20, 0, 0, 0);
  Polygon ell{{x, y}, {x + 38, y}, {x + 0.5, y - 1}, {x, y - 28}};
  EXPECT_FALSE(EstimateOf(corner, 0.5, &ell).done);
  Polygon empty;
  const Estimate all = EstimateOf(job, 0.5, &empty);
  EXPECT_TRUE(all.done) << "an empty polygon is none";
}

// --- The reduced surface -----------------------------------------------------------------------

// Ranges by looking at every cell.
HeightRange TrueRange(const std::vector<float>& cells, int cols, int rows, int factor, int row,
                      int col) {
  HeightRange range;
  for (int r = row * factor; r < std::min(rows, (row + 1) * factor); ++r) {
    for (int c = col * factor; c < std::min(cols, (col + 1) * factor); ++c) {
      const float height = cells[static_cast<std::size_t>(r) * static_cast<std::size_t>(cols) +
                                 static_cast<std::size_t>(c)];
      if (height == TinyJob::kNoData) continue;
      range.low = std::min(range.low, height);
      range.high = std::max(range.high, height);
    }
  }
  return range;
}

// Sizes that are no multiple of the reduction or of the reading window.
TEST(ReadAndStrechDsmTest, KeepsLowestAndHighestOfEveryPatch) {
  std::mt19937 random(12);
  const int cols = 4500;
  const int rows = 700;
  std::vector<float> cells(static_cast<std::size_t>(cols) * rows);
  for (float& cell : cells) {
    cell = random() % 10 == 0 ? TinyJob::kNoData : static_cast<float>(random() % 100000) / 100;
  }
  for (int row = 100; row < 130; ++row) {  // a hole larger than a patch
    std::fill_n(&cells[static_cast<std::size_t>(row) * cols], 60, TinyJob::kNoData);
  }
  const testing::TempDir dir;
  ASSERT_TRUE(
      testing::WriteHeights(dir.File("d.tif"), cells.data(), cols, rows, {1000.5, 5000.5, 2, ""}));
  tqTORectify rectify;
  for (const auto& [maxCells, factor] :
       std::vector<std::pair<int, int>>{{5000000, 1}, {1000000, 2}, {65000, 7}, {1, 4500}}) {
    tqorkit::PhotoInfo reduced;
    const bool read =
        TestPeer::ReadAndStrechDSM(rectify, dir.File("d.tif").c_str(), maxCells, reduced);
    if (factor > 4096) {
      EXPECT_FALSE(read) << "a patch larger than the reading window";
      continue;
    }
    ASSERT_TRUE(read);
    ASSERT_EQ(reduced.width, ReducedCount(cols, factor));
    ASSERT_EQ(reduced.height, ReducedCount(rows, factor));
    EXPECT_EQ(reduced.geoRect[0], 999.5);
    EXPECT_EQ(reduced.geoRect[3], 5001.5);
    EXPECT_EQ(reduced.resX, 2 * factor);
    const HeightPyramid pyramid = PyramidOf(reduced);
    int empty = 0;
    for (int row = 0; row < reduced.height; ++row) {
      for (int col = 0; col < reduced.width; ++col) {
        const HeightRange truth = TrueRange(cells, cols, rows, factor, row, col);
        const auto& range =
            pyramid.levels[0].ranges[static_cast<std::size_t>(row * reduced.width + col)];
        ASSERT_EQ(range.low, truth.low) << row << " " << col;
        ASSERT_EQ(range.high, truth.high) << row << " " << col;
        empty += range.Empty() ? 1 : 0;
      }
    }
    EXPECT_GT(empty, 0);
  }
  tqorkit::PhotoInfo none;
  EXPECT_FALSE(TestPeer::ReadAndStrechDSM(rectify, dir.File("missing").c_str(), 100, none));
}

}  // namespace
}  // namespace tqtortho
