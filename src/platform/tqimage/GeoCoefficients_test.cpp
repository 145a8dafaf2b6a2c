// SPDX-License-Identifier: Apache-2.0
#include "tqimage/GeoCoefficients.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace tqimage {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

GeoCoefficients Utm() {
  const double transform[6] = {300000.25, 0.5, 0, 2730000.75, 0, -0.5};
  return GeoCoefficients(transform, 40, 30);
}

using Cell = tqfd::Point2_T<int>;
using Span = tqfd::Rect2_T<int>;
using Ground = tqfd::Rect2_T<double>;

TEST(GeoCoefficientsTest, ACellReachesHalfACellAroundItsCentre) {
  const GeoCoefficients geo = Utm();
  EXPECT_EQ(geo.World2Raster(300000.25, 2730000.75, -1, -1), (Cell{0, 0}));
  EXPECT_EQ(geo.World2Raster(300000.0, 2731000.0, -1, -1).x, 0);  // western border belongs to it
  EXPECT_EQ(geo.World2Raster(299999.99, 2731000.0, -1, -1).x, -1);
  EXPECT_EQ(geo.World2Raster(300000.5, 2731000.0, -1, -1).x, 1);  // eastern border does not
  EXPECT_EQ(geo.World2Raster(300000, 2730001.0, -1, -1).y, 0);    // likewise north ...
  EXPECT_EQ(geo.World2Raster(300000, 2730000.5, -1, -1).y, 1);    // ... and south
}

TEST(GeoCoefficientsTest, CentresGoThereAndBack) {
  const GeoCoefficients geo = Utm();
  for (int row = -3; row < 40; row += 7) {
    for (int col = -5; col < 50; col += 11) {
      const auto ground = geo.Raster2World(col, row);
      EXPECT_EQ(geo.World2Raster(ground.x, ground.y, -1, -1), (Cell{col, row}));
    }
  }
  EXPECT_EQ(geo.Raster2World(1.5, 2.5).x, 300001.0);
  EXPECT_EQ(geo.Raster2World(1.5, 2.5).y, 2729999.5);
}

TEST(GeoCoefficientsTest, NoPositionLeavesTheIntRange) {
  const GeoCoefficients geo = Utm();
  EXPECT_EQ(geo.World2Raster(kInf, kInf, -1, -1), (Cell{kMost, kLeast}));
  EXPECT_EQ(geo.World2Raster(-1e300, -1e300, -1, -1), (Cell{kLeast, kMost}));
  EXPECT_EQ(geo.World2Raster(kNan, kNan, -1, -1), (Cell{kLeast, kLeast}));
  EXPECT_EQ(GeoCoefficients().World2Raster(5, 5, -1, -1), (Cell{0, 0}));
}

TEST(GeoCoefficientsTest, ClampingTakesTheNearestCellOfTheRaster) {
  const GeoCoefficients geo = Utm();
  EXPECT_EQ(geo.World2Raster(-kInf, -kInf, 40, 30), (Cell{0, 29}));
  EXPECT_EQ(geo.World2Raster(kInf, kInf, 40, 30), (Cell{39, 0}));
  EXPECT_EQ(geo.World2Raster(Ground{299000, 2729000, 300001.3, 2730000.7}, 40, 30),
            (Span{0, 0, 2, 29}));
}

TEST(GeoCoefficientsTest, ARectangleGivesTheInclusiveCellsOfItsCorners) {
  const GeoCoefficients geo = Utm();
  // Centre of cell (2, 3) to centre of cell (5, 7).
  EXPECT_EQ(geo.World2Raster(Ground{300001.25, 2729997.25, 300002.75, 2729999.25}, -1, -1),
            (Span{2, 3, 5, 7}));
  // Partly outside: not clamped.
  EXPECT_EQ(geo.World2Raster(Ground{299998.25, 2729985.25, 300002.75, 2729999.25}, -1, -1),
            (Span{-4, 3, 5, 31}));
  // A point is one cell.
  EXPECT_EQ(geo.World2Raster(Ground{300001.25, 2729999.25, 300001.25, 2729999.25}, -1, -1),
            (Span{2, 3, 2, 3}));
}

TEST(GeoCoefficientsTest, ARectangleThatMissesTheRasterHasNoCells) {
  const Span none{0, 0, -1, -1};
  const Ground misses[] = {
      {299990, 2729990, 299999.9, 2729995},  // west
      {300020.1, 2729990, 300030, 2729995},  // east
      {300001, 2730001.1, 300002, 2730009},  // north
      {300001, 2729980, 300002, 2729985.9},  // south
      {300002, 2729990, 300001, 2729995},    // inverted
      Ground{},                              // the empty rectangle
      {kNan, 2729990, 300001, 2729995},
      {300001, 2729990, 300002, kNan},
  };
  for (const Ground& rect : misses) {
    EXPECT_EQ(Utm().World2Raster(rect, -1, -1), none) << rect.minX << " " << rect.minY;
  }
  // Without a size there is nothing to miss, but inverted stays empty.
  GeoCoefficients unsized;
  unsized.SetOrigin(300000.25, 2730000.75);
  unsized.SetResolution(0.5, -0.5);
  EXPECT_EQ(unsized.World2Raster(misses[0], -1, -1), (Span{-20, 12, -1, 22}));
  EXPECT_EQ(unsized.World2Raster(Ground{}, -1, -1), none);
}

TEST(GeoCoefficientsTest, TheCellCountOfAnyRectangleFitsAnInt) {
  const Span all = Utm().World2Raster(Ground{-kInf, -kInf, kInf, kInf}, -1, -1);
  const std::int64_t cols = std::int64_t{all.maxX} - all.minX + 1;
  const std::int64_t rows = std::int64_t{all.maxY} - all.minY + 1;
  EXPECT_GT(cols, 1 << 30);
  EXPECT_LE(cols, kMost);
  EXPECT_LE(rows, kMost);
}

}  // namespace
}  // namespace tqimage
