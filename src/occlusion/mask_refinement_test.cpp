// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "stage/border_mask.h"
#include "stage/photo_files.h"
#include "testing/output_dir.h"
#include "testing/raster_file.h"
#include "testing/test_peer.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;
using tqimage::GeoCoefficients;

class MaskRefinementTest : public ::testing::Test {
 protected:
  static void Save(const std::string& path, const Bytes& cells, int cols, int rows) {
    ASSERT_TRUE(tqtortho::testing::WriteRaster(path, tqimage::kByte, cells.data(), cols, rows,
                                               {1000, 2000, 0.5, ""}, nullptr));
  }
  static Bytes Load(const std::string& path, GeoCoefficients* coefficients = nullptr) {
    tqorkit::PhotoInfo image;
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, coefficients));
    return image.data;
  }

  tqtortho::testing::OutputDir dir_;
  tqTORectify rectify_;
};

TEST_F(MaskRefinementTest, TallBuildingNeedsMoreThan5000BorderCells) {
  const tqfd::Rect2_T<double> whole{1000, 1950.5, 1059.5, 2000};
  EXPECT_TRUE(TestPeer::CheckTallBuilding(rectify_, whole)) << "no border mask";
  for (const auto& [cells, tall] : {std::pair{5000, false}, std::pair{5001, true}}) {
    Bytes mask(120 * 100, 199);  // only the exact value counts
    std::fill_n(mask.begin() + 300, cells, kTallBorder);
    Save(BorderMaskPath(), mask, 120, 100);
    EXPECT_EQ(TestPeer::CheckTallBuilding(rectify_, whole), tall) << cells;
  }
  TestPeer::RefineOcclusion(rectify_, nullptr, 100, 100);  // nothing to refine
  // Rows 0 to 38 hold 4,380 of the 5,001 cells, and outside there are none.
  EXPECT_FALSE(TestPeer::CheckTallBuilding(rectify_, {1000, 1981, 1059.5, 2000}));
  EXPECT_FALSE(TestPeer::CheckTallBuilding(rectify_, {5000, 5000, 5060, 5060}));
  EXPECT_FALSE(TestPeer::CheckTallBuilding(rectify_, tqfd::Rect2_T<double>{}));
}

TEST_F(MaskRefinementTest, SpecklesLeaveTheFileInPlace) {
  const std::string path = dir_.File("a_0.jpg_obs.tif");
  Bytes mask(80 * 50, 0);
  for (int i = 0; i < 501; ++i) mask[(3 + i / 30) * 80 + 4 + i % 30] = 255;
  for (int i = 0; i < 500; ++i) mask[(25 + i / 30) * 80 + 4 + i % 30] = 255;
  Save(path, mask, 80, 50);
  EXPECT_TRUE(TestPeer::FilterSpeckles(rectify_, path));
  GeoCoefficients coefficients;
  const Bytes filtered = Load(path, &coefficients);
  EXPECT_EQ(std::count(filtered.begin(), filtered.end(), 255), 501);
  EXPECT_EQ(std::count(filtered.begin(), filtered.end(), 0), 80 * 50 - 501);
  EXPECT_EQ(coefficients.GetOrigin(), (tqfd::Point2_T<double>{1000, 2000}));
  EXPECT_EQ(coefficients.GetResolution(), (tqfd::Point2_T<double>{0.5, -0.5}));
}

TEST_F(MaskRefinementTest, FilesThatAreNoMaskAreLeftUntouched) {
  const std::string text = dir_.Write("text.tif", "no raster");
  const std::string colour = dir_.File("colour.tif");
  const Bytes pixels(3 * 40 * 40, 255);
  ASSERT_TRUE(tqorkit::TqFSManager::SaveImageFile(pixels.data(), 40, 40, 3, colour, true, nullptr));
  for (const std::string& path : {text, colour, dir_.File("missing.tif")}) {
    const std::string before = tqtortho::testing::ReadText(path);
    EXPECT_FALSE(TestPeer::FilterSpeckles(rectify_, path)) << path;
    EXPECT_TRUE(TestPeer::AdjustOcclusion(rectify_, path)) << path;
    EXPECT_FALSE(TestPeer::OcculusionJutAdjust(rectify_, path, 2, 2, 1)) << path;
    EXPECT_EQ(tqtortho::testing::ReadText(path), before) << path;
  }
}

// A shadow of 20 x 20 cells with a tooth of two cells at its side and a slit of two cells in it.
TEST_F(MaskRefinementTest, JutAdjustTakesTeethAndSlitsAndKeepsARim) {
  const int cols = 40;
  Bytes mask(cols * 40, 0);
  for (int r = 10; r < 30; ++r) {
    for (int c = 10; c < 30; ++c) mask[r * cols + c] = 255;
  }
  for (int r = 5; r < 10; ++r) mask[r * cols + 15] = mask[r * cols + 16] = 255;  // the tooth
  for (int r = 15; r < 30; ++r) mask[r * cols + 20] = mask[r * cols + 21] = 0;   // the slit
  const std::string path = dir_.File("m.tif");
  Save(path, mask, cols, 40);
  ASSERT_TRUE(TestPeer::OcculusionJutAdjust(rectify_, path, 2, 2, 3));
  const Bytes result = Load(path);
  EXPECT_THAT(result, ::testing::Each(::testing::AnyOf(0, 255)));
  for (int r = 0; r < 40; ++r) {
    for (int c = 0; c < cols; ++c) {
      const bool inside = r >= 10 && r < 30 && c >= 10 && c < 30;
      const bool far = r < 9 || r > 30 || c < 9 || c > 30;
      if (!inside && !far) continue;
      EXPECT_EQ(result[r * cols + c], inside ? 255 : 0) << r << " " << c;
    }
  }
  EXPECT_EQ(result[9 * cols + 20], 255) << "the rim";
}

}  // namespace
}  // namespace tqtortho
