// SPDX-License-Identifier: Apache-2.0
#include "occlusion/ray_kernel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "occlusion/ray_kernel_reference.h"
#include "occlusion/tile_tracer.h"
#include "testing/ray_scenes.h"
#include "testing/threads.h"

namespace tqtortho {
namespace {

using testing::FlatSurface;
using testing::RayCase;
using testing::SetGrid;
using testing::TownSurface;
using Bytes = std::vector<std::uint8_t>;

class ForcedKernel {
 public:
  explicit ForcedKernel(const char* name) { ::setenv("TQTORTHO_KERNEL", name, 1); }
  ~ForcedKernel() { ::unsetenv("TQTORTHO_KERNEL"); }
};

Bytes Trace(const tqDSM& dsm, const Point3& camera, const Bytes& examine = {}) {
  Bytes mask(dsm.heights.size(), 7);
  MarkHiddenCells(dsm.Surface(), camera,
                  examine.empty()
                      ? GridView<const std::uint8_t>()
                      : GridView<const std::uint8_t>(examine.data(), dsm.rows, dsm.cols),
                  GridView<std::uint8_t>(mask.data(), dsm.rows, dsm.cols));
  return mask;
}

/// Compares with the twin, cell by cell in a scattered order, until the twin has spent its steps.
std::string Difference(const RayCase& scene, const Bytes& mask, long budget) {
  reference::Tracer twin(scene.dsm.Surface(), scene.camera);
  const std::size_t count = mask.size();
  std::size_t stride = 7919;
  while (count % stride == 0) ++stride;
  for (std::size_t k = 0, i = 0; k < count && twin.Steps() < budget;
       ++k, i = (i + stride) % count) {
    const int row = static_cast<int>(i / static_cast<std::size_t>(scene.dsm.cols));
    const int col = static_cast<int>(i % static_cast<std::size_t>(scene.dsm.cols));
    const bool examined = scene.examine.empty() || scene.examine[i] != 0;
    const int expected = examined ? twin.Trace(row, col) : 0;
    if (expected != mask[i]) {
      return "cell (" + std::to_string(row) + ", " + std::to_string(col) +
             "): " + std::to_string(mask[i]) + ", the twin says " + std::to_string(expected);
    }
  }
  return {};
}

unsigned Seed() {
  if (const char* set = std::getenv("TQTORTHO_TEST_SEED")) {
    return static_cast<unsigned>(std::strtoul(set, nullptr, 10));
  }
  return std::random_device{}();
}

TEST(RayKernelTest, EqualsItsTwinOnAwkwardSurfaces) {
  const unsigned seed = Seed();
  SCOPED_TRACE("TQTORTHO_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  const testing::Draw draw = [&](unsigned limit) { return random() % limit; };
  for (int round = 0; round < 3000; ++round) {
    const RayCase scene = testing::AwkwardCase(draw);
    const Bytes mask = Trace(scene.dsm, scene.camera, scene.examine);
    ASSERT_EQ(Difference(scene, mask, 150000), "") << "round " << round;
    if (round % 8 == 0) {
      const ForcedKernel scalar("scalar");
      ASSERT_EQ(Difference(scene, Trace(scene.dsm, scene.camera, scene.examine), 50000), "")
          << "plain march, round " << round;
    }
  }
}

TEST(RayKernelTest, EqualsItsTwinOnTowns) {
  const unsigned seed = Seed();
  SCOPED_TRACE("TQTORTHO_TEST_SEED=" + std::to_string(seed));
  const tqDSM dsm = TownSurface(420, 510, 0.25f, seed);
  for (const auto& [x, y, z] : {Point3{0.47, 0.53, 150},
                                {0.02, 0.98, 90},
                                {0.999, 0.5, 60},
                                {0.5, 0.001, 50},
                                {0.3, 0.7, 25},
                                {0.6, 0.4, 4},
                                {-0.4, 0.3, 150},
                                {1.7, 1.6, 120},
                                {0.5, 0.5, 1e5},
                                {0.5, 0.5, -20}}) {
    const RayCase scene{dsm, {x * dsm.maxX, y * dsm.maxY, z}, {}};
    ASSERT_EQ(Difference(scene, Trace(dsm, scene.camera), 4000000), "")
        << x << " " << y << " " << z;
  }
}

TEST(RayKernelTest, BytesDoNotDependOnTheNumberOfThreads) {
  const tqDSM dsm = TownSurface(300, 400, 0.25f, 5);
  const Point3 camera{40, 30, 120};
  Bytes one;
  for (const int count : {1, 2, 5}) {
    const testing::Threads threads(count);
    const Bytes mask = Trace(dsm, camera);
    if (count == 1) one = mask;
    EXPECT_EQ(mask, one) << count;
  }
  Bytes nested;
#pragma omp parallel num_threads(2)
#pragma omp single
  nested = Trace(dsm, camera);
  EXPECT_EQ(nested, one);
}

TEST(RayKernelTest, EveryInstructionSetGivesTheSameBytes) {
  std::mt19937 random(Seed());
  const testing::Draw draw = [&](unsigned limit) { return random() % limit; };
  for (int round = 0; round < 300; ++round) {
    RayCase scene = testing::AwkwardCase(draw);
    if (round % 10 == 0) {
      scene = {TownSurface(200, 230, 0.25f, random()), {31.3, 22.2, 40.0 + round}, {}};
    }
    const Bytes mask = Trace(scene.dsm, scene.camera, scene.examine);
    for (const char* name : {"baseline", "avx2", "avx512"}) {
      if (LaneKernelOf(name) == nullptr) continue;
      const ForcedKernel forced(name);
      ASSERT_EQ(&ChooseLaneKernel(), LaneKernelOf(name));
      ASSERT_EQ(Trace(scene.dsm, scene.camera, scene.examine), mask) << name << " " << round;
    }
  }
  EXPECT_EQ(LaneKernelOf("no such"), nullptr);
}

// Every seventh step of this ray (2, -3, 6 on 7) lies on a corner of cells, up to the rounding of
// the additions. One-cell walls around the corner, just high enough for that step, tell where it
// fell.
TEST(RayKernelTest, LanesLeaveStepsOnBordersToTheMarch) {
  constexpr int kSize = 401;
  const int row = 50;
  const int col = 50;
  const Point3 camera{250, 50, 600};  // from (50, 350): 700 away
  Bytes examine(std::size_t{kSize} * kSize, 0);
  examine[std::size_t{row} * kSize + col] = 1;
  int hidden = 0;
  for (int m = 1; m <= 7; ++m) {
    for (int corner = 0; corner < 4; ++corner) {
      RayCase scene{FlatSurface(kSize, kSize, 1), camera, examine};
      const int wallRow = row + 3 * m - corner / 2;
      const int wallCol = col + 2 * m - corner % 2;
      scene.dsm.heights[static_cast<std::size_t>(wallRow) * kSize + wallCol] =
          static_cast<float>(6 * m + 0.4);
      scene.dsm.heights[0] = 60;  // keeps the ray inside the tree for all walls
      SetGrid(scene.dsm, kSize, kSize, 1, -1);
      const Bytes mask = Trace(scene.dsm, camera, examine);
      ASSERT_EQ(Difference(scene, mask, 1 << 20), "") << m << " " << corner;
      hidden += mask[std::size_t{row} * kSize + col] != 0 ? 1 : 0;
    }
  }
  EXPECT_GE(hidden, 7) << "one of the four cells holds the step";
}

// In single steps these marches would take a million steps for each of the cells.
TEST(RayKernelTest, MarchesThatCannotEndAreAnsweredAtOnce) {
  tqDSM dsm = FlatSurface(60, 60, 0.25f);
  dsm.heights[37] = 3;
  SetGrid(dsm, 60, 60, 0.25f, -20.0f);
  const double nan = std::nan("");
  const double inf = HUGE_VAL;
  for (const Point3& camera : {Point3{nan, 1, 1},
                               {1, nan, 1},
                               {1, 1, nan},
                               {inf, 1, 1},
                               {1, -inf, 1},
                               {1, 1, inf},
                               {1, 1, -inf},
                               {1e300, 1e300, 1e300},
                               {10, 2000, 0},
                               {10, 1e9, 0},
                               {-1e12, 2000, 0},
                               {10, 40, 1e-30},
                               {10.0, 50.0, 0.0}}) {
    const RayCase scene{dsm, camera, {}};
    EXPECT_EQ(Difference(scene, Trace(dsm, camera), 2000000), "") << camera.x << " " << camera.z;
    const ForcedKernel scalar("scalar");
    EXPECT_EQ(Difference(scene, Trace(dsm, camera), 2000000), "") << camera.x << " " << camera.z;
  }
}

}  // namespace
}  // namespace tqtortho
