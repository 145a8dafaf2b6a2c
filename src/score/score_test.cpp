// SPDX-License-Identifier: Apache-2.0
#include "score/score.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "testing/temp_dir.h"
#include "town/sample_town.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqtortho::testing::TempDir;
constexpr double kCell = 0.15;

/// One town for all tests; orthos are made from its truth, so every score is known beforehand.
class ScoreTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    town_ = new TempDir;
    SampleOptions o;
    o.outDir = town_->Path();
    o.seed = 3;
    o.sizeM = 42;
    o.photoCount = 2;
    o.photoGsdM = 0.15;
    o.truthCellM = kCell;
    o.dsmCellM = 1;
    o.attitudeDeg = 1;
    std::string error;
    ASSERT_TRUE(WriteSampleTown(o, error, {})) << error;
  }
  static void TearDownTestSuite() {
    delete town_;
    town_ = nullptr;
  }

  static tqorkit::PhotoInfo Truth(const std::string& name, tqimage::GeoCoefficients& geo) {
    tqorkit::PhotoInfo image;
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(town_->File("truth/" + name), image, &geo));
    return image;
  }
  void Write(const std::string& name, const tqorkit::PhotoInfo& image,
             const tqimage::GeoCoefficients& geo) {
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(job_.File(name), image, &geo, true));
  }
  JobScore Score() {
    JobScore score;
    std::string error;
    EXPECT_TRUE(ScoreJob(town_->File("truth"), job_.Path(), score, error)) << error;
    return score;
  }

  static TempDir* town_;
  TempDir job_;
};
TempDir* ScoreTest::town_ = nullptr;

TEST_F(ScoreTest, TheTruthItselfScoresPerfectly) {
  tqimage::GeoCoefficients geo;
  const tqorkit::PhotoInfo ortho = Truth("ortho.tif", geo);
  for (const std::string stem : {"S01_001", "S01_002"}) {
    tqorkit::PhotoInfo mask = Truth("visibility/" + stem + ".tif", geo);
    for (auto& v : mask.data) v = v == 255 ? 255 : 0;
    Write(stem + "_0.png", ortho, geo);
    Write(stem + "_0.png_obs.tif", mask, geo);
  }
  job_.Write("S01_001_0.png.txt", "not an ortho");
  const JobScore score = Score();
  ASSERT_EQ(score.photos.size(), 2U);
  for (const PhotoScore* s : {&score.photos[0], &score.photos[1], &score.total}) {
    EXPECT_EQ(s->psnr, 99);
    EXPECT_LT(s->registration, 1e-3);
    EXPECT_GT(s->patches, 5);
    EXPECT_EQ(std::min({s->iou, s->precision, s->recall}), 1);
  }
  EXPECT_EQ(score.total.patches, score.photos[0].patches + score.photos[1].patches);
}

TEST_F(ScoreTest, AShiftedOrthoShowsItsShift) {
  tqimage::GeoCoefficients geo;
  const tqorkit::PhotoInfo ortho = Truth("ortho.tif", geo);
  const auto origin = geo.GetOrigin();
  for (const auto& [cellsX, cellsY] : {std::pair{2.0, 0.0}, {0.0, -3.0}, {0.4, 0.3}}) {
    geo.SetOrigin(origin.x + cellsX * kCell, origin.y + cellsY * kCell);
    Write("S01_001_0.png", ortho, geo);
    const PhotoScore s = Score().total;
    EXPECT_GT(s.patches, 5);
    EXPECT_NEAR(s.registration, std::hypot(cellsX, cellsY), 0.03);
    EXPECT_LT(s.psnr, 33);
  }
}

// Cells of twice the size have their centres between four cells of the truth: a slip of half a cell
// in either raster would show as a quarter of these cells or more.
TEST_F(ScoreTest, AnOrthoOnACoarserLatticeIsNotDisplaced) {
  tqimage::GeoCoefficients geo;
  const tqorkit::PhotoInfo fine = Truth("ortho.tif", geo);
  tqorkit::PhotoInfo coarse = fine;
  coarse.width /= 2;
  coarse.height /= 2;
  coarse.data.clear();
  for (int row = 0; row < coarse.height; ++row) {
    for (int col = 0; col < coarse.width; ++col) {
      for (int b = 0; b < 3; ++b) {
        int sum = 2;
        for (int k = 0; k < 4; ++k) {
          sum += fine.data[static_cast<std::size_t>(
              ((2 * row + k / 2) * fine.width + 2 * col + k % 2) * 3 + b)];
        }
        coarse.data.push_back(static_cast<std::uint8_t>(sum / 4));
      }
    }
  }
  const double transform[6] = {geo.GetOrigin().x + 0.5 * kCell, 2 * kCell, 0,
                               geo.GetOrigin().y - 0.5 * kCell, 0,         -2 * kCell};
  Write("S01_002_0.png", coarse, tqimage::GeoCoefficients(transform, coarse.width, coarse.height));
  const PhotoScore s = Score().total;
  EXPECT_GE(s.patches, 3);
  EXPECT_LT(s.registration, 0.02);
  EXPECT_GT(s.psnr, 50);
}

TEST_F(ScoreTest, MasksAreCountedAndAMissingMaskHidesNothing) {
  tqimage::GeoCoefficients geo;
  const tqorkit::PhotoInfo ortho = Truth("ortho.tif", geo);
  const tqorkit::PhotoInfo truth = Truth("visibility/S01_001.tif", geo);
  tqorkit::PhotoInfo mask = truth;
  double both = 0, falsely = 0, hidden = 0;
  std::size_t i = 0;
  for (auto& v : mask.data) {  // every second hidden cell, every fiftieth seen one, all outside
    const bool mark = truth.data[i] == 255 ? i % 2 == 0 : truth.data[i] == 128 || i % 50 == 0;
    hidden += truth.data[i] == 255 ? 1 : 0;
    both += mark && truth.data[i] == 255 ? 1 : 0;
    falsely += mark && truth.data[i] == 0 ? 1 : 0;
    v = mark ? 255 : 0;
    ++i;
  }
  ASSERT_GT(hidden, 100);
  ASSERT_GT(falsely, 100);
  Write("S01_001_0.png", ortho, geo);
  Write("S01_001_0.png_obs.tif", mask, geo);
  Write("S01_002_0.png", ortho, geo);
  const JobScore score = Score();
  ASSERT_EQ(score.photos.size(), 2U);
  EXPECT_NEAR(score.photos[0].iou, both / (hidden + falsely), 1e-12);
  EXPECT_NEAR(score.photos[0].precision, both / (both + falsely), 1e-12);
  EXPECT_NEAR(score.photos[0].recall, both / hidden, 1e-12);
  EXPECT_EQ(score.photos[1].recall, 0);
  EXPECT_EQ(score.photos[1].iou, 0);
  EXPECT_LT(score.total.recall, score.photos[0].recall);
  EXPECT_EQ(score.total.precision, score.photos[0].precision);
}

TEST_F(ScoreTest, SaysWhatIsMissing) {
  JobScore score;
  std::string error;
  EXPECT_FALSE(ScoreJob(town_->Path(), job_.Path(), score, error));
  EXPECT_NE(error.find(job_.Path()), std::string::npos) << error;
  EXPECT_FALSE(ScoreJob(job_.File("nowhere"), job_.Path(), score, error));
  EXPECT_NE(error.find("nowhere"), std::string::npos) << error;
}

}  // namespace
}  // namespace tqtortho::host
