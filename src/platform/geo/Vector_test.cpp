// SPDX-License-Identifier: Apache-2.0
#include "geo/Vector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "geo/Crs.h"
#include "testing/temp_dir.h"

namespace geo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using tqtortho::testing::TempDir;
using Ring = std::vector<tqfd::Point2_T<double>>;

std::string Feature(const std::string& geometry, const std::string& crs = "") {
  return "{\"type\":\"FeatureCollection\"," + crs +
         "\"features\":[{\"type\":\"Feature\",\"properties\":{},\"geometry\":null},"
         "{\"type\":\"Feature\",\"properties\":{},\"geometry\":" +
         geometry + "}]}";
}

constexpr const char* kUtmCrs =
    "\"crs\":{\"type\":\"name\",\"properties\":{\"name\":\"urn:ogc:def:crs:EPSG::32651\"}},";
constexpr const char* kHoled =
    "{\"type\":\"Polygon\",\"coordinates\":[[[0,0],[10,0],[10,10],[0,10],[0,0]],"
    "[[4,4],[6,4],[6,6],[4,4]]]}";

TEST(VectorTest, TheOuterRingComesWithoutItsRepeatedPoint) {
  const TempDir dir;
  const Ring square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const std::string multi =
      "{\"type\":\"MultiPolygon\",\"coordinates\":[[[[0,0],[10,0],[10,10],"
      "[0,10],[0,0]]],[[[50,50],[51,50],[51,51],[50,50]]]]}";
  const std::string mixed =
      "{\"type\":\"GeometryCollection\",\"geometries\":[{\"type\":\"Point\","
      "\"coordinates\":[1,1]}," +
      std::string(kHoled) + "]}";
  for (const std::string& geometry : {std::string(kHoled), multi, mixed}) {
    Ring ring;
    std::string error;
    // The file's own system is the target's: coordinates pass unchanged.
    ASSERT_TRUE(
        ReadPolygon(dir.Write("a.geojson", Feature(geometry, kUtmCrs)), "EPSG:32651", ring, error))
        << error;
    EXPECT_EQ(ring, square);
    ASSERT_TRUE(ReadPolygon(dir.Write("b.geojson", Feature(geometry)), "", ring, error)) << error;
    EXPECT_EQ(ring, square);
  }
}

TEST(VectorTest, GeoJsonIsLongitudeAndLatitudeUnlessItSaysOtherwise) {
  const TempDir dir;
  const std::string text = Feature(
      "{\"type\":\"Polygon\",\"coordinates\":[[[120.95,24.68],[120.96,24.68],[120.96,24.69],"
      "[120.95,24.68]]]}");
  Ring ring;
  std::string error;
  ASSERT_TRUE(ReadPolygon(dir.Write("a.geojson", text), "EPSG:32651", ring, error)) << error;
  ASSERT_EQ(ring.size(), 3u);
  const auto expected = CrsTransform::Create("EPSG:4326", "EPSG:32651")->Apply({120.96, 24.68, 0});
  EXPECT_NEAR(ring[1].x, expected->x, 1e-6);
  EXPECT_NEAR(ring[1].y, expected->y, 1e-6);
}

TEST(VectorTest, WhatCannotBeUsedIsSaidInOneLine) {
  const TempDir dir;
  struct Case {
    std::string path;
    const char* says;
  };
  const Case cases[] = {
      {dir.File("missing.geojson"), "no such file"},
      {dir.Write("text.geojson", "hello\nworld"), "not a vector file"},
      {dir.Write("line.geojson",
                 Feature("{\"type\":\"LineString\",\"coordinates\":[[0,0],[1,1]]}")),
       "no polygon"},
      {dir.Write("metres.geojson",
                 Feature("{\"type\":\"Polygon\",\"coordinates\":[[[298000,2731000],"
                         "[298100,2731000],[298100,2731100],[298000,2731000]]]}")),
       "outside the file's own coordinate system"},
  };
  for (const Case& c : cases) {
    Ring ring{{1, 1}};
    std::string error;
    EXPECT_FALSE(ReadPolygon(c.path, "EPSG:32651", ring, error));
    EXPECT_THAT(error, HasSubstr(c.says));
    EXPECT_THAT(error, HasSubstr(c.path));
    EXPECT_THAT(error, Not(HasSubstr("\n")));
    EXPECT_TRUE(ring.empty());
  }
}

}  // namespace
}  // namespace geo
