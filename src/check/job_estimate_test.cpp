// SPDX-License-Identifier: Apache-2.0
#include "check/job_estimate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace tqtortho::host {
namespace {

using ::testing::ElementsAre;

/// Level views of 60 x 40 m from 60 m above a surface of 400 x 400 m.
Survey Views(const std::vector<double>& places) {
  Survey survey;
  SurveyCamera camera;
  camera.id = 1;
  camera.width = camera.sensorWidth = 60;
  camera.height = 40;
  camera.focalLength = 60;
  camera.principalX = 30;
  camera.principalY = 20;
  survey.cameras = {camera};
  survey.blocks.resize(1);
  for (const double x : places) {
    survey.blocks[0].photos.push_back(
        {"p" + std::to_string(survey.blocks[0].photos.size()), 1000 + x, 1800, 160, 0, 0, 0, 1});
  }
  return survey;
}

DsmFacts Flat() {
  DsmFacts dsm;
  const double transform[6] = {1000, 1, 0, 2000, 0, -1};
  dsm.coefficients = tqimage::GeoCoefficients(transform, 401, 401);
  dsm.cols = dsm.rows = 401;
  dsm.meanHeight = 100;
  return dsm;
}

TEST(EstimateJobTest, CellsAndOverlapOfLevelViewsFollowFromTheirFrames) {
  // Frame centres lie half a pixel right of and below the principal point.
  const JobEstimate one = EstimateJob(Views({200}), Flat(), 0.5, 1);
  EXPECT_NEAR(one.orthoCells, 120 * 80, 1e-6);
  EXPECT_NEAR(one.mosaicCells, 120 * 80, 1e-6);
  EXPECT_EQ(one.overlap, 1);
  const JobEstimate three = EstimateJob(Views({100, 110, 120}), Flat(), 0.5, 1);
  EXPECT_NEAR(three.orthoCells, 3 * 120 * 80, 1e-6);
  EXPECT_NEAR(three.mosaicCells, 160 * 80, 1e-6);
  EXPECT_EQ(three.overlap, 3);  // 40 of 80 m on three, 20 on two, 20 on one
  const JobEstimate cut = EstimateJob(Views({200, 0, -500}), Flat(), 0.5, 1);
  EXPECT_NEAR(cut.orthoCells, 120 * 80 + 59 * 80, 1);  // half of the second beyond the edge
  EXPECT_THAT(cut.outside, ElementsAre("p2"));
  EXPECT_GT(EstimateJob(Views({200}), Flat(), 0.1, 1).seconds, one.seconds);
}

// A frame turned by 45 degrees on the surface's corner shows a triangle of it, whose box is smaller
// than what frame's box and surface share.
TEST(EstimateJobTest, AFrameIsCutToTheSurfaceBeforeItsBoxIsTaken) {
  Survey survey = Views({-20});
  survey.blocks[0].photos[0].kappa = -0.7853981633974483;
  const double whole = (60 + 40) * std::sqrt(0.5);
  const JobEstimate cut = EstimateJob(survey, Flat(), 1, 1);
  EXPECT_LT(cut.orthoCells, (whole / 2 - 20) * whole - 50);
  EXPECT_GT(cut.orthoCells, 0);
  EXPECT_NEAR(EstimateJob(Views({200}), Flat(), 1, 1, {{1190, 1790}, {1210, 1790}, {1200, 1810}})
                  .orthoCells,
              20 * 20, 1e-6);
}

TEST(DescribeJobTest, NumbersAreReadable) {
  const auto job = [](double cells, double bytes, double seconds) {
    JobEstimate e;
    e.gsd = 0.031;
    e.mosaicCells = cells;
    e.orthoCells = 4 * cells;
    e.diskBytes = e.mosaicBytes = e.memoryBytes = bytes;
    e.seconds = seconds;
    const auto lines = DescribeJob({}, {}, e, -1);
    return lines[2] + lines[3];
  };
  EXPECT_EQ(job(1.38e9, 1.234e9, 700),
            "job      --gsd 0.031: mosaic of 1,380 million cells, orthos of 5,520 million cells"
            "         about 1.3 GB on disk (mosaic 1.3 GB; unknown free), 1.3 GB of memory, 12 min "
            "of time");
  EXPECT_EQ(job(89300, 84.1e6, 3e5),
            "job      --gsd 0.031: mosaic of 89,300 cells, orthos of 357,000 cells"
            "         about 85 MB on disk (mosaic 85 MB; unknown free), 85 MB of memory, 4 days of "
            "time");
  EXPECT_EQ(job(4.444e6, 1.21e15, 0), job(4.444e6, 1.3e15, 0));
  EXPECT_NE(job(4.444e6, 1.21e15, 0).find("4.44 million cells"), std::string::npos);
  EXPECT_NE(job(4.444e6, 1.21e15, 0).find("1,300 TB"), std::string::npos);
}

TEST(CheckCostTest, WhatExceedsTheMachineOrIsFarTooFineIsRefusedUnlessAllowed) {
  JobEstimate estimate;
  estimate.diskBytes = 9e9;
  estimate.memoryBytes = 4e9;
  const auto levels = [&](double room, double memory, double gsd, double hours, bool allowed) {
    estimate.gsd = gsd;
    estimate.seconds = 3600 * hours;
    std::vector<Finding> findings;
    CheckCost(estimate, 0.1, "out",
              {static_cast<std::int64_t>(room), static_cast<std::int64_t>(memory)}, allowed,
              findings);
    std::string text;
    for (const auto& f : findings) {
      text += f.level == Finding::Level::kError ? 'E' : 'W';
      EXPECT_EQ(f.text.find("--allow-large-job") != std::string::npos, !allowed);
    }
    return text;
  };
  EXPECT_EQ(levels(10e9, 8e9, 0.1, 30, false), "");  // long, but as fine as the photos
  EXPECT_EQ(levels(10e9, 8e9, 0.024, 0.03, false), "");
  EXPECT_EQ(levels(10e9, 8e9, 0.024, 0.04, false), "E");
  EXPECT_EQ(levels(10e9, 8e9, 0.026, 1.1, false), "");
  EXPECT_EQ(levels(8e9, 8e9, 0.1, 0, false), "E");
  EXPECT_EQ(levels(10e9, 3e9, 0.1, 0, false), "E");
  EXPECT_EQ(levels(8e9, 3e9, 0.01, 2, true), "WWW");
  EXPECT_EQ(levels(-1, -1, 0.1, 0, false), "");
}

}  // namespace
}  // namespace tqtortho::host
