// SPDX-License-Identifier: Apache-2.0
#include "tqtortho/tqRayTracer.h"

#include <gtest/gtest.h>

#include <vector>

#include "occlusion/tqDSM.h"
#include "testing/ray_scenes.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using testing::FlatSurface;
using testing::SetGrid;
using Bytes = std::vector<std::uint8_t>;

/// One step wall on a plain of 140 x 140 cells of 1 m, seen from (100, 70.25) 30 m above.
class RayTracingTest : public ::testing::Test {
 protected:
  static constexpr int kSize = 140;

  static tqDSM Wall(float height) {
    tqDSM dsm = FlatSurface(kSize, kSize, 1);
    dsm.originX = 5000;
    dsm.originY = 7000;
    for (int r = 0; r < kSize; ++r) dsm.heights[static_cast<std::size_t>(r) * kSize + 40] = height;
    SetGrid(dsm, kSize, kSize, 1, -1);
    return dsm;
  }
  static Bytes Trace(tqDSM dsm, int refine, std::uint8_t* examine = nullptr) {
    tqfd::Point3_T<double> camera{5100, 7000 - (kSize - 1) + 70.25, 30};
    tqRayTracer tracer;
    Bytes mask(3, 99);
    int width = 0;
    int height = 0;
    TestPeer::RayTracing(tracer, dsm, camera, mask, width, height, examine, refine);
    EXPECT_EQ(width, dsm.cols);
    EXPECT_EQ(height, dsm.rows);
    return mask;
  }
  static int At(const Bytes& mask, int col) { return mask[std::size_t{69} * kSize + col]; }
};

TEST_F(RayTracingTest, RefineClearsTheFootOfStepsAboveTwo) {
  const Bytes mask = Trace(Wall(10), 1);
  EXPECT_EQ(At(mask, 39), 0);
  EXPECT_EQ(At(mask, 38), 255);
  Bytes examine(std::size_t{kSize} * kSize, 1);  // two hidden cells one apart are joined
  for (int r = 0; r < kSize; ++r) examine[static_cast<std::size_t>(r) * kSize + 25] = 0;
  EXPECT_EQ(At(Trace(Wall(10), 0, examine.data()), 25), 0);
  EXPECT_EQ(At(Trace(Wall(10), 1, examine.data()), 25), 255);
  const Bytes low = Trace(Wall(2), 1);
  EXPECT_EQ(At(low, 39), 255) << "exactly 2 is no step";
}

TEST_F(RayTracingTest, EmptyAndInconsistentSurfacesGiveEmptyOrZeroMasks) {
  EXPECT_TRUE(Trace(tqDSM(), 1).empty());
  tqDSM dsm = Wall(10);
  dsm.heights.resize(100);
  EXPECT_EQ(Trace(dsm, 1), Bytes(std::size_t{kSize} * kSize, 0));
}

}  // namespace
}  // namespace tqtortho
