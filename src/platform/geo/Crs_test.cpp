// SPDX-License-Identifier: Apache-2.0
#include "geo/Crs.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "testing/temp_dir.h"

namespace geo {
namespace {

/// Universal transverse Mercator on WGS 84 (northern half) by Krueger's series to the fourth order
/// in the third flattening, good to well below a millimetre within a zone (L. Krueger, Konforme
/// Abbildung des Erdellipsoids in der Ebene, 1912).
tqfd::Point2_T<double> UtmByKrueger(double lonDeg, double latDeg, double centralDeg) {
  constexpr double kRadian = std::numbers::pi / 180;
  const double f = 1 / 298.257223563;
  const double n = f / (2 - f);
  const double n2 = n * n;
  const double n3 = n2 * n;
  const double n4 = n3 * n;
  const double radius = 6378137 / (1 + n) * (1 + n2 / 4 + n4 / 64);
  const double alpha[] = {n / 2 - 2 * n2 / 3 + 5 * n3 / 16 + 41 * n4 / 180,
                          13 * n2 / 48 - 3 * n3 / 5 + 557 * n4 / 1440,
                          61 * n3 / 240 - 103 * n4 / 140, 49561 * n4 / 161280};
  const double eccentricity = 2 * std::sqrt(n) / (1 + n);
  const double sine = std::sin(latDeg * kRadian);
  const double t = std::sinh(std::atanh(sine) - eccentricity * std::atanh(eccentricity * sine));
  const double lambda = (lonDeg - centralDeg) * kRadian;
  const double xi = std::atan2(t, std::cos(lambda));
  const double eta = std::atanh(std::sin(lambda) / std::sqrt(1 + t * t));
  double northing = xi;
  double easting = eta;
  for (int j = 1; j <= 4; ++j) {
    northing += alpha[j - 1] * std::sin(2 * j * xi) * std::cosh(2 * j * eta);
    easting += alpha[j - 1] * std::cos(2 * j * xi) * std::sinh(2 * j * eta);
  }
  return {500000 + 0.9996 * radius * easting, 0.9996 * radius * northing};
}

TEST(CrsTransformTest, LongitudeAndLatitudeBecomeEastAndNorth) {
  const auto transform = CrsTransform::Create("EPSG:4326", "EPSG:32651");
  const auto back = CrsTransform::Create(CrsToWkt("EPSG:32651"), "EPSG:4326");
  ASSERT_TRUE(transform && back);
  const double points[][2] = {{120.9505624780138, 24.680944366323203}, {123, 0}, {125.5, 60.25}};
  for (const auto& point : points) {
    const auto expected = UtmByKrueger(point[0], point[1], 123);
    const auto got = transform->Apply({point[0], point[1], 186.5});
    ASSERT_TRUE(got);
    EXPECT_NEAR(got->x, expected.x, 1e-3);
    EXPECT_NEAR(got->y, expected.y, 1e-3);
    EXPECT_EQ(got->z, 186.5);
    EXPECT_NEAR(back->Apply(*got)->x, point[0], 1e-9);
    EXPECT_NEAR(back->Apply(*got)->y, point[1], 1e-9);
  }
}

TEST(CrsTransformTest, ThreeDimensionalSystemsExchangeHeights) {
  const auto transform = CrsTransform::Create("EPSG:4979", "EPSG:4978");  // to earth-centred
  ASSERT_TRUE(transform);
  const auto got = transform->Apply({0, 0, 100});
  ASSERT_TRUE(got);
  EXPECT_NEAR(got->x, 6378237, 1e-6);
}

TEST(CrsTransformTest, WhatIsNowhereGivesNothing) {
  const auto transform = CrsTransform::Create("EPSG:4326", "EPSG:32651");
  ASSERT_TRUE(transform);
  EXPECT_FALSE(transform->Apply({120, std::numeric_limits<double>::quiet_NaN(), 0}));
  EXPECT_FALSE(transform->Apply({298000, 2731000, 0}));  // metres taken for degrees
  EXPECT_FALSE(CrsTransform::Create("EPSG:4326", "no such system"));
  EXPECT_FALSE(CrsTransform::Create("", "EPSG:4326"));
}

TEST(CrsTest, DescribesWhatACallerMustKnow) {
  const auto utm = DescribeCrs("EPSG:32651");
  ASSERT_TRUE(utm);
  EXPECT_EQ(utm->name, "WGS 84 / UTM zone 51N");
  EXPECT_EQ(utm->authority, "EPSG:32651");
  EXPECT_TRUE(utm->projected);
  EXPECT_FALSE(utm->geographic);
  EXPECT_EQ(utm->metresPerUnit, 1);
  const auto degrees = DescribeCrs("+proj=longlat +datum=WGS84");
  ASSERT_TRUE(degrees);
  EXPECT_TRUE(degrees->geographic);
  EXPECT_FALSE(degrees->projected);
  const auto feet = DescribeCrs("EPSG:2263");  // New York, US survey feet
  ASSERT_TRUE(feet);
  EXPECT_NEAR(feet->metresPerUnit, 1200.0 / 3937.0, 1e-12);
  const auto local = DescribeCrs("LOCAL_CS[\"site\",UNIT[\"metre\",1]]");
  ASSERT_TRUE(local);
  EXPECT_TRUE(local->projected);
  EXPECT_EQ(local->authority, "");
  const auto compound = DescribeCrs("EPSG:32651+5773");
  ASSERT_TRUE(compound);
  EXPECT_TRUE(compound->projected);
}

TEST(CrsTest, ATextThatIsNoCrsIsNothingAndFilesAreNotFollowed) {
  const tqtortho::testing::TempDir dir;
  const std::string file = dir.Write("a.prj", CrsToWkt("EPSG:32651"));
  for (const std::string& text : {std::string(), std::string("EPSG:abc"), file}) {
    EXPECT_FALSE(DescribeCrs(text)) << text;
    EXPECT_EQ(CrsToWkt(text), "") << text;
  }
  EXPECT_NE(CrsToWkt("EPSG:32651"), "");
}

}  // namespace
}  // namespace geo
