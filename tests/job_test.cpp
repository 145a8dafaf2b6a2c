// SPDX-License-Identifier: Apache-2.0
// Whole jobs through the host, measured against truth: a generated town, and a real survey when the
// outside data is there.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "importers/odm_import.h"
#include "run/run_job.h"
#include "score/patch_registration.h"
#include "score/score.h"
#include "survey/survey_reader.h"
#include "testing/quiet_observer.h"
#include "testing/temp_dir.h"
#include "testing/town_data.h"
#include "town/sample_town.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using ::tqtortho::testing::SharedData;
using ::tqtortho::testing::TempDir;

using ::tqtortho::testing::QuietObserver;

struct TownJob {
  TempDir dir;
  RunReport report;
  std::string error;
  RunStatus status = RunStatus::kFailed;

  TownJob(int lensModel, QuietObserver& observer) {
    SampleOptions town;
    town.outDir = dir.File("town");
    town.sizeM = 60;
    town.photoCount = 4;
    town.photoGsdM = 0.15;
    town.lensModel = lensModel;
    EXPECT_TRUE(WriteSampleTown(town, error, {})) << error;
    std::vector<std::string> problems;
    auto survey = ReadSurvey(town.outDir + "/cameras.txt", town.outDir + "/photos.txt", problems);
    EXPECT_TRUE(problems.empty()) << problems.front();
    if (!survey) return;
    RunOptions options;
    options.dsmPath = town.outDir + "/dsm.tif";
    options.outDir = dir.File("out");
    options.threads = 2;
    options.finish = Finish::kNone;  // the orthos as they were rectified
    status = RunJob(*survey, options, observer, report, error);
  }
};

class TownJobTest : public ::testing::TestWithParam<int> {};

TEST_P(TownJobTest, OrthosLieOnTheTruthAndMasksFollowTrueVisibility) {
  QuietObserver observer;
  TownJob job(GetParam(), observer);
  ASSERT_EQ(job.status, RunStatus::kDone) << job.error;
  for (const auto& photo : job.report.photos) EXPECT_TRUE(photo.done) << photo.reason;
  JobScore score;
  ASSERT_TRUE(ScoreJob(job.dir.File("town"), job.dir.File("out/ortho"), score, job.error))
      << job.error;
  EXPECT_GE(score.total.patches, 10);
  EXPECT_LT(score.total.registration, 0.1);
  EXPECT_GT(score.total.psnr, 27);
  MosaicScore mosaic;
  ASSERT_TRUE(ScoreMosaic(job.dir.File("town"), job.report.mosaicPath, mosaic, job.error))
      << job.error;
  EXPECT_LT(mosaic.registration, 0.1);
  EXPECT_GT(mosaic.psnr, 29);  // ground that no photo sees included
  EXPECT_LT(mosaic.facades, 0.004);
  // Small houses have small shadows, and blobs of up to 500 cells are taken for speckles.
  EXPECT_GT(score.total.iou, 0.25);
}

INSTANTIATE_TEST_SUITE_P(LensModels, TownJobTest, ::testing::Values(0, 1, 3));

/// Displacement of `b` against `a` on textured patches where both have data, in cells.
std::vector<double> Displacements(const cv::Mat& a, const cv::Mat& b, const cv::Mat& usable) {
  constexpr int kSide = 48;
  std::vector<double> found;
  for (int r = 0; r + kSide <= a.rows; r += kSide / 2) {
    for (int c = 0; c + kSide <= a.cols; c += kSide / 2) {
      const cv::Rect patch(c, r, kSide, kSide);
      if (cv::countNonZero(usable(patch)) < kSide * kSide) continue;
      cv::Mat pa, pb;
      a(patch).convertTo(pa, CV_32F);
      b(patch).convertTo(pb, CV_32F);
      PatchShift shift;
      if (RegisterPatch({pa.ptr<float>(), kSide, kSide}, {pb.ptr<float>(), kSide, kSide}, shift)) {
        found.push_back(std::hypot(shift.dx, shift.dy));
      }
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

TEST(RealSurveyTest, ObliquePhotosAgreeWithAnIndependentTool) {
  const std::string data = SharedData();
  if (data.empty()) GTEST_SKIP() << "outside measurement data is not here";
  std::string error;
  auto survey = ImportOdm(data + "/odm-field", error);
  ASSERT_TRUE(survey) << error;
  TempDir dir;
  RunOptions options;
  options.dsmPath = survey->dsmPath;
  options.outDir = dir.Path();
  options.gsd = 0.4;
  options.finish = Finish::kNone;
  QuietObserver observer;
  RunReport report;
  ASSERT_EQ(RunJob(*survey, options, observer, report, error), RunStatus::kDone) << error;
  ASSERT_EQ(report.photos.size(), 4U);
  for (const auto& photo : report.photos) {
    ASSERT_TRUE(photo.done) << photo.name << ": " << photo.reason;
    tqorkit::PhotoInfo ours, mask, theirs;
    tqimage::GeoCoefficients at, there;
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(photo.orthoPath, ours, &at));
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(photo.orthoPath + "_obs.tif", mask, nullptr));
    const std::string stem = std::filesystem::path(photo.name).stem().string();
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(
        data + "/odm-field/reference_orthos/" + stem + "_ORTHO.tif", theirs, &there));
    // The reference on our lattice; the rest of a cell stays in the map, so nothing is hidden by
    // it.
    cv::Mat mapX(ours.height, ours.width, CV_32F), mapY(ours.height, ours.width, CV_32F);
    for (int r = 0; r < ours.height; ++r) {
      for (int c = 0; c < ours.width; ++c) {
        const auto ground = at.Raster2World(c, r);
        mapX.at<float>(r, c) = static_cast<float>((ground.x - there.GetOrigin().x) / 0.4);
        mapY.at<float>(r, c) = static_cast<float>((there.GetOrigin().y - ground.y) / 0.4);
      }
    }
    cv::Mat reference(theirs.height, theirs.width, CV_8UC3, theirs.data.data()), placed, grayA,
        grayB;
    cv::remap(reference, placed, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::cvtColor(cv::Mat(ours.height, ours.width, CV_8UC3, ours.data.data()), grayA,
                 cv::COLOR_RGB2GRAY);
    cv::cvtColor(placed, grayB, cv::COLOR_RGB2GRAY);
    const cv::Mat hidden(ours.height, ours.width, CV_8U, mask.data.data());
    const cv::Mat usable = (grayA > 0) & (grayB > 0) & (hidden == 0);
    const auto shifts = Displacements(grayA, grayB, usable);
    ASSERT_GE(shifts.size(), 10U) << photo.name;
    const double median = shifts[shifts.size() / 2];
    std::printf("%s: %zu patches, median displacement %.3f cells\n", photo.name.c_str(),
                shifts.size(), median);
    EXPECT_LT(median, 0.25) << photo.name;
    EXPECT_NEAR(cv::mean(grayA, usable)[0], cv::mean(grayB, usable)[0], 3) << photo.name;
  }
}

}  // namespace
}  // namespace tqtortho::host
