// SPDX-License-Identifier: Apache-2.0
#include "host/job_estimate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(CheckRoomTest, OnlyAClearlyTooSmallDiskIsRefused) {
  JobEstimate estimate;
  estimate.diskBytes = 9e9;
  estimate.memoryBytes = 4e9;
  const auto levels = [&](double room, double memory) {
    std::vector<Finding> findings;
    CheckRoom(estimate, "out", static_cast<std::int64_t>(room), static_cast<std::int64_t>(memory),
              findings);
    std::string text;
    for (const auto& f : findings) text += f.level == Finding::Level::kError ? 'E' : 'W';
    return text;
  };
  EXPECT_EQ(levels(10e9, 8e9), "");
  EXPECT_EQ(levels(8e9, 8e9), "W");
  EXPECT_EQ(levels(2.9e9, 8e9), "E");
  EXPECT_EQ(levels(-1, 2e9), "W");
  EXPECT_EQ(levels(0, -1), "E");
}

}  // namespace
}  // namespace tqtortho::host
