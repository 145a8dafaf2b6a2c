// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "tqorkit/TqGPC.h"
#include "tqorkit/arbiRect.h"

namespace tqorkit {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kEast = 298000;  // of the size that projected coordinates have
constexpr double kNorth = 2731000;

struct PolygonRemover {
  void operator()(TqPolygon* polygon) const { TqGPC::RemovePoly(polygon); }
};
using PolygonPtr = std::unique_ptr<TqPolygon, PolygonRemover>;

PolygonPtr Make(const std::vector<double>& x, const std::vector<double>& y) {
  return PolygonPtr(TqGPC::CreatePoly(x.data(), y.data(), static_cast<int>(x.size())));
}

PolygonPtr Square(double west, double south, double side) {
  const double x = kEast + west;
  const double y = kNorth + south;
  return Make({x, x + side, x + side, x}, {y, y, y + side, y + side});
}

TEST(TqGpcTest, SquaresAtProjectedCoordinates) {
  const PolygonPtr a = Square(0, 0, 100);
  struct Case {
    const char* what;
    PolygonPtr b;
    bool difference, intersection, symmetric;
  };
  Case cases[] = {
      {"overlap of a millimetre", Square(99.999, 0, 100), true, true, true},
      {"common edge", Square(100, 0, 100), true, false, true},
      {"common corner", Square(100, 100, 100), true, false, true},
      {"apart", Square(300, 0, 100), true, false, true},
      {"inside", Square(10, 10, 10), true, true, true},
      {"around", Square(-10, -10, 200), false, true, true},
      {"equal", Square(0, 0, 100), false, true, false},
      {"null", nullptr, true, false, true},
      {"a line", Make({kEast, kEast + 50, kEast + 100}, {kNorth, kNorth, kNorth}), true, false,
       true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TqGPC::BooleanPoly(a.get(), c.b.get(), kPolyDifference), c.difference) << c.what;
    EXPECT_EQ(TqGPC::BooleanPoly(a.get(), c.b.get(), kPolyIntersection), c.intersection) << c.what;
    EXPECT_EQ(TqGPC::BooleanPoly(c.b.get(), a.get(), kPolyIntersection), c.intersection) << c.what;
    EXPECT_EQ(TqGPC::BooleanPoly(a.get(), c.b.get(), kPolyXor), c.symmetric) << c.what;
    EXPECT_TRUE(TqGPC::BooleanPoly(a.get(), c.b.get(), kPolyUnion)) << c.what;
  }
  EXPECT_FALSE(TqGPC::BooleanPoly(nullptr, nullptr, kPolyUnion));
  EXPECT_FALSE(TqGPC::BooleanPoly(a.get(), a.get(), 4));
}

TEST(TqGpcTest, OnlyThreeFiniteVerticesOrMoreMakeAPolygon) {
  const double x[] = {0, 1, 1};
  const double y[] = {0, 0, 1};
  EXPECT_EQ(TqGPC::CreatePoly(x, y, 2), nullptr);
  EXPECT_EQ(TqGPC::CreatePoly(nullptr, y, 3), nullptr);
  EXPECT_EQ(Make({0, 1, kNan}, {0, 0, 1}), nullptr);
  EXPECT_EQ(Make({0, 1, kInf}, {0, 0, 1}), nullptr);
  TqGPC::RemovePoly(nullptr);
}

// A five-pointed star drawn in one stroke: by the even-odd rule its middle is outside.
TEST(TqGpcTest, SelfIntersectingRingsFollowTheEvenOddRule) {
  std::vector<double> x;
  std::vector<double> y;
  for (int i = 0; i < 5; ++i) {
    const double angle = std::numbers::pi * (0.5 + i * 0.8);
    x.push_back(kEast + 100 * std::cos(angle));
    y.push_back(kNorth + 100 * std::sin(angle));
  }
  const PolygonPtr star = Make(x, y);
  const PolygonPtr middle = Square(-5, -5, 10);
  const PolygonPtr tip = Square(-2, 60, 4);
  EXPECT_FALSE(TqGPC::BooleanPoly(star.get(), middle.get(), kPolyIntersection));
  EXPECT_TRUE(TqGPC::BooleanPoly(star.get(), tip.get(), kPolyIntersection));
}

TEST(ArbiRectTest, BordersAndCornersAreInsideAndNanIsNot) {
  const double x[4] = {kEast, kEast + 10, kEast + 10, kEast};
  const double y[4] = {kNorth, kNorth, kNorth + 20, kNorth + 20};
  const arbiRect rect(x, y);
  for (const auto& [east, north] : {std::pair{5, 5}, {0, 0}, {10, 7}, {3, 20}}) {
    EXPECT_TRUE(rect.IsPointInArbiRect(kEast + east, kNorth + north)) << east << " " << north;
  }
  EXPECT_FALSE(rect.IsPointInArbiRect(kEast - 1e-6, kNorth + 5));
  EXPECT_FALSE(rect.IsPointInArbiRect(kEast - 5, kNorth + 20));  // in line with an edge
  EXPECT_FALSE(rect.IsPointInArbiRect(kNan, kNorth));
  const double broken[4] = {kEast, kNan, kEast + 10, kEast};
  EXPECT_FALSE(arbiRect(broken, y).IsPointInArbiRect(kEast + 1, kNorth + 1));
}

// Any convex quadrilateral in either ring order, against the side of each edge.
TEST(ArbiRectTest, AgreesWithTheHalfPlanesOfConvexQuadrilaterals) {
  std::mt19937 random(20250117);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int round = 0; round < 300; ++round) {
    double x[4];
    double y[4];
    const double direction = round % 2 == 0 ? 1 : -1;
    for (int i = 0; i < 4; ++i) {  // four points on a circle, one per quadrant
      const double angle = direction * std::numbers::pi / 2 * (i + unit(random));
      x[i] = kEast + 80 * std::cos(angle);
      y[i] = kNorth + 80 * std::sin(angle);
    }
    const arbiRect rect(x, y);
    for (int k = 0; k < 50; ++k) {
      const double px = kEast + 200 * (unit(random) - 0.5);
      const double py = kNorth + 200 * (unit(random) - 0.5);
      bool expected = true;
      for (int i = 0; i < 4; ++i) {
        const int j = (i + 1) % 4;
        const double side = (x[j] - x[i]) * (py - y[i]) - (y[j] - y[i]) * (px - x[i]);
        expected = expected && side * direction > 0;
      }
      ASSERT_EQ(rect.IsPointInArbiRect(px, py), expected) << "round " << round << " point " << k;
    }
  }
}

}  // namespace
}  // namespace tqorkit
