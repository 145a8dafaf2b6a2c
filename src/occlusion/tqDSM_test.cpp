// SPDX-License-Identifier: Apache-2.0
#include "occlusion/tqDSM.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

using testing::TempDir;
using tqfd::Rect2_T;

constexpr int kCols = 12;
constexpr int kRows = 10;
constexpr double kNone = -9999;

/// 12 x 10 cells of 0.1 m, first centre at (100, 50); cell (r, c) is 10 r + c high, cell (0, 0)
/// empty.
class DsmTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < kRows * kCols; ++i) {
      heights_.push_back(static_cast<float>(i / kCols * 10 + i % kCols));
    }
    heights_[0] = static_cast<float>(kNone);
    Write("dsm.tif", tqimage::kFloat32, heights_.data(), kCols, kRows);
  }
  void Write(const std::string& name, int type, const void* data, int cols, int rows) {
    const bool heights = type == tqimage::kFloat32;
    ASSERT_TRUE(testing::WriteRaster(dir_.File(name), type, data, cols, rows, {100, 50, 0.1, ""},
                                     heights ? &kNone : nullptr));
  }
  /// The rectangle of the centres of cells (r0, c0) to (r1, c1).
  static Rect2_T<double> Centres(int r0, int c0, int r1, int c1) {
    return {100 + 0.1 * c0, 50 - 0.1 * r1, 100 + 0.1 * c1, 50 - 0.1 * r0};
  }

  TempDir dir_;
  std::vector<float> heights_;
};

TEST_F(DsmTest, LoadTakesTheWholeRasterAndASinglePrecisionBox) {
  tqDSM dsm;
  ASSERT_TRUE(dsm.Load(dir_.File("dsm.tif")));
  EXPECT_EQ(dsm.heights, heights_);
  EXPECT_EQ(dsm.cols, kCols);
  EXPECT_EQ(dsm.rows, kRows);
  EXPECT_EQ(dsm.noData, -9999.0f);
  EXPECT_EQ(dsm.cellSizeX, 0.1f);
  EXPECT_EQ(dsm.cellSizeY, -0.1f);
  EXPECT_NEAR(dsm.originX, 100, 1e-9);
  EXPECT_NEAR(dsm.originY, 50, 1e-9);
  EXPECT_EQ(dsm.minX, 0);
  EXPECT_EQ(dsm.minY, 0);
  EXPECT_EQ(dsm.maxX, static_cast<double>(11.0f * 0.1f));
  EXPECT_EQ(dsm.maxY, static_cast<double>(9.0f * 0.1f));
  EXPECT_EQ(dsm.minZ, 1);
  EXPECT_EQ(dsm.maxZ, 101);
  // The frame's origin is the centre of the bottom-left cell; its depth is a float product.
  const Point3 local = dsm.ToLocal({100.3, 50, 7});
  EXPECT_NEAR(local.x, 0.3, 1e-9);
  EXPECT_DOUBLE_EQ(local.y, 50 - (dsm.originY - dsm.maxY));
  EXPECT_EQ(local.z, 7);
  EXPECT_FALSE(tqDSM().Load(dir_.File("missing.tif")));
  EXPECT_FALSE(tqDSM().Load(dir_.Write("text.tif", "no raster")));
}

// 7 x 5 cells at scale 2 give 3 x 2 of uneven size; origin and values are the rectangle's and
// OpenCV's.
TEST_F(DsmTest, LoadRegionResamplesLinearlyOverTheWholeRectangle) {
  tqDSM dsm;
  Rect2_T<double> rect = Centres(0, 0, 4, 6);
  rect.minX += 0.03;  // not snapped to the cells
  ASSERT_TRUE(dsm.LoadRegion(dir_.File("dsm.tif"), "", rect, 2));
  EXPECT_EQ(dsm.cols, 3);
  EXPECT_EQ(dsm.rows, 2);
  EXPECT_FLOAT_EQ(dsm.cellSizeX, 0.7f / 3);
  EXPECT_FLOAT_EQ(dsm.cellSizeY, -0.25f);
  EXPECT_EQ(dsm.originX, rect.minX);
  EXPECT_EQ(dsm.originY, rect.maxY);
  EXPECT_EQ(dsm.maxX, static_cast<double>(2.0f * dsm.cellSizeX));
  cv::Mat whole(kRows, kCols, CV_32F, heights_.data());
  cv::Mat expected;
  cv::resize(whole(cv::Rect(0, 0, 7, 5)).clone(), expected, cv::Size(3, 2), 0, 0, cv::INTER_LINEAR);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(dsm.heights[i], expected.at<float>(i / 3, i % 3)) << i;
}

TEST_F(DsmTest, FullResolutionCopiesTheCellsAndRegionsOutsideHoldNoDataOrFail) {
  const std::string path = dir_.File("dsm.tif");
  tqDSM dsm;
  ASSERT_TRUE(dsm.LoadRegion(path, "", Centres(8, 10, 11, 13), 1));
  EXPECT_EQ(dsm.cols, 4);
  EXPECT_EQ(dsm.rows, 4);
  EXPECT_EQ(dsm.heights[0], 90);
  EXPECT_EQ(dsm.heights[1], 91);
  EXPECT_EQ(dsm.heights[2], -9999);
  EXPECT_EQ(dsm.heights[15], -9999);
  EXPECT_EQ(dsm.cellSizeX, 0.1f);
  EXPECT_EQ(dsm.minZ, 90);
  EXPECT_EQ(dsm.maxZ, 101);
  const double nan = std::nan("");
  for (const Rect2_T<double>& rect :
       {Centres(20, 20, 30, 30), Rect2_T<double>{}, Rect2_T<double>{nan, nan, nan, nan},
        Rect2_T<double>{-1e300, -1e300, 1e300, 1e300}, Rect2_T<double>{-1e5, -1e5, 1e5, 1e5},
        Rect2_T<double>{101, 49, 100, 50}}) {
    EXPECT_FALSE(tqDSM().LoadRegion(path, "", rect, 1)) << rect.minX;
  }
  const Rect2_T<double> whole = Centres(0, 0, 9, 11);
  for (const float scale : {11.0f, 0.5f, 0.0f, -2.0f, std::nanf(""), HUGE_VALF}) {
    EXPECT_FALSE(tqDSM().LoadRegion(path, "", whole, scale)) << scale;
  }
}

TEST_F(DsmTest, RescaleKeepsOriginAndBoxOfTheOldGrid) {
  tqDSM dsm;
  ASSERT_TRUE(dsm.Load(dir_.File("dsm.tif")));
  const tqDSM before = dsm;
  ASSERT_TRUE(dsm.Rescale(0.25f));
  EXPECT_EQ(dsm.cols, 3);
  EXPECT_EQ(dsm.rows, 3);  // 2.5 + 0.5
  EXPECT_EQ(dsm.heights.size(), 9u);
  EXPECT_EQ(dsm.cellSizeX, 0.1f * 4);
  EXPECT_EQ(dsm.cellSizeY, -0.1f * 4);
  EXPECT_EQ(dsm.maxX, before.maxX);
  EXPECT_EQ(dsm.maxY, before.maxY);
  EXPECT_EQ(dsm.minZ, before.minZ);
  EXPECT_EQ(dsm.originX, before.originX);
  for (const float factor : {0.04f, 0.0f, -1.0f, std::nanf(""), 1e9f, HUGE_VALF}) {
    tqDSM copy = before;
    EXPECT_FALSE(copy.Rescale(factor)) << factor;
  }
}

}  // namespace
}  // namespace tqtortho
