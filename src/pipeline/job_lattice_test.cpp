// SPDX-License-Identifier: Apache-2.0
#include "pipeline/job_lattice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "core/numeric.h"

namespace tqtortho {
namespace {

using Rect = tqfd::Rect2_T<double>;

tqimage::GeoCoefficients Dsm(double x, double y, double cell) {
  const double transform[] = {x, cell, 0, y, 0, -cell};
  return {transform, 4001, 3001};
}

// What the parameter file makes of a number.
double ThroughFile(double value) {
  char text[400];
  std::snprintf(text, sizeof text, "%lf", value);
  return std::strtod(text, nullptr);
}

double FromWhole(double value) { return std::fabs(value - std::round(value)); }

// Rectification's own sizing, word by word: what it scans and where it puts the output.
struct Scan {
  int rows, cols;
  double firstRowY, outputMaxY;
};
Scan ScanOf(const Rect& rect, double r) {
  Scan scan{};
  scan.rows = TruncToInt((rect.maxY - rect.minY) / r + 1);
  scan.cols = TruncToInt((rect.maxX - rect.minX) / r + 1);
  const int minRow = 3;
  const int maxRow = scan.rows - 2;
  const double minYOut = rect.minY + (scan.rows - maxRow) * r;
  scan.firstRowY = rect.maxY - minRow * r;
  scan.outputMaxY = minYOut + (maxRow - minRow) * r;
  return scan;
}

TEST(JobLatticeTest, FootprintsKeepRectificationOnTheLattice) {
  std::mt19937 random(4711);
  std::uniform_real_distribution<double> unit(0, 1);
  const double steps[] = {0.01, 0.05, 0.123457, 0.4, 1.0 / 3, 2.5, 30, 0.047628372, 0.000009};
  for (int round = 0; round < 2000; ++round) {
    const double step = RoundedToFile(steps[static_cast<std::size_t>(round) % std::size(steps)]);
    const double x0 = 1e6 * unit(random);
    const double y0 = 6e6 * unit(random);
    const double cell = step * (0.2 + 3 * unit(random));
    const JobLattice lattice(Dsm(x0, y0, cell), step);
    Rect ground;
    ground.minX = x0 + 2000 * step * unit(random);
    ground.minY = y0 - 4000 * step * unit(random);
    ground.maxX = ground.minX + 900 * step * unit(random) + step;
    ground.maxY = ground.minY + 900 * step * unit(random) + step;
    const Rect snapped = lattice.SnapOutward(ground);
    SCOPED_TRACE("round " + std::to_string(round));

    EXPECT_EQ(Rect({ThroughFile(snapped.minX), ThroughFile(snapped.minY), ThroughFile(snapped.maxX),
                    ThroughFile(snapped.maxY)}),
              snapped);
    const double noise = 1.1e-6;  // two roundings of the file
    EXPECT_LE(snapped.minX, ground.minX + noise);
    EXPECT_LE(snapped.minY, ground.minY + noise);
    EXPECT_GE(snapped.maxX, ground.maxX - noise);
    EXPECT_GE(snapped.maxY, ground.maxY - noise);
    EXPECT_LT(FromWhole((snapped.minX - lattice.AnchorX()) / step) * step, noise);
    EXPECT_LT(FromWhole((snapped.maxY - lattice.AnchorY()) / step) * step, noise);

    // The output's upper edge is the first row's own Y, a hair higher.
    const Scan scan = ScanOf(snapped, step);
    EXPECT_NEAR(scan.outputMaxY, scan.firstRowY + lattice.Hair(), noise);
    EXPECT_GE(snapped.minX + (scan.cols - 1) * step, ground.maxX - noise) << "last column";
    EXPECT_LE(snapped.maxY - (scan.rows - 1) * step, ground.minY + noise) << "last row";
    // Neither count hangs on the last bits of its quotient.
    EXPECT_GT(FromWhole((snapped.maxX - snapped.minX) / step), 5e-4);
    EXPECT_GT(FromWhole((snapped.maxY - snapped.minY) / step), 5e-4);
  }
}

TEST(JobLatticeTest, TheHairIsSmallButSurvivesTheFile) {
  EXPECT_DOUBLE_EQ(JobLattice(Dsm(0, 0, 1), 1.0).Hair(), 1e-3);
  EXPECT_DOUBLE_EQ(JobLattice(Dsm(0, 0, 1), 0.01).Hair(), 2e-5);
  EXPECT_DOUBLE_EQ(JobLattice(Dsm(0, 0, 1), 1e-5).Hair(), 2.5e-6) << "never near a whole cell";
}

// A corner between DSM cells would shift a block's whole surface by up to half a DSM cell.
TEST(JobLatticeTest, FirstColumnAndRowFallOnDsmCellCentresWhereSizesAllowIt) {
  const struct {
    double cell, step;
    int mostStepsOut;
  } cases[] = {{0.5, 0.5, 0}, {0.5, 0.25, 1}, {0.25, 0.4, 4},    {0.05, 0.03, 4},
               {0.1, 0.5, 0}, {0.8, 0.4, 1},  {0.05, 0.033, 49}, {0.25, 6.1, 4}};
  std::mt19937 random(3);
  std::uniform_real_distribution<double> unit(0, 1);
  for (const auto& c : cases) {
    const JobLattice lattice(Dsm(352345.123456789, 5412345.987654321, c.cell), c.step);
    for (int round = 0; round < 50; ++round) {
      const double minX = 352400 + 100 * unit(random);
      const double maxY = 5412300 - 100 * unit(random);
      const Rect snapped = lattice.SnapOutward({minX, maxY - 50, minX + 50, maxY});
      const double columns = (snapped.minX - 352345.123456789) / c.cell;
      const double rows = (5412345.987654321 - snapped.maxY) / c.cell;
      const double tolerance = c.mostStepsOut > 32 ? 0.07 : 2e-5;  // the best of 32
      EXPECT_LT(FromWhole(columns), tolerance) << c.cell << " " << c.step;
      EXPECT_LT(FromWhole(rows), tolerance) << c.cell << " " << c.step;
      EXPECT_GE(snapped.minX, minX - (c.mostStepsOut + 1) * c.step - 1e-6);
      EXPECT_LE(snapped.maxY, maxY + (c.mostStepsOut + 1) * c.step + 1e-6);
    }
  }
}

}  // namespace
}  // namespace tqtortho
