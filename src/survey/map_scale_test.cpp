// SPDX-License-Identifier: Apache-2.0
#include "survey/map_scale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "geo/Crs.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr double kDegree = std::numbers::pi / 180;
constexpr double kE2 = 0.00669437999014;  // WGS 84 and GRS 80 to eleven digits

struct Expected {
  double scale, convergence, tolerance;
};

// Scale and convergence of a transverse Mercator map by its series about the central meridian.
Expected TransverseMercator(double k0, double centralMeridian, double lon, double lat, double e2) {
  const double l = (lon - centralMeridian) * kDegree, phi = lat * kDegree;
  const double c = std::cos(phi), t2 = std::pow(std::tan(phi), 2), eta2 = e2 / (1 - e2) * c * c;
  const double q = l * l * c * c;
  return {k0 * (1 + q / 2 * (1 + eta2) + q * q / 24 * (5 - 4 * t2)),
          l * std::sin(phi) * (1 + q / 3 * (1 + 3 * eta2)), 2e-7};
}

// Web Mercator projects the ellipsoid as if it were a sphere: towards east and north it has
// different scales, a/N/cos and a/M/cos.
Expected WebMercatorEast(double lat) {
  const double s = std::sin(lat * kDegree);
  return {std::sqrt(1 - kE2 * s * s) / std::cos(lat * kDegree), 0, 1e-8};
}

// A conic map with two true parallels; the scale at a latitude is n rho / (a m).
Expected LambertConic(double lat1, double lat2, double lon0, double lon, double lat) {
  const double e = std::sqrt(kE2);
  const auto m = [&](double phi) {
    return std::cos(phi) / std::sqrt(1 - kE2 * std::pow(std::sin(phi), 2));
  };
  const auto t = [&](double phi) {
    const double s = e * std::sin(phi);
    return std::tan(std::numbers::pi / 4 - phi / 2) / std::pow((1 - s) / (1 + s), e / 2);
  };
  const double a = lat1 * kDegree, b = lat2 * kDegree, p = lat * kDegree;
  const double n = std::log(m(a) / m(b)) / std::log(t(a) / t(b));
  return {m(a) / m(p) * std::pow(t(p) / t(a), n), n * (lon - lon0) * kDegree, 1e-8};
}

// Polar stereographic, true at 70 degrees north (EPSG:3413): m_c t / (t_c m).
Expected PolarStereographic(double lat) {
  const double e = std::sqrt(kE2);
  const auto m = [&](double phi) {
    return std::cos(phi) / std::sqrt(1 - kE2 * std::pow(std::sin(phi), 2));
  };
  const auto t = [&](double phi) {
    const double s = e * std::sin(phi);
    return std::tan(std::numbers::pi / 4 - phi / 2) / std::pow((1 - s) / (1 + s), e / 2);
  };
  const double c = 70 * kDegree, p = lat * kDegree;
  return {m(c) * t(p) / (t(c) * m(p)), 0, 1e-8};
}

TEST(MapScaleTest, AgreesWithTheClosedForms) {
  constexpr double kBessel = 0.006674372230614;
  const Expected lambert = LambertConic(49, 44, 3, 9, 42);  // Corsica: far from its parallels
  struct Case {
    const char* crs;
    double lon, lat;
    Expected east;
  };
  const Case cases[] = {
      {"EPSG:32633", 15, 48, {0.9996, 0, 1e-8}},
      {"EPSG:32633", 12.02, 49.5, TransverseMercator(0.9996, 15, 12.02, 49.5, kE2)},
      {"EPSG:32633", 18, 0.001, TransverseMercator(0.9996, 15, 18, 0.001, kE2)},
      {"EPSG:32733", 17.5, -33, TransverseMercator(0.9996, 15, 17.5, -33, kE2)},
      {"EPSG:31467", 9, 51, {1, 0, 1e-8}},  // Gauss-Krueger, on Bessel's ellipsoid
      {"EPSG:31467", 10.5, 51, TransverseMercator(1, 9, 10.5, 51, kBessel)},
      {"EPSG:2154", 3, 44, {1, 0, 1e-8}},  // Lambert 93
      {"EPSG:2154", 3, 46.5, LambertConic(49, 44, 3, 3, 46.5)},
      {"EPSG:2154", 9, 42, lambert},
      {"EPSG:3857", 10, 0, WebMercatorEast(0)},
      {"EPSG:3857", 10, 45, WebMercatorEast(45)},
      {"EPSG:3857", -120, -60, WebMercatorEast(60)},
      {"EPSG:3413", -45, 82, PolarStereographic(82)},
      {"EPSG:2193", 173, -41, {0.9996, 0, 1e-8}},
  };
  for (const Case& c : cases) {
    const std::string wkt = geo::CrsToWkt(c.crs);
    const auto earth = geo::DescribeEarth(wkt);
    const auto to = geo::CrsTransform::Create(earth->geographicWkt, wkt);
    const auto p = to->Apply({c.lon, c.lat, 0});
    ASSERT_TRUE(p) << c.crs;
    const auto scale = MapScaleAt(wkt, p->x, p->y);
    ASSERT_TRUE(scale) << c.crs;
    EXPECT_NEAR(scale->east, c.east.scale, c.east.tolerance) << c.crs << " at " << c.lat;
    EXPECT_NEAR(std::sin(scale->convergence - c.east.convergence), 0, 1e-6) << c.crs;
    EXPECT_NEAR(scale->longitude, c.lon, 1e-9);
    if (std::string(c.crs) == "EPSG:3857") {
      const double s2 = std::pow(std::sin(c.lat * kDegree), 2);
      EXPECT_NEAR(scale->north, c.east.scale * (1 - kE2 * s2) / (1 - kE2), 1e-8);
    } else {
      EXPECT_NEAR(scale->north, scale->east, 1e-8) << c.crs;
    }
  }
  EXPECT_LT(lambert.scale, 1.01);
}

// At the pole every direction is south; the scale is defined all the same.
TEST(MapScaleTest, ThePoleHasAScaleAndSystemsWithoutOneSayNothing) {
  const auto pole = MapScaleAt(geo::CrsToWkt("EPSG:32661"), 2000000, 2000000);
  ASSERT_TRUE(pole);
  EXPECT_NEAR(pole->east, 0.994, 1e-8);
  EXPECT_NEAR(pole->north, 0.994, 1e-8);
  EXPECT_FALSE(MapScaleAt(geo::CrsToWkt("EPSG:4326"), 12, 50));
  EXPECT_FALSE(MapScaleAt("LOCAL_CS[\"site\",UNIT[\"metre\",1]]", 100, 100));
  EXPECT_FALSE(MapScaleAt("", 0, 0));
  EXPECT_FALSE(MapScaleAt(geo::CrsToWkt("EPSG:32633"), 1e300, NAN));
}

TEST(MapScaleTest, WhatIsSaidGrowsWithTheScale) {
  const auto said = [](const char* crs, double lon, double lat) -> std::string {
    const std::string wkt = geo::CrsToWkt(crs);
    const auto p = geo::CrsTransform::Create("EPSG:4326", wkt)->Apply({lon, lat, 0});
    const auto finding = CheckMapScale("dsm.tif", wkt, p->x, p->y);
    if (!finding) return {};
    EXPECT_EQ(finding->text.find('\n'), std::string::npos);
    return (finding->level == Finding::Level::kError ? "refused " : "warning ") + finding->text;
  };
  // A hundred and eighty kilometres from the central meridian UTM is true.
  EXPECT_EQ(said("EPSG:32633", 15 + 2.4294, 48), "");
  EXPECT_THAT(
      said("EPSG:32633", 15, 48),
      AllOf(HasSubstr("warning dsm.tif: its map (WGS 84 / UTM zone 33N)"),
            HasSubstr("scale of 0.99960"), HasSubstr("99.96 m"), HasSubstr("does not correct")));
  // Inside its zone UTM is never refused.
  EXPECT_THAT(said("EPSG:32633", 18, 0.1), HasSubstr("warning"));
  EXPECT_THAT(said("EPSG:3857", 10, 45),
              AllOf(HasSubstr("refused"), HasSubstr("scale of 1.41"),
                    HasSubstr("gdalwarp -r bilinear -t_srs EPSG:32632 dsm.tif")));
  EXPECT_THAT(said("EPSG:3857", 10, 1), HasSubstr("refused"));  // north and south differ there
  EXPECT_THAT(said("EPSG:3857", 179.99, -45), HasSubstr("EPSG:32760"));
  EXPECT_THAT(said("EPSG:32661", 30, 88), HasSubstr("+proj=tmerc"));
}

}  // namespace
}  // namespace tqtortho::host
