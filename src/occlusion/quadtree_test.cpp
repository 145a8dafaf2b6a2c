// SPDX-License-Identifier: Apache-2.0
#include "occlusion/quadtree.h"

#include <gtest/gtest.h>

#include "testing/ray_scenes.h"

namespace tqtortho {
namespace {

using testing::FlatSurface;
using testing::SetGrid;

tqDSM Bumpy(int rows, int cols, float cellSize) {
  tqDSM dsm = FlatSurface(rows, cols, cellSize);
  dsm.heights[0] = 8;
  SetGrid(dsm, rows, cols, cellSize, -cellSize);
  return dsm;
}

TEST(QuadTreeTest, DividesDownToLeafSizeButNeverBelowDepthFour) {
  const tqDSM single = Bumpy(101, 101, 1);
  EXPECT_EQ(QuadTree(single.Surface(), {50, 50, 90}).Nodes().size(), 1u);
  const tqDSM four = Bumpy(102, 102, 1);
  EXPECT_EQ(QuadTree(four.Surface(), {50, 50, 90}).Nodes().size(), 5u);
  const tqDSM large = Bumpy(3000, 3000, 1);
  const QuadTree tree(large.Surface(), {-5, -5, 90});
  EXPECT_EQ(tree.Nodes().size(), 1u + 4 + 16 + 64 + 256);
  for (const QuadNode& node : tree.Nodes()) {
    EXPECT_EQ(node.IsLeaf(), node.depth == 4);
    EXPECT_EQ(node.box.maxZ, 8) << "inner nodes keep the box's top, leaves take their own";
  }
}

// Row rows-1 and column cols-1 are never scanned, and where the single-precision extent falls short
// of a whole number of cells, neither is the one before.
TEST(QuadTreeTest, LeafTopMissesTheLastRowsAndColumns) {
  int shortened = 0;
  for (int cols = 60; cols < 140; ++cols) {
    const float size = 0.2f;
    const double extent = static_cast<double>(static_cast<float>(cols - 1) * size);
    const int scanned = static_cast<int>(extent / static_cast<double>(size));
    shortened += scanned == cols - 2 ? 1 : 0;
    for (const int col : {cols - 3, cols - 2, cols - 1}) {
      tqDSM dsm = FlatSurface(60, cols, size);
      dsm.heights[static_cast<std::size_t>(20) * cols + col] = 30;
      SetGrid(dsm, 60, cols, size, -size);
      EXPECT_EQ(QuadTree::LeafTop(dsm.Surface()), col < scanned ? 30 : 0) << cols << " " << col;
    }
  }
  EXPECT_GT(shortened, 10);
  tqDSM noData = FlatSurface(20, 20, 1);
  noData.noData = 77;
  noData.heights[5] = 77;
  SetGrid(noData, 20, 20, 1, -1);
  EXPECT_EQ(QuadTree::LeafTop(noData.Surface()), 77) << "no-data heights count";
  EXPECT_EQ(QuadTree::LeafTop(FlatSurface(1, 20, 1).Surface()), -1e15);
}

TEST(QuadTreeTest, NearlyParallelRaysAreTestedByPlaceOnly) {
  const LocalBox box{0, 0, 0, 10, 10, 10};
  double tMin = 0;
  double tMax = 0;
  EXPECT_TRUE(RayMeetsBox({{5, 0, 5}, {9.9e-7, 1, 0}}, box, tMin, tMax));
  EXPECT_EQ(tMax, 10);
  EXPECT_FALSE(RayMeetsBox({{10.1, 0, 5}, {-9.9e-7, 1, 0}}, box, tMin, tMax));
  EXPECT_TRUE(RayMeetsBox({{10, 0, 5}, {0, 1, 0}}, box, tMin, tMax)) << "the border belongs to it";
  EXPECT_FALSE(RayMeetsBox({{5, 11, 5}, {0, 1, 0}}, box, tMin, tMax)) << "behind";
}

}  // namespace
}  // namespace tqtortho
