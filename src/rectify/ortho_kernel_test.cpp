// SPDX-License-Identifier: Apache-2.0
#include "rectify/ortho_kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include "rectify/ortho_kernel_reference.h"
#include "rectify/ortho_run.h"
#include "testing/photo_scene.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using testing::NadirScene;
using testing::PhotoScene;
using testing::RandomScene;

struct Outcome {
  bool made = false;
  tqorkit::PhotoInfo output;
  std::vector<std::uint8_t> hidden;
  double cell = 0;
};

/// The production pass through the members, with the kernel that the environment names.
Outcome Product(PhotoScene scene, int method, bool hidden, const char* kernel) {
  ::setenv("TQTORTHO_KERNEL", kernel, 1);
  Outcome outcome;
  tqTORectify rectify;
  outcome.made =
      TestPeer::DoTORectfy(rectify, scene.photo, scene.dsm, scene.Interior(), scene.Exterior(),
                           method, scene.parameters, nullptr, scene.pose.geoRect, outcome.output,
                           false, hidden ? &outcome.hidden : nullptr, nullptr, nullptr);
  outcome.cell = scene.parameters[0];
  ::unsetenv("TQTORTHO_KERNEL");
  return outcome;
}

Outcome Reference(PhotoScene scene, int method, bool hidden) {
  Outcome outcome;
  tqTORectify rectify;
  TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
  const auto& rect = scene.pose.geoRect;
  scene.photo.geoRect[0] = rect.minX;
  scene.photo.geoRect[1] = rect.minY;
  scene.photo.geoRect[2] = rect.maxX;
  scene.photo.geoRect[3] = rect.maxY;
  outcome.made = reference::RectifyPixels(
      scene.photo, scene.dsm, scene.Interior(), scene.Exterior(), TestPeer::Rotation(rectify),
      method, scene.parameters, outcome.output, hidden ? &outcome.hidden : nullptr,
      [&](std::uint8_t* mask, int cols, int rows) {
        TestPeer::RefineOcclusion(rectify, mask, cols, rows);
      });
  outcome.cell = scene.parameters[0];
  return outcome;
}

void ExpectSame(const Outcome& a, const Outcome& b) {
  ASSERT_EQ(a.made, b.made);
  EXPECT_EQ(a.output.width, b.output.width);
  EXPECT_EQ(a.output.height, b.output.height);
  EXPECT_EQ(a.output.bands, b.output.bands);
  EXPECT_EQ(a.cell, b.cell);
  if (!a.made) return;
  EXPECT_EQ(a.output.dataType, b.output.dataType);
  EXPECT_EQ(a.output.resX, b.output.resX);
  EXPECT_EQ(a.output.resY, b.output.resY);
  EXPECT_TRUE(std::equal(a.output.geoRect, a.output.geoRect + 4, b.output.geoRect));
  EXPECT_TRUE(a.output.data == b.output.data) << "pixels differ";
  EXPECT_TRUE(a.hidden == b.hidden) << "hidden cells differ";
}

// Both ways of the product against the literal one, byte for byte.
TEST(OrthoKernelTest, EveryKernelEqualsTheLiteralPassOnRandomScenes) {
  constexpr unsigned kSeed = 20240718;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937 random(kSeed);
  int made = 0;
  int hiddenCells = 0;
  int models[4] = {};
  for (int round = 0; round < 6000; ++round) {
    const PhotoScene scene = RandomScene(random);
    const int method = round % 5 == 0 ? 0 : 1;
    const bool hidden = round % 3 != 0;
    const Outcome expected = Reference(scene, method, hidden);
    for (const char* kernel : {"scalar", "auto"}) {
      SCOPED_TRACE("round " + std::to_string(round) + " kernel " + kernel + " model " +
                   std::to_string(scene.camera.distortionModel) + " bands " +
                   std::to_string(scene.photo.bands));
      ExpectSame(Product(scene, method, hidden, kernel), expected);
      if (HasFailure()) return;
    }
    made += expected.made ? 1 : 0;
    if (expected.made) ++models[scene.camera.distortionModel];
    for (const std::uint8_t cell : expected.hidden) hiddenCells += cell == 255 ? 1 : 0;
  }
  // The scenes must be worth comparing.
  EXPECT_GT(made, 2500);
  EXPECT_GT(hiddenCells, 10000);
  for (const int model : {0, 1, 2, 3}) EXPECT_GT(models[model], 200) << "model " << model;
}

// Wide rows take several batches, and sharp parallax makes nearer cells displace earlier rows'
// ones.
TEST(OrthoKernelTest, WideGridsWithTallBoxesEqualTheLiteralPass) {
  std::mt19937 random(77);
  for (const int model : {0, 1, 3}) {
    PhotoScene scene = NadirScene(700, 500);
    scene.camera.distortionModel = model;
    scene.camera.coefficients[0] = model == 1 ? -4e-8 : 0.02;
    scene.camera.coefficients[3] = model == 1 ? 1e-6 : 1e-3;
    scene.pose.position[3] = 0.2;
    scene.pose.position[5] = 0.7;
    for (std::uint8_t& value : scene.photo.data) value = static_cast<std::uint8_t>(random() % 256);
    for (int box = 0; box < 60; ++box) {
      const int row = static_cast<int>(random() % 1300);
      const int col = static_cast<int>(random() % 1300);
      for (int i = 0; i < 60 * 60; ++i) scene.Height(row + i / 60, col + i % 60) = 80;
    }
    scene.pose.geoRect = {-400, -300, 400, 300};
    scene.parameters[0] = 0.9;
    const Outcome expected = Reference(scene, 1, true);
    ASSERT_TRUE(expected.made);
    EXPECT_GT(expected.output.width, 600);
    ExpectSame(Product(scene, 1, true, "auto"), expected);
    ExpectSame(Product(scene, 1, true, "scalar"), expected);
  }
}

}  // namespace
}  // namespace tqtortho
