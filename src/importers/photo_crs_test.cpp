// SPDX-License-Identifier: Apache-2.0
#include "importers/photo_crs.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geo/Crs.h"
#include "survey/photo_outline.h"

namespace tqtortho::host {
namespace {

Survey OnePhoto(const std::string& crs, double x, double y) {
  Survey survey;
  survey.crs = crs;
  SurveyCamera camera;
  camera.id = 1;
  camera.width = camera.sensorWidth = 1500;
  camera.height = 1000;
  camera.focalLength = 1500;
  camera.principalX = 750;
  camera.principalY = 500;
  survey.cameras = {camera};
  survey.blocks = {{"", {{"a.jpg", x, y, 180, 0.11, -0.07, 0.9, 1}}}};
  return survey;
}

// Ground points seen by the photo as it was given must lie at the same pixels when both are brought
// to the other zone, where north has turned by 4.5 degrees: some 60 pixels at the border.
TEST(BringOntoMapTest, GroundPointsStayAtTheirPixelsAcrossUtmZones) {
  Survey survey = OnePhoto("EPSG:32632", 720000, 5400000);
  const PhotoCamera before = CameraOfSurvey(survey.cameras[0], survey.blocks[0].photos[0]);
  const std::string map = geo::CrsToWkt("EPSG:32633");
  std::string error;
  ASSERT_TRUE(BringOntoMap(survey, map, error)) << error;
  EXPECT_TRUE(survey.crs.empty());
  const PhotoCamera after = CameraOfSurvey(survey.cameras[0], survey.blocks[0].photos[0]);
  const auto way = geo::CrsTransform::Create("EPSG:32632", map);
  for (const auto& [dx, dy] : {std::pair{0.0, 0.0}, {45.0, 0.0}, {-30.0, 25.0}, {10.0, -35.0}}) {
    const auto ground = way->Apply({720000 + dx, 5400000 + dy, 0});
    const auto a = PixelFromImage(before, ImageFromGround(before, 720000 + dx, 5400000 + dy, 90));
    const auto b = PixelFromImage(after, ImageFromGround(after, ground->x, ground->y, 90));
    // The zones' scales differ by less than a thousandth, heights do not.
    EXPECT_NEAR(a.x, b.x, 0.8);
    EXPECT_NEAR(a.y, b.y, 0.8);
  }
}

TEST(BringOntoMapTest, AnglesOfLongitudeAndLatitudeCountFromTrueNorth) {
  const auto toDegrees = geo::CrsTransform::Create("EPSG:32633", "EPSG:4326");
  const auto place = toDegrees->Apply({320000, 5400000, 0});
  Survey survey = OnePhoto("EPSG:4326", place->x, place->y);
  survey.blocks[0].photos[0].omega = survey.blocks[0].photos[0].phi = 0;
  std::string error;
  ASSERT_TRUE(BringOntoMap(survey, geo::CrsToWkt("EPSG:32633"), error)) << error;
  const SurveyPhoto& photo = survey.blocks[0].photos[0];
  EXPECT_NEAR(photo.x, 320000, 1e-3);
  EXPECT_NEAR(photo.y, 5400000, 1e-3);
  // Convergence, to first order (longitude minus 15 degrees) times sine of the latitude: west of
  // the zone's meridian true north leans to the east of the grid's, clockwise.
  const double rad = std::acos(-1.0) / 180;
  const double convergence = (place->x - 15) * rad * std::sin(place->y * rad);
  EXPECT_NEAR(photo.kappa - 0.9, convergence, 2e-4);
}

TEST(BringOntoMapTest, WhatCannotBeBroughtIsRefusedAndLeavesTheSurvey) {
  for (const auto& [crs, map, text] :
       {std::tuple{"EPSG:nonsense", "EPSG:32633", "no known coordinate system"},
        {"EPSG:2263", "EPSG:32633", "not in metres"},
        {"EPSG:32632", "", "the DSM names none"}}) {
    Survey survey = OnePhoto(crs, 500000, 5400000);
    std::string error;
    EXPECT_FALSE(BringOntoMap(survey, map[0] != 0 ? geo::CrsToWkt(map) : "", error));
    EXPECT_NE(error.find(text), std::string::npos) << error;
    EXPECT_EQ(survey.blocks[0].photos[0].x, 500000);
  }
}

TEST(GuessPhotoCrsTest, FindsTheSystemInWhichAPhotoLiesOnTheDsm) {
  const double transform[6] = {310000, 0.5, 0, 5400000, 0, -0.5};
  tqimage::GeoCoefficients dsm(transform, 400, 400);
  dsm.SetProjection(geo::CrsToWkt("EPSG:32633"));
  for (const char* crs : {"EPSG:4326", "EPSG:3857", "EPSG:32632", "EPSG:32634"}) {
    const auto place = geo::CrsTransform::Create("EPSG:32633", crs)->Apply({310050, 5399950, 0});
    EXPECT_EQ(GuessPhotoCrs(place->x, place->y, dsm), crs);
  }
  EXPECT_EQ(GuessPhotoCrs(123456, 234567, dsm), "");
}

}  // namespace
}  // namespace tqtortho::host
