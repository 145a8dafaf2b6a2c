// SPDX-License-Identifier: Apache-2.0
#include "visibility/surface_visibility.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

constexpr float kNoData = -9999;
constexpr std::uint8_t kSeen = 0, kHidden = 255, kOutside = 128, kNoHeight = 64;
using Bytes = std::vector<std::uint8_t>;

/// A surface of n x n cells over [0, n * cell] squared, north-up, and a lattice over the same
/// ground, from height functions of ground X and Y.
struct Ground {
  int size;
  double cell;
  std::vector<float> heights;
  double wallStep;

  Ground(int n, double cellSize, const std::function<double(double, double)>& height)
      : size(n), cell(cellSize), wallStep(StepSurface::DefaultWallStep(cellSize)) {
    for (int row = 0; row < n; ++row) {
      for (int col = 0; col < n; ++col) {
        heights.push_back(static_cast<float>(height((col + 0.5) * cell, (n - row - 0.5) * cell)));
      }
    }
  }
  [[nodiscard]] double Extent() const { return size * cell; }
  [[nodiscard]] StepSurface Surface() const {
    return {GridView<const float>(heights.data(), size, size), kNoData, wallStep};
  }
  [[nodiscard]] SurfacePlacement Placement() const {
    return {0.5 * cell, Extent() - 0.5 * cell, cell, cell};
  }
  [[nodiscard]] VisibilityLattice Lattice(double step) const {
    const int cells = static_cast<int>(std::lround(Extent() / step));
    return {0.5 * step, Extent() - 0.5 * step, step, cells, cells};
  }
};

/// A vertical camera whose frame holds everything below it.
PhotoCamera WideCamera(double x, double y, double z) {
  PhotoCamera camera;
  camera.centre = {x, y, z};
  camera.focal = 1;
  camera.pixelSize = 1e-3;
  camera.width = 1e9;
  camera.height = 1e9;
  return camera;
}

Bytes Judge(const Ground& ground, const PhotoCamera& camera, double step, double tolerance = -1,
            double planeSpacing = 0.5) {
  const VisibilityLattice lattice = ground.Lattice(step);
  Bytes mask(static_cast<std::size_t>(lattice.rows) * lattice.cols, 77);
  VisibilityOptions options;
  options.noHeight = kNoHeight;
  options.tolerance = tolerance;
  options.planeSpacing = planeSpacing;
  EXPECT_TRUE(ComputeVisibility(ground.Surface(), ground.Placement(), camera, lattice, options,
                                {mask.data(), lattice.rows, lattice.cols}));
  EXPECT_EQ(std::count(mask.begin(), mask.end(), 77), 0) << "cells left out";
  return mask;
}

/// Hidden cells of the row (or column, when `across`) at a ground position, times the step.
double HiddenLength(const Bytes& mask, int size, int line, bool across, double step) {
  int hidden = 0;
  for (int i = 0; i < size; ++i) {
    hidden += mask[across ? i * size + line : line * size + i] == kHidden;
  }
  return hidden * step;
}

// A wall of height h seen from height z at distance d ends its shadow at distance d * z / (z - h).
// The eastern edge of a box counts for shadows to the east, and so on; the box's edges lie on
// middle lines between centres, so the answer is exact to one lattice cell.
TEST(SurfaceVisibilityTest, BoxCastsTheShadowThatGeometrySays) {
  struct Case {
    const char* name;
    double x, y, z;
    bool across;  // measured along a column
    double from;  // camera to the box's far edge
    double cell, step;
  };
  // The box covers [40, 60] squared and is 10 high, ground 100 x 100.
  const Case cases[] = {
      {"camera in the west", 20, 50, 50, false, 40, 0.5, 0.2},
      {"camera in the east", 85, 50, 50, false, 45, 0.5, 0.2},
      {"camera in the south", 50, 10, 60, true, 50, 0.5, 0.2},
      {"camera in the north", 50, 80, 60, true, 40, 0.5, 0.2},
      {"lattice coarser than the surface", 20, 50, 50, false, 40, 0.25, 1},
      {"lattice much finer", 20, 50, 50, false, 40, 1, 0.1},
      {"camera far outside", -400, 50, 300, false, 460, 0.5, 0.25},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Ground ground(static_cast<int>(100 / c.cell), c.cell, [](double x, double y) {
      return x > 40 && x < 60 && y > 40 && y < 60 ? 10.0 : 0.0;
    });
    const Bytes mask = Judge(ground, WideCamera(c.x, c.y, c.z), c.step, 0);
    const int size = static_cast<int>(std::lround(100 / c.step));
    const double expected = c.from * c.z / (c.z - 10) - c.from;
    EXPECT_NEAR(HiddenLength(mask, size, size / 2, c.across, c.step), expected, c.step * 1.01);
  }
}

// Ground is judged in whole quads where the frame lets it; the result is that of each cell alone.
TEST(SurfaceVisibilityTest, TheFrameIsThatOfEachCellUnderTiltAndLens) {
  const Ground ground(120, 1, [](double x, double y) { return 2 * std::sin(x / 9) + 0.03 * y; });
  const StepSurface surface = ground.Surface();
  for (const int model : {0, 1, 3}) {
    for (const double tilt : {0.0, 0.14, -0.3}) {
      SCOPED_TRACE(testing::Message() << "lens " << model << ", tilt " << tilt);
      PhotoCamera camera = WideCamera(57, 63, 90);
      camera.pixelSize = 0.002;
      camera.width = 500;
      camera.height = 400;
      RotationFromAngles(tilt, 0.1 - tilt, 0.7, camera.rotation);
      camera.lens = {model, 400, 250, 200, 500, 0.002, -0.04, 0.01, 0, 1e-3, 5e-4, 0, 0};
      if (model == 1) camera.lens.k1 = 2e-7;
      const double step = 0.3;
      const VisibilityLattice lattice = ground.Lattice(step);
      const Bytes mask = Judge(ground, camera, step);
      int inside = 0;
      for (int row = 2; row + 2 < lattice.rows; ++row) {
        for (int col = 2; col + 2 < lattice.cols; ++col) {
          const double x = lattice.firstX + col * step;
          const double y = lattice.firstY - row * step;
          const double z = surface.HeightAt(119.5 - y, x - 0.5);
          const auto ideal = PixelFromImage(camera, ImageFromGround(camera, x, y, z));
          const auto at = RecordedFromIdeal(
              camera.lens, {static_cast<float>(ideal.x), static_cast<float>(ideal.y)});
          const auto holds = [](double c, double u) {
            return c >= 0 && c < 500 && u >= 0 && u < 400;
          };
          const bool truth = holds(ideal.x, ideal.y) && holds(at.x, 400 - at.y);
          inside += truth ? 1 : 0;
          ASSERT_EQ(mask[row * lattice.cols + col], truth ? kSeen : kOutside) << row << ' ' << col;
        }
      }
      EXPECT_GT(inside, 20000);
    }
  }
}

/// Hidden or not by marching along the sight line in small steps: -1, 1, or 0 where the nearest
/// miss is closer than `margin`.
int MarchedVisibility(const StepSurface& surface, double row, double col, double cameraRow,
                      double cameraCol, double cameraZ, double margin) {
  const double height = surface.HeightAt(row, col);
  double clearance = 1e9;
  constexpr int kSteps = 4000;
  for (int i = 1; i < kSteps; ++i) {
    const double t = static_cast<double>(i) / kSteps;
    const double at = surface.HeightAt(row + t * (cameraRow - row), col + t * (cameraCol - col));
    if (std::isnan(at)) continue;
    clearance = std::min(clearance, (height + t * (cameraZ - height) - at) / t);
  }
  return clearance > margin ? 1 : clearance < -margin ? -1 : 0;
}

TEST(SurfaceVisibilityTest, AgreesWithDenseMarchingOnRandomSurfaces) {
  constexpr unsigned kSeed = 20240817;
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> unit(0, 1);
  int judged = 0;
  int wrong = 0;
  for (int round = 0; round < 40; ++round) {
    Ground ground(24, 1, [](double, double) { return 0.0; });
    const double noise = round % 3;
    for (float& h : ground.heights) h = static_cast<float>(noise * unit(random));
    for (int box = 0; box < 4; ++box) {
      const int row = static_cast<int>(20 * unit(random));
      const int col = static_cast<int>(20 * unit(random));
      const auto top = static_cast<float>(12 * unit(random));
      for (int r = row; r < row + 4; ++r) {
        for (int c = col; c < col + 4; ++c) ground.heights[r * 24 + c] += top;
      }
    }
    if (round % 4 == 0) ground.heights[static_cast<int>(575 * unit(random))] = kNoData;
    if (round % 4 == 2) ground.heights[static_cast<int>(575 * unit(random))] = NAN;
    // Cameras inside, outside, and below the roofs.
    const double x = 60 * unit(random) - 18;
    const double y = 60 * unit(random) - 18;
    const double z = 6 + 30 * unit(random);
    const StepSurface surface = ground.Surface();
    const double step = 0.15 + 0.5 * unit(random);
    const Bytes mask = Judge(ground, WideCamera(x, y, z), step, 0, 0.02);
    const VisibilityLattice lattice = ground.Lattice(step);
    for (int row = 0; row < lattice.rows; ++row) {
      for (int col = 0; col < lattice.cols; ++col) {
        const double surfaceCol = lattice.firstX + col * step - 0.5;
        const double surfaceRow = 23.5 - (lattice.firstY - row * step);
        const double height = surface.HeightAt(surfaceRow, surfaceCol);
        const std::uint8_t value = mask[row * lattice.cols + col];
        if (std::isnan(height) || value == kNoHeight) {
          // The outermost half cell has no centre beyond it, and is told by neither alike.
          const bool rim = std::min({surfaceRow, surfaceCol, 23 - surfaceRow, 23 - surfaceCol}) < 0;
          ASSERT_TRUE(rim || std::isnan(height) == (value == kNoHeight)) << row << " " << col;
          continue;
        }
        if (height >= z || (row * 31 + col * 17) % 23 != 0) continue;
        const int truth =
            MarchedVisibility(surface, surfaceRow, surfaceCol, 23.5 - y, x - 0.5, z, 0.3);
        if (truth == 0) continue;
        ++judged;
        wrong += (truth < 0) != (value == kHidden);
      }
    }
  }
  ASSERT_GT(judged, 5000) << "seed " << kSeed;
  EXPECT_LT(wrong, judged * 0.01) << "seed " << kSeed << ", judged " << judged << ", wrong "
                                  << wrong;
}

// Memory is bounded by judging groups of planes; a lattice of several groups must come out like
// its parts.
TEST(SurfaceVisibilityTest, LargeLatticesAgreeWithTheirParts) {
  const Ground ground(150, 1, [](double x, double y) {
    return std::fmod(x, 30) < 8 && std::fmod(y, 25) < 9 ? 9.0 : 0.02 * x;
  });
  const PhotoCamera camera = WideCamera(70.3, 66.6, 80);
  const double step = 0.05;
  const VisibilityLattice lattice = ground.Lattice(step);
  const Bytes whole = Judge(ground, camera, step);
  VisibilityOptions options;
  VisibilityLattice part = lattice;
  part.firstX += 1700 * step;
  part.firstY -= 900 * step;
  part.rows = 400;
  part.cols = 500;
  Bytes mask(400 * 500);
  ASSERT_TRUE(ComputeVisibility(ground.Surface(), ground.Placement(), camera, part, options,
                                {mask.data(), 400, 500}));
  int different = 0;
  for (int row = 0; row < 400; ++row) {
    for (int col = 0; col < 500; ++col) {
      different += mask[row * 500 + col] != whole[(row + 900) * lattice.cols + col + 1700];
    }
  }
  EXPECT_LT(different, 200000 * 0.002);
  // What makes no sense is refused.
  const auto judge = [&](SurfacePlacement p, const PhotoCamera& c, VisibilityLattice l) {
    return ComputeVisibility(ground.Surface(), p, c, l, {}, {mask.data(), 400, 500});
  };
  EXPECT_FALSE(judge({0, 0, 0, 1}, camera, part));
  EXPECT_FALSE(judge({0, 0, NAN, 1}, camera, part));
  EXPECT_FALSE(judge(ground.Placement(), WideCamera(NAN, 5, 9), part));
  EXPECT_FALSE(judge(ground.Placement(), PhotoCamera(), part));
  EXPECT_FALSE(judge(ground.Placement(), camera, {0, 0, 0, 400, 500}));
  EXPECT_FALSE(judge(ground.Placement(), camera, {0, 0, 1, 400, 499}));
}

}  // namespace
}  // namespace tqtortho
