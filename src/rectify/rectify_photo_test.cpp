// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "testing/photo_scene.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using testing::NadirScene;
using testing::PhotoScene;
using tqorkit::PhotoInfo;

constexpr int kNearest = 0;

/// A camera 50 above flat ground: ground (X, Y) is photo column X + 50, row 50 - Y, so with a cell
/// of 1 and the footprint [-50, 50] squared, cell (row, col) shows photo pixel (row, col).
class RectifyPhotoTest : public ::testing::Test {
 protected:
  RectifyPhotoTest() : scene(NadirScene(100, 50)) {
    scene.pose.geoRect = {-50, -50, 50, 50};
    output.width = output.height = output.bands = output.dataType = 77;
  }
  bool Run(bool estimate, std::vector<std::uint8_t>* occlusion = nullptr,
           const tqfd::Rect2_T<double>& requested = {},
           std::vector<tqfd::Point2_T<double>>* area = nullptr) {
    tqTORectify rectify;
    return TestPeer::DoTORectfy(rectify, scene.photo, scene.dsm, scene.Interior(), scene.Exterior(),
                                kNearest, scene.parameters, area, requested, output, estimate,
                                occlusion, nullptr, nullptr);
  }
  /// Sets band 0 of the photo to 0 outside rows [row, row + rows) x columns [col, col + cols).
  void KeepOnly(int row, int col, int rows, int cols) {
    for (int r = 0; r < 100; ++r) {
      for (int c = 0; c < 100; ++c) {
        const bool inside = r >= row && r < row + rows && c >= col && c < col + cols;
        if (!inside) scene.Pixel(r, c)[0] = 0;
      }
    }
  }
  void ExpectRect(const PhotoInfo& info, double minX, double minY, double maxX, double maxY) {
    const double expected[] = {minX, minY, maxX, maxY};
    for (int i = 0; i < 4; ++i) EXPECT_DOUBLE_EQ(info.geoRect[i], expected[i]) << i;
  }
  void ExpectSize(int width, int height, int bands, int dataType) {
    EXPECT_EQ(output.width, width);
    EXPECT_EQ(output.height, height);
    EXPECT_EQ(output.bands, bands);
    EXPECT_EQ(output.dataType, dataType);
  }
  PhotoScene scene;
  PhotoInfo output;
};

TEST_F(RectifyPhotoTest, EstimateSizesTheOutputAndWritesTheResolutionBack) {
  ASSERT_TRUE(Run(true));
  EXPECT_EQ(scene.parameters[0], 1.0);
  ExpectSize(91, 91, 3, 77);
  ExpectRect(output, -50, -40, 40, 50);  // lines every ten cells, the lower and right border unseen
  ExpectRect(scene.photo, -50, -40, 40, 50);
  EXPECT_EQ(output.resX, 1);
  EXPECT_EQ(output.resY, -1);
  EXPECT_TRUE(output.data.empty());
  scene = NadirScene(100, 50);
  scene.dsm.geoRect[0] += 1000;
  scene.dsm.geoRect[2] += 1000;
  EXPECT_FALSE(Run(true));
  ExpectSize(0, 0, 0, 0);
  EXPECT_EQ(scene.parameters[0], 0) << "the tile's resolution was never chosen";
}

TEST_F(RectifyPhotoTest, ProductionTakesTheStoredFootprintAndTinyResolutionsAsNone) {
  scene.parameters[0] = 9e-11;
  scene.pose.geoRect = {-20, -10, 20, 10};
  ASSERT_TRUE(Run(false));
  EXPECT_EQ(scene.parameters[0], 1.0);
  ExpectSize(40, 20, 3, 1);
  ASSERT_TRUE(Run(false, nullptr, {-10, -5, 500, 8}));
  ExpectRect(scene.photo, -10, -5, 20, 8);
  ASSERT_TRUE(Run(false, nullptr, {20, -5, 500, 8}));  // touches only, and clips nothing
  ExpectRect(scene.photo, -20, -10, 20, 10);
  scene.dsm.geoRect[0] += 1000;
  scene.dsm.geoRect[2] += 1000;
  output.dataType = 77;
  EXPECT_FALSE(Run(false));
  ExpectSize(0, 0, 0, 77);
}

// Seven columns and five rows hold data: the last of each is cut off, and the rectangle is counted
// from the lower edge of the scanned rows.
TEST_F(RectifyPhotoTest, OutputEndsOneCellBeforeTheLastOneWithData) {
  KeepOnly(30, 20, 5, 7);
  scene.Pixel(31, 22)[1] = 201;
  std::vector<std::uint8_t> mask;
  ASSERT_TRUE(Run(false, &mask));
  ExpectSize(6, 4, 3, 1);
  EXPECT_EQ(output.data.size(), 6u * 4 * 3);
  EXPECT_EQ(mask, std::vector<std::uint8_t>(6 * 4, 0));
  EXPECT_EQ(output.data[(1 * 6 + 2) * 3 + 1], 201);
  ExpectRect(output, -50 + 20, -50 + (101 - 34), -30 + 6, 17 + 4);
  KeepOnly(30, 20, 1, 7);  // a single row is a failure
  output.dataType = 77;
  EXPECT_FALSE(Run(false));
  ExpectSize(0, 0, 0, 0);
}

// Kept: the footprint's quadrilateral is X in [minX, minY], Y in [maxX, maxY].
TEST_F(RectifyPhotoTest, AreaIsComparedWithTheOddlyPairedQuadrilateral) {
  scene.pose.geoRect = {-30, -10, 20, 40};
  const auto square = [](double minX, double minY, double size) {
    return std::vector<tqfd::Point2_T<double>>{
        {minX, minY}, {minX + size, minY}, {minX + size, minY + size}, {minX, minY + size}};
  };
  auto paired = square(-25, 25, 5);
  EXPECT_TRUE(Run(false, nullptr, {}, &paired));
  auto onThePhoto = square(0, 0, 10);
  EXPECT_FALSE(Run(false, nullptr, {}, &onThePhoto));
  ExpectSize(0, 0, 0, 1);
  std::vector<tqfd::Point2_T<double>> noPolygon;
  EXPECT_FALSE(Run(false, nullptr, {}, &noPolygon));
}

// Any number anywhere: the photo fails, or the output is as large as it says.
TEST_F(RectifyPhotoTest, NoNumberMakesASizeThatTheDataDoNotHave) {
  const PhotoScene good = scene;
  const auto slots = [](PhotoScene& s) {
    return std::vector<double*>{
        &s.parameters[0],     &s.parameters[1],     &s.pose.geoRect.minX, &s.pose.geoRect.minY,
        &s.pose.geoRect.maxX, &s.pose.geoRect.maxY, &s.dsm.geoRect[0],    &s.dsm.geoRect[1],
        &s.dsm.geoRect[2],    &s.dsm.geoRect[3],    &s.dsm.resX,          &s.dsm.resY,
        &s.dsm.noData,        &s.dsm.defaultZ,      &s.pose.position[0],  &s.pose.position[2]};
  };
  const double numbers[] = {1e308, -1e308, HUGE_VAL, -HUGE_VAL, std::nan(""), 5e-324, 1e-300, 4e9};
  int failed = 0;
  for (std::size_t slot = 0; slot < slots(scene).size(); ++slot) {
    for (const double number : numbers) {
      for (const bool estimate : {true, false}) {
        SCOPED_TRACE(std::to_string(slot) + " holds " + std::to_string(number));
        scene = good;
        output = PhotoInfo();
        *slots(scene)[slot] = number;
        std::vector<std::uint8_t> occlusion;
        const bool done = Run(estimate, estimate ? nullptr : &occlusion);
        failed += done ? 0 : 1;
        const auto cells = static_cast<std::size_t>(output.width) * output.height;
        EXPECT_EQ(cells > 0, done);
        if (estimate) continue;
        EXPECT_EQ(output.data.size(), cells * output.bands);
        EXPECT_EQ(occlusion.size(), cells);
      }
    }
  }
  EXPECT_GT(failed, 60);
}

}  // namespace
}  // namespace tqtortho
