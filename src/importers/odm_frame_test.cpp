// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "survey/geodesy.h"

namespace tqtortho::host {
namespace {

// Earth-centred coordinates from PROJ (EPSG:4979 to EPSG:4978).
TEST(GeodesyTest, EarthCentredCoordinatesAgreeWithProjAndComeBack) {
  struct Case {
    Geodetic place;
    Vector3 point;
  };
  const Case cases[] = {
      {{120.95, 24.68, 186.5}, {-2982405.031555, 4973381.273185, 2646985.173742}},
      {{-71.3, -33.45, 520}, {1708085.674168, -5046321.744128, -3495995.145392}},
      {{10, 89.999, -50}, {109.996238, 19.395304, 6356702.313270}},
      {{179.9, 0, 0}, {-6378127.285544, 11131.943428, 0}},
      {{0, -90, 4000}, {0, 0, -6360752.314245}},
  };
  for (const Case& c : cases) {
    const Vector3 point = EarthCentred(c.place);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(point[i], c.point[i], 1e-6);
    const Geodetic back = FromEarthCentred(point);
    EXPECT_NEAR(back.latitude, c.place.latitude, 1e-11);
    EXPECT_NEAR(back.height, c.place.height, 1e-6);
    if (std::fabs(c.place.latitude) < 90) {
      EXPECT_NEAR(back.longitude, c.place.longitude, 1e-10);
    }
  }
}

// East, north and up, each tried alone: a kilometre north is so many degrees of the meridian's
// curvature, and the tangent plane leaves the ellipsoid by d^2 / 2R.
TEST(GeodesyTest, LocalAxesPointEastNorthAndUp) {
  const Topocentric frame({15, 50, 100});
  const Geodetic up = frame.Place({0, 0, 25});
  EXPECT_NEAR(up.height, 125, 1e-6);
  EXPECT_NEAR(up.latitude, 50, 1e-11);
  const Geodetic east = frame.Place({1000, 0, 0});
  EXPECT_NEAR((east.longitude - 15) * 71695.8, 1000, 0.1);
  EXPECT_NEAR(east.latitude, 50, 1e-5);
  const Geodetic north = frame.Place({0, 1000, 0});
  EXPECT_NEAR((north.latitude - 50) * 111229.3, 1000, 0.1);
  EXPECT_NEAR(north.longitude, 15, 1e-11);
  EXPECT_NEAR(north.height - 100, 1e6 / 2 / 6372956, 1e-3);
}

// A map turned by `turn`, with a map scale, far from its origin.
TopocentricToGrid TurnedMap(double turn) {
  return [turn](const Vector3& p) -> std::optional<Vector3> {
    const double c = 0.9996 * std::cos(turn), s = 0.9996 * std::sin(turn);
    return Vector3{500000 + c * p[0] - s * p[1], 5400000 + s * p[0] + c * p[1], p[2]};
  };
}

std::vector<OpenSfmShot> Flight(double turn, double noise, int count) {
  std::mt19937 random(11);
  std::normal_distribution<double> normal;
  std::vector<OpenSfmShot> shots(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    OpenSfmShot& shot = shots[static_cast<std::size_t>(i)];
    const double x = 40.0 * (i % 5), y = 40.0 * (i / 5);
    shot.gps = Vector3{x + noise * normal(random), y + noise * normal(random), 100};
    // Moved by ground control, which must not matter.
    shot.centre = {std::cos(turn) * x - std::sin(turn) * y + 30,
                   std::sin(turn) * x + std::cos(turn) * y - 20, 90};
  }
  return shots;
}

TEST(OdmFrameTest, FrameIsToldByTheTurnAgainstThePhotosOwnPositions) {
  const double turn = -0.015;
  const auto map = TurnedMap(turn);
  for (const double noise : {0.0, 0.05, 0.3}) {
    const auto local = FindFrame(Flight(0, noise, 25), map);
    ASSERT_TRUE(local);
    EXPECT_TRUE(local->certain) << noise;
    EXPECT_EQ(local->frame, OdmFrame::kTopocentric) << noise;
    EXPECT_NEAR(local->gridTurn, turn, 1e-9);
    const auto grid = FindFrame(Flight(turn, noise, 25), map);
    EXPECT_TRUE(grid->certain) << noise;
    EXPECT_EQ(grid->frame, OdmFrame::kGrid) << noise;
  }
}

TEST(OdmFrameTest, WithoutEvidenceTheFrameIsTheGridAndUncertain) {
  const auto map = TurnedMap(-0.015);
  auto unknown = Flight(0, 0, 25);
  for (auto& shot : unknown) shot.gps.reset();
  auto zeros = Flight(0, 0, 25);
  for (auto& shot : zeros) shot.gps = Vector3{};
  for (const auto& shots : {unknown, zeros, Flight(0, 0, 2), Flight(0, 8, 25), {}}) {
    const auto finding = FindFrame(shots, map);
    ASSERT_TRUE(finding);
    EXPECT_FALSE(finding->certain);
    EXPECT_EQ(finding->frame, OdmFrame::kGrid);
  }
  EXPECT_FALSE(FindFrame({}, [](const Vector3&) { return std::nullopt; }));
}

// A camera looking down its local vertical with the top of the photo to true north has, on a map
// whose east is turned counterclockwise by t, kappa = t.
TEST(OdmFrameTest, TopocentricPosesTurnWithTheMap) {
  OpenSfmShot shot;
  shot.rotation = {1, 0, 0, 0, -1, 0, 0, 0, -1};
  shot.centre = {100, 200, 90};
  const double turn = 0.021;
  const auto pose = PoseFromTopocentric(shot, TurnedMap(turn));
  ASSERT_TRUE(pose);
  const PhotoAngles angles = AnglesFromMatrix(pose->cameraToGround);
  EXPECT_NEAR(angles.omega, 0, 1e-9);
  EXPECT_NEAR(angles.phi, 0, 1e-9);
  EXPECT_NEAR(angles.kappa, turn, 1e-9);
  EXPECT_NEAR(pose->centre[0], (*TurnedMap(turn)(shot.centre))[0], 1e-9);
  const GroundPose moved = PoseFromGrid(shot, 292632, 2731169);
  EXPECT_EQ(moved.centre, (Vector3{292732, 2731369, 90}));
}

TEST(OdmFrameTest, CoordsFilesGiveTheirOffset) {
  EXPECT_EQ(ParseCoordsOffset("WGS84 UTM 51N\n292632 2731169\n1.5 2.5 3\n"),
            (std::array<double, 2>{292632, 2731169}));
  EXPECT_EQ(ParseCoordsOffset("+proj=utm +zone=10\r\n 576529.22\t5188003.8\r\n"),
            (std::array<double, 2>{576529.22, 5188003.8}));
  for (const char* text : {"", "WGS84", "WGS84\n", "WGS84\n12\n", "WGS84\nx y\n", "a\nnan 1\n"}) {
    EXPECT_FALSE(ParseCoordsOffset(text)) << text;
  }
}

}  // namespace
}  // namespace tqtortho::host
