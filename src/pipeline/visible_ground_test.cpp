// SPDX-License-Identifier: Apache-2.0
#include "pipeline/visible_ground.h"

#include <gtest/gtest.h>

#include <random>

#include "core/rect_ops.h"
#include "mosaic/mosaic_layer.h"
#include "pipeline/neighbours.h"

namespace tqtortho {
namespace {

using Rect = tqfd::Rect2_T<double>;

constexpr double kPatch = 5;

// A surface of flat patches, 40 x 50 of them, lower left corner at (0, 0).
HeightPyramid Surface(const std::vector<HeightRange>& ranges, int rows, int cols) {
  HeightPyramid::Level finest;
  finest.rows = rows;
  finest.cols = cols;
  finest.ranges = ranges;
  return HeightPyramid::Build(finest, 0, rows * kPatch, kPatch, kPatch);
}

PhotoCamera Camera(double x, double y, double z, double phi, double omega, double kappa) {
  PhotoCamera camera;
  camera.centre = {x, y, z};
  RotationFromAngles(phi, omega, kappa, camera.rotation);
  camera.focal = 0.8;  // of 1 m, so that pixels are 1e-3
  camera.pixelSize = 1e-3;
  camera.offsetX = 0.013;
  camera.offsetY = -0.021;
  camera.width = 600;
  camera.height = 400;
  camera.lens.height = 400;
  camera.lens.centreCol = 313;
  camera.lens.centreUp = 179;
  camera.lens.focalPixels = 800;
  camera.lens.pixelSize = 1e-3;
  return camera;
}

// The box by brute force: every patch of which one of 7 x 7 points is shown.
Rect BruteForce(const HeightPyramid& surface, const PhotoCamera& camera) {
  const auto& finest = surface.levels.front();
  Rect box;
  for (int row = 0; row < finest.rows; ++row) {
    for (int col = 0; col < finest.cols; ++col) {
      const auto& range = finest.ranges[static_cast<std::size_t>(row * finest.cols + col)];
      if (range.Empty()) continue;
      const double left = col * kPatch;
      const double top = surface.maxY - row * kPatch;
      for (int i = 0; i < 49; ++i) {
        const double x = left + kPatch * (i % 7) / 6;
        const double y = top - kPatch * (i / 7) / 6;
        double col = 0, line = 0;
        if (host::PhotoPosition(camera, x, y, range.low, col, line) ||
            host::PhotoPosition(camera, x, y, range.high, col, line)) {
          FoldInto(box, Rect{left, top - kPatch, left + kPatch, top});
        }
      }
    }
  }
  return box;
}

TEST(VisibleGroundTest, HoldsAllThatThePhotoShowsAndLittleMore) {
  std::mt19937 random(99);
  std::uniform_real_distribution<double> unit(0, 1);
  int shown = 0;
  for (int round = 0; round < 150; ++round) {
    const int rows = 20 + static_cast<int>(40 * unit(random));
    const int cols = 20 + static_cast<int>(40 * unit(random));
    std::vector<HeightRange> ranges(static_cast<std::size_t>(rows * cols));
    for (auto& range : ranges) {
      if (unit(random) < 0.1) continue;  // a hole
      range.low = static_cast<float>(10 * unit(random));
      range.high = range.low + static_cast<float>(unit(random) < 0.02 ? 30 * unit(random) : 0);
    }
    const HeightPyramid surface = Surface(ranges, rows, cols);
    const double tilt = round % 3 == 0 ? 1.2 : 0.4;
    PhotoCamera camera =
        Camera(cols * kPatch * (2 * unit(random) - 0.5), rows * kPatch * (2 * unit(random) - 0.5),
               60 + 90 * unit(random), tilt * (2 * unit(random) - 1), tilt * (2 * unit(random) - 1),
               6.3 * unit(random));
    camera.lens.model = round % 4;
    const double bend = camera.lens.model == 1 ? 3e-7 : 0.15;  // per square pixel, per focal length
    camera.lens.k1 = bend * (2 * unit(random) - 1);
    const Rect truth = BruteForce(surface, camera);
    const Rect box = VisibleGround(surface, camera);
    SCOPED_TRACE("round " + std::to_string(round));
    if (!HasArea(truth)) continue;
    ++shown;
    EXPECT_LE(box.minX, truth.minX);
    EXPECT_LE(box.minY, truth.minY);
    EXPECT_GE(box.maxX, truth.maxX);
    EXPECT_GE(box.maxY, truth.maxY);
    const double slack = tilt > 1 ? 12 * kPatch : 2 * kPatch;  // grazing rays: long images
    EXPECT_GE(box.minX, truth.minX - slack);
    EXPECT_GE(box.minY, truth.minY - slack);
    EXPECT_LE(box.maxX, truth.maxX + slack);
    EXPECT_LE(box.maxY, truth.maxY + slack);
  }
  EXPECT_GT(shown, 60);
}

TEST(VisibleGroundTest, NothingShownIsTheEmptyRectangle) {
  const HeightPyramid flat = Surface(std::vector<HeightRange>(100, {0, 0}), 10, 10);
  const HeightPyramid holes = Surface(std::vector<HeightRange>(100), 10, 10);
  const double pi = 3.14159265358979;
  EXPECT_TRUE(HasArea(VisibleGround(flat, Camera(25, 25, 100, 0, 0, 0))));
  EXPECT_EQ(VisibleGround(holes, Camera(25, 25, 100, 0, 0, 0)), Rect()) << "only no-data";
  EXPECT_EQ(VisibleGround(flat, Camera(9000, 25, 100, 0, 0, 0)), Rect()) << "far off";
  EXPECT_EQ(VisibleGround(flat, Camera(25, 25, 100, 0, pi, 0)), Rect()) << "looks up";
  EXPECT_EQ(VisibleGround(flat, Camera(25, 25, -100, 0, 0, 0)), Rect()) << "below the ground";
  EXPECT_EQ(VisibleGround(HeightPyramid(), Camera(25, 25, 100, 0, 0, 0)), Rect());
  for (const double bad : {0.0, std::nan(""), HUGE_VAL}) {
    PhotoCamera camera = Camera(25, 25, 100, 0, 0, 0);
    camera.focal = bad;
    EXPECT_EQ(VisibleGround(flat, camera), Rect()) << bad;
    EXPECT_TRUE(bad == 0 || VisibleGround(flat, Camera(bad, 25, 100, 0, 0, 0)) == Rect());
  }
}

TEST(OverlappingPhotosTest, EqualsThePairwiseTest) {
  std::mt19937 random(8);
  std::uniform_int_distribution<int> at(0, 40);  // whole numbers: touching borders occur
  std::vector<KeyedFootprint> photos;
  for (std::size_t i = 0; i < 120; ++i) {
    Rect rect;
    if (i % 10 != 0) {
      rect.minX = at(random);
      rect.minY = at(random);
      rect.maxX = rect.minX + at(random) / 4;
      rect.maxY = rect.minY + at(random) / 4;
    }
    photos.push_back({PhotoKey(i % 3, i), rect});
  }
  std::map<std::uint64_t, std::vector<std::uint64_t>> truth;
  for (const auto& a : photos) {
    if (!HasArea(a.rect)) continue;
    auto& list = truth[a.key];
    for (const auto& b : photos) {
      if (a.key != b.key && HasArea(b.rect) && OverlapsStrictly(a.rect, b.rect)) {
        list.push_back(b.key);
      }
    }
    std::sort(list.begin(), list.end());
  }
  EXPECT_EQ(OverlappingPhotos(photos), truth);
}

}  // namespace
}  // namespace tqtortho
