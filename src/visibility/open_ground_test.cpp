// SPDX-License-Identifier: Apache-2.0
#include "visibility/open_ground.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace tqtortho {
namespace {

constexpr int kSide = 40;
constexpr float kNoData = -9999;

/// How far the sight line to a point of the surface stays above it, at least; from marching.
double Clearance(const StepSurface& surface, const CameraAbove& camera, double row, double col) {
  const double height = surface.HeightAt(row, col);
  double least = std::numeric_limits<double>::infinity();
  constexpr int kSteps = 1500;
  for (int i = 1; i < kSteps; ++i) {
    const double t = static_cast<double>(i) / kSteps;
    const double at = surface.HeightAt(row + t * (camera.row - row), col + t * (camera.col - col));
    if (!std::isnan(at)) least = std::min(least, height + t * (camera.z - height) - at);
  }
  return least;
}

std::vector<float> RandomHeights(int round, std::mt19937& random) {
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<float> heights(kSide * kSide);
  const double noise = 0.4 * (round % 3);
  const double slope = round % 4 == 1 ? 1.2 : 0.1;
  for (int i = 0; i < kSide * kSide; ++i) {
    heights[i] = static_cast<float>(noise * unit(random) + slope * (i % kSide));
  }
  for (int box = 0; box < 4; ++box) {
    const int row = static_cast<int>(36 * unit(random));
    const int col = static_cast<int>(36 * unit(random));
    const auto top = static_cast<float>(25 * unit(random));
    for (int r = row; r < row + 4; ++r) {
      for (int c = col; c < col + 4; ++c) heights[r * kSide + c] += top;
    }
  }
  if (round % 5 == 0) heights[static_cast<int>(1599 * unit(random))] = kNoData;
  return heights;
}

TEST(FindClosedQuadsTest, EveryPointOfAnOpenQuadIsSeenAndMostGroundIsOpen) {
  constexpr unsigned kSeed = 7;
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> unit(0, 1);
  int open = 0;
  int hidden = 0;
  int hiddenOpen = 0;
  constexpr int kRounds = 40;
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<float> heights = RandomHeights(round, random);
    const StepSurface surface(GridView<const float>(heights.data(), kSide, kSide), kNoData, 3.5);
    const CameraAbove camera{80 * unit(random) - 20, 80 * unit(random) - 20,
                             85 + 60 * unit(random)};
    const std::vector<std::uint8_t> closed = FindClosedQuads(surface, camera);
    ASSERT_EQ(closed.size(), 39U * 39U);
    for (int row = 0; row < 39; ++row) {
      for (int col = 0; col < 39; ++col) {
        const bool isOpen = closed[row * 39 + col] == 0;
        open += isOpen ? 1 : 0;
        if ((row * 7 + col * 3) % 5 != 0) continue;
        const double r = row + 0.05 + 0.9 * unit(random);
        const double c = col + 0.05 + 0.9 * unit(random);
        const bool isHidden = Clearance(surface, camera, r, c) < -1e-9;
        hidden += isHidden ? 1 : 0;
        hiddenOpen += isHidden && isOpen ? 1 : 0;
      }
    }
  }
  EXPECT_EQ(hiddenOpen, 0);
  EXPECT_GT(hidden, 300);
  EXPECT_GT(open, kRounds * 39 * 39 * 0.45);
}

TEST(FindClosedQuadsTest, ShadowsAreAsLongAsGeometrySays) {
  // A wall 10 high between columns 19 and 20, a camera 100 above the ground in the west.
  std::vector<float> heights(kSide * kSide, 0);
  for (int row = 0; row < kSide; ++row) heights[row * kSide + 20] = 10;
  const StepSurface surface(GridView<const float>(heights.data(), kSide, kSide), kNoData, 3.5);
  const auto closed = FindClosedQuads(surface, {19.5, -60, 100});
  // Walls may stand half a wall step higher than their centre: the sight line over the eastern
  // border of quad 20 at 11.75 falls to the ground after 81 / 0.8825 = 91.8 columns.
  for (int col = 0; col < kSide - 1; ++col) {
    EXPECT_EQ(closed[19 * 39 + col], col >= 19 && col <= 31 ? 1 : 0) << col;
  }
  const auto among = FindClosedQuads(surface, {20, 20, 9});  // a camera among the surface
  EXPECT_EQ(std::count(among.begin(), among.end(), 1), 39 * 39);
}

}  // namespace
}  // namespace tqtortho
