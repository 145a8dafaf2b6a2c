// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_zone.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "visibility/step_surface.h"
#include "walls/half_cells.h"

namespace tqtortho {
namespace {

constexpr float kNone = -9999;
constexpr double kCell = 0.25;

struct Model {
  int rows = 0;
  int cols = 0;
  std::vector<float> heights;

  Model(int rowCount, int colCount, const std::function<double(int, int)>& height)
      : rows(rowCount), cols(colCount) {
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < cols; ++c) heights.push_back(static_cast<float>(height(r, c)));
    }
  }
  [[nodiscard]] GridView<const float> View() const { return {heights.data(), rows, cols}; }
};

/// The surface on half cells, and the same with each wall upright at its line.
struct Upright {
  std::vector<float> before;
  std::vector<float> after;
  int cols = 0;

  explicit Upright(const Model& model) : cols(HalfCells(model.cols)) {
    before = OnHalfCells(model.View(), kNone, StepSurface::DefaultWallStep(kCell));
    after = before;
    WallZoneOptions options;
    options.cell = kCell;
    options.noData = kNone;
    const GridView<const float> fine(before.data(), HalfCells(model.rows), cols);
    const WallZone zone = FindWallZone(model.View(), fine, options);
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (std::isnan(zone.upper[i])) continue;
      const bool upper = IsUpperByHeight(before[i], zone.upper[i], zone.lower[i], zone.level[i]);
      after[i] = HeightOnSide(before[i], zone.upper[i], zone.lower[i], upper);
    }
  }
  [[nodiscard]] float At(int row, int col) const {
    return after[static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) +
                 static_cast<std::size_t>(col)];
  }
};

/// A roof over columns 30 to 49 whose walls rise within `ramp` cells around columns 29.5 and 49.5.
double Roof(int col, double ramp, double roofHeight) {
  const double inside = std::min(col - 29.5, 49.5 - col);
  return roofHeight * std::clamp(0.5 + inside / ramp, 0.0, 1.0);
}

TEST(OnHalfCellsTest, KeepsCentresAndLaysNoLedgeOnWalls) {
  const Model box(20, 20, [](int r, int c) { return r > 5 && r < 14 && c > 6 && c < 15 ? 8 : 0; });
  const std::vector<float> fine =
      OnHalfCells(box.View(), kNone, StepSurface::DefaultWallStep(kCell));
  ASSERT_EQ(fine.size(), 39U * 39U);
  for (int r = 0; r < 39; ++r) {
    for (int c = 0; c < 39; ++c) {
      const float height = fine[static_cast<std::size_t>(r * 39 + c)];
      EXPECT_TRUE(height == 0 || height == 8) << r << " " << c << ": " << height;
      if (r % 2 == 0 && c % 2 == 0) {
        EXPECT_EQ(height, box.View().At(r / 2, c / 2));
      }
    }
  }
}

TEST(FindWallZoneTest, StandsBlurredWallsUprightWhereTheyRiseHalfWay) {
  for (const double ramp : {1.0, 3.0, 5.0}) {
    const Upright upright(Model(60, 80, [&](int, int c) { return 2 + Roof(c, ramp, 9); }));
    for (int col = 30; col < 130; ++col) {
      // Columns of half cells; the line itself lies at 59 and 99.
      if (col == 59 || col == 99) continue;
      const double truth = col > 59 && col < 99 ? 11 : 2;
      EXPECT_NEAR(upright.At(60, col), truth, 0.01) << "ramp " << ramp << ", column " << col;
    }
  }
}

// Interpolation between a roof's edge and the first ground that two photos saw: the wall stands at
// the roof's edge, columns below 20.
TEST(FindWallZoneTest, GivesFilledStripsToTheGround) {
  const Upright upright(Model(60, 80, [](int, int c) {
    return c < 20 ? 15 : c < 36 ? 15.0 - 15.0 * (c - 19) / 17 : 0;
  }));
  for (int col = 46; col < 90; ++col) EXPECT_NEAR(upright.At(60, col), 0, 0.6) << col;
  for (int col = 10; col < 38; ++col) EXPECT_NEAR(upright.At(60, col), 15, 0.01) << col;
}

TEST(FindWallZoneTest, LeavesWhatIsNoWallAlone) {
  std::mt19937 random(20260101);
  std::normal_distribution<double> noise(0, 0.08);
  struct Case {
    std::string name;
    std::function<double(int, int)> height;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<Case> cases = {
      {"flat", [](int, int) { return 3; }},
      {"all holes", [](int, int) { return kNone; }},
      {"not a number", [=](int, int) { return nan; }},
      {"noise only", [&](int, int) { return noise(random); }},
      {"a slope of 45 degrees", [](int r, int) { return 0.25 * r; }},
      {"a gable", [](int r, int) { return 10 - 0.2 * std::abs(r - 25); }},
      {"a step of one metre", [](int, int c) { return c < 25 ? 0 : 1; }},
      {"a mast", [](int r, int c) { return r == 25 && c == 25 ? 30 : 0; }},
      {"one height among holes", [](int r, int c) { return r == 9 && c == 9 ? 5 : kNone; }},
      {"a tree top",
       [](int r, int c) {
         const double away = kCell * std::hypot(r - 25, c - 25);
         return away < 3 ? 3 + 1.6 * std::sqrt(9 - away * away) : 0;
       }},
  };
  // Any size and any height is taken.
  std::uniform_real_distribution<double> any(-1e6, 1e6);
  const double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [rows, cols] : {std::pair{0, 0}, {1, 0}, {1, 5}, {2, 2}, {3, 40}, {40, 1}}) {
    (void)Upright(Model(rows, cols, [&](int, int) { return any(random); }));
    (void)Upright(Model(rows, cols, [&](int r, int c) {
      return (r + c) % 3 == 0 ? infinity : (r + c) % 3 == 1 ? 3e38 : -3e38;
    }));
  }
  for (const Case& test : cases) {
    const Upright upright(Model(50, 50, test.height));
    for (std::size_t i = 0; i < upright.before.size(); ++i) {
      if (std::isnan(upright.before[i]) && std::isnan(upright.after[i])) continue;
      ASSERT_EQ(upright.before[i], upright.after[i]) << test.name << ", cell " << i;
    }
  }
}

}  // namespace
}  // namespace tqtortho
