// SPDX-License-Identifier: Apache-2.0
#include "prepare/dsm_prepare.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqimage::TqImage;

/// A tilted plane of 40 x 30 cells, so that interpolated heights have a known answer.
float Plane(int row, int col) { return 100.0F + 0.5F * static_cast<float>(col - row); }

class DsmPrepareTest : public ::testing::Test {
 protected:
  /// `wall`: a roof six metres up from column 20 on, and a hole of 7 x 6 cells across its edge.
  void Write(float none, bool wall = false) {
    heights.resize(40 * 30);
    for (int r = 0; r < 30; ++r) {
      for (int c = 0; c < 40; ++c) {
        const bool hole = (r >= 10 && r < 12 && c >= 10 && c < 13) ||  // small, enclosed
                          (wall && r >= 20 && r < 26 && c >= 17 && c < 24);
        const bool corner = r < 12 && c >= 30;  // reaches the edge
        heights[static_cast<std::size_t>(r * 40 + c)] =
            hole || corner ? none : Plane(r, c) + (wall && c >= 20 ? 6.0F : 0.0F);
      }
    }
    const double noData = none;
    ASSERT_TRUE(tqtortho::testing::WriteRaster(dir.File("dsm.tif"), tqimage::kFloat32,
                                               heights.data(), 40, 30, {1000, 2000, 0.5, ""},
                                               &noData));
  }
  float Height(int row, int col) {  // of the original grid
    float h = 0;
    EXPECT_TRUE(out.ReadImage(0, {col + 4, row + 4, col + 5, row + 5}, tqimage::kFloat32, &h));
    return h;
  }
  int Origin(int row, int col) {
    std::uint8_t v = 9;
    EXPECT_TRUE(origin.ReadImage(0, {col + 4, row + 4, col + 5, row + 5}, tqimage::kByte, &v));
    return v;
  }
  void Prepare() {
    std::string error;
    ASSERT_TRUE(PrepareDsm(dir.File("dsm.tif"), dir.File("out.tif"), dir.File("origin.tif"), {},
                           report, error))
        << error;
    ASSERT_TRUE(out.Open(dir.File("out.tif"), true));
    ASSERT_TRUE(origin.Open(dir.File("origin.tif"), true));
  }

  testing::TempDir dir;
  std::vector<float> heights;
  DsmPrepareReport report;
  TqImage out, origin;
};

TEST_F(DsmPrepareTest, FillsSmallHolesContinuesTheRimAndKeepsEveryTrueHeight) {
  for (const float none : {-9999.0F, std::numeric_limits<float>::quiet_NaN(), -3.4028235e38F}) {
    Write(none);
    Prepare();
    EXPECT_EQ(out.GetWidth(), 48);
    EXPECT_EQ(out.GetHeight(), 38);
    EXPECT_DOUBLE_EQ(out.GetGeoCoefficients().GetOrigin().x, 998);
    EXPECT_DOUBLE_EQ(out.GetGeoCoefficients().GetOrigin().y, 2002);
    EXPECT_EQ(out.GetNoDataValue(0), -9999);
    EXPECT_EQ(report.filledCells, 6);
    EXPECT_EQ(report.trueCells, 1200 - 6 - 120);
    for (int r = 0; r < 30; ++r) {
      for (int c = 0; c < 40; ++c) {
        if (Origin(r, c) == kHeightTrue) {
          ASSERT_EQ(Height(r, c), Plane(r, c)) << r << " " << c;
        }
      }
    }
    EXPECT_EQ(Origin(10, 11), kHeightFilled);
    EXPECT_NEAR(Height(10, 11), Plane(10, 11), 0.5);
    // The rim has heights near the true ones, but they are not the DSM's own; further out is
    // nothing.
    EXPECT_EQ(Origin(5, 31), kHeightNone);
    EXPECT_NEAR(Height(5, 31), Plane(5, 31), 2);
    EXPECT_NEAR(Height(20, -4), Plane(20, -4), 3);
    EXPECT_EQ(Origin(20, -4), kHeightNone);
    EXPECT_EQ(Height(2, 37), -9999);
  }
}

TEST_F(DsmPrepareTest, AWallGoesOnThroughAHole) {
  Write(-9999, true);
  Prepare();
  for (int r = 20; r < 26; ++r) {
    for (int c = 17; c < 24; ++c) {
      // Nearest heights are up to three cells away on the plane: 1.5 m.
      const float above = Height(r, c) - Plane(r, c);
      EXPECT_NEAR(above, c >= 20 ? 6.0F : 0.0F, 1.6F) << r << " " << c;
      EXPECT_EQ(Origin(r, c), kHeightFilled);
    }
  }
}

TEST_F(DsmPrepareTest, AnEmptyDsmIsRefusedByName) {
  const std::vector<float> empty(40 * 30, -9999);
  ASSERT_TRUE(tqtortho::testing::WriteHeights(dir.File("dsm.tif"), empty.data(), 40, 30, {}));
  std::string error;
  EXPECT_FALSE(PrepareDsm(dir.File("dsm.tif"), dir.File("out.tif"), dir.File("origin.tif"), {},
                          report, error));
  EXPECT_NE(error.find("dsm.tif: holds no height"), std::string::npos) << error;
}

TEST_F(DsmPrepareTest, OrthoCellsWithoutAHeightOfTheirOwnAreBlanked) {
  Write(-9999);
  Prepare();
  tqorkit::PhotoInfo ortho;
  ortho.width = 80;
  ortho.height = 60;
  ortho.bands = 3;
  ortho.dataType = 1;
  ortho.data.assign(80 * 60 * 3, 77);
  const double transform[6] = {1000, 0.25, 0, 2000, 0, -0.25};
  const tqimage::GeoCoefficients at(transform, 80, 60);
  ASSERT_TRUE(TqImage::QuickWriteImage(dir.File("ortho.jpg"), ortho, &at, true));
  std::string error;
  ASSERT_TRUE(BlankWithoutHeight(dir.File("ortho.jpg"), dir.File("origin.tif"), error)) << error;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("ortho.jpg"), ortho, nullptr));
  EXPECT_EQ(ortho.data[0], 77);
  EXPECT_EQ(ortho.data[(20 * 80 + 22) * 3], 77) << "a filled hole stays";
  EXPECT_EQ(ortho.data[(4 * 80 + 70) * 3 + 1], 0) << "the missing corner is blank";
  EXPECT_EQ(ortho.data[(40 * 80 + 70) * 3 + 1], 77);
  EXPECT_FALSE(BlankWithoutHeight("/no/such.tif", dir.File("origin.tif"), error));
  EXPECT_NE(error.find("/no/such.tif"), std::string::npos);
}

}  // namespace
}  // namespace tqtortho::host
