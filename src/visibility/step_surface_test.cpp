// SPDX-License-Identifier: Apache-2.0
#include "visibility/step_surface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace tqtortho {
namespace {

constexpr float kNoData = -9999;

/// A surface of rows x cols cells of size 1 from a function of row and column.
struct Heights {
  std::vector<float> cells;
  int rows;
  int cols;
  Heights(int rowCount, int colCount, const std::function<double(int, int)>& height)
      : rows(rowCount), cols(colCount) {
    for (int row = 0; row < rows; ++row) {
      for (int col = 0; col < cols; ++col) cells.push_back(static_cast<float>(height(row, col)));
    }
  }
  [[nodiscard]] StepSurface Surface(double wallStep = 1.5) const {
    return {GridView<const float>(cells.data(), rows, cols), kNoData, wallStep};
  }
};

// A steep slope reaches over more than a wall's height within a quad, in steps that are none.
TEST(StepSurfaceTest, SmoothGroundIsBilinearHoweverSteep) {
  const Heights heights(6, 7, [](int row, int col) { return 3 + 1.4 * row - 1.3 * col; });
  const StepSurface surface = heights.Surface();
  for (double row = 0; row <= 5; row += 0.31) {
    for (double col = 0; col <= 6; col += 0.17) {
      EXPECT_NEAR(surface.HeightAt(row, col), 3 + 1.4 * row - 1.3 * col, 2e-6);
    }
  }
  EXPECT_TRUE(std::isnan(surface.HeightAt(-0.01, 1)));
  EXPECT_TRUE(std::isnan(surface.HeightAt(1, 6.01)));
  EXPECT_TRUE(std::isnan(surface.HeightAt(std::numeric_limits<double>::quiet_NaN(), 1)));
}

// Point samples of a slanted edge make a staircase. The surface's edge has to lie nearer to the
// true one than the staircase does, and to neither side of it on the average.
TEST(StepSurfaceTest, SlantedEdgesAreStraightened) {
  for (const double angle : {0.2, 0.35, 0.6, 1.1, 2.5}) {
    SCOPED_TRACE(angle);
    const auto isRoof = [&](double row, double col) {
      return (row - 40) * std::sin(angle) + (col - 40) * std::cos(angle) > 0.07;
    };
    const Heights heights(81, 81, [&](int row, int col) { return isRoof(row, col) ? 8.0 : 0.0; });
    const StepSurface surface = heights.Surface();
    int staircase = 0;
    int wrong = 0;
    int balance = 0;
    for (double row = 4.025; row < 76; row += 0.05) {
      for (double col = 4.025; col < 76; col += 0.05) {
        const int truth = isRoof(row, col) ? 1 : 0;
        const int here = surface.HeightAt(row, col) > 4 ? 1 : 0;
        staircase += std::abs(truth - (isRoof(std::round(row), std::round(col)) ? 1 : 0));
        wrong += std::abs(truth - here);
        balance += here - truth;
      }
    }
    EXPECT_LT(wrong, 0.75 * staircase);
    EXPECT_LT(std::abs(balance), 0.1 * staircase);
  }
}

TEST(StepSurfaceTest, NoDataIsNoSurfaceHalfACellAround) {
  for (const float none :
       {kNoData, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    const Heights heights(9, 9, [&](int row, int col) { return row == 4 && col == 4 ? none : 7; });
    const StepSurface surface = heights.Surface();
    EXPECT_TRUE(std::isnan(surface.HeightAt(4, 4)));
    EXPECT_TRUE(std::isnan(surface.HeightAt(4.45, 3.55)));
    EXPECT_EQ(surface.HeightAt(4.55, 4), 7);
    EXPECT_EQ(surface.HeightAt(4, 3.45), 7);
    EXPECT_EQ(surface.Lowest(), 7);
    EXPECT_EQ(surface.Highest(), 7);
  }
}

}  // namespace
}  // namespace tqtortho
