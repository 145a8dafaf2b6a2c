// SPDX-License-Identifier: Apache-2.0
#include "importers/metashape_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numbers>

#include "importers/metashape_file.h"
#include "survey/number_text.h"
#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::Said;

constexpr double kRadian = std::numbers::pi / 180;
constexpr int kWidth = 1400, kHeight = 1000;

template <typename List>
std::string Text(const List& values) {
  std::string out;
  for (const double v : values) out += Exact(v) + " ";
  return out;
}

// An ellipsoid of its own, to be independent of the importer's.
Vector3 Ecef(const Vector3& lonLatHeight, double a, double inverseFlattening) {
  const double f = 1 / inverseFlattening, e2 = f * (2 - f);
  const double lon = lonLatHeight[0] * kRadian, lat = lonLatHeight[1] * kRadian;
  const double n = a / std::sqrt(1 - e2 * std::sin(lat) * std::sin(lat));
  return {(n + lonLatHeight[2]) * std::cos(lat) * std::cos(lon),
          (n + lonLatHeight[2]) * std::cos(lat) * std::sin(lon),
          (n * (1 - e2) + lonLatHeight[2]) * std::sin(lat)};
}

constexpr struct Lens {
  double f = 1100, cx = 8.3, cy = -5.1, k1 = -0.05, k2 = 0.02, k3 = -0.005, k4 = 0.002;
  double p1 = 0.0007, p2 = -0.0004, b1 = 0.12, b2 = -0.1;
} kLens;
const std::string kLensXml =
    "<f>1100</f>\n<cx>8.3</cx><cy>-5.1</cy><k1>-0.05</k1><k2>0.02</k2><k3>-0.005</k3>"
    "<k4>0.002</k4><p1>0.0007</p1><p2>-0.0004</p2><b1>0.12</b1><b2>-0.1</b2>\n";

// The user manual's frame camera, word for word; its pixels have their centres at half pixels.
tqtortho::testing::RasterPoint Manual(const Vector3& point) {
  const Lens& c = kLens;
  const double x = point[0] / point[2], y = point[1] / point[2];
  const double r = std::sqrt(x * x + y * y);
  const double radial = 1 + c.k1 * std::pow(r, 2) + c.k2 * std::pow(r, 4) + c.k3 * std::pow(r, 6) +
                        c.k4 * std::pow(r, 8);
  const double xd = x * radial + (c.p1 * (r * r + 2 * x * x) + 2 * c.p2 * x * y);
  const double yd = y * radial + (c.p2 * (r * r + 2 * y * y) + 2 * c.p1 * x * y);
  const double u = kWidth * 0.5 + c.cx + xd * c.f + xd * c.b1 + yd * c.b2;
  const double v = kHeight * 0.5 + c.cy + yd * c.f;
  return {u - 0.5, v - 0.5};
}

// Camera axes right, down, forward of a photo that looks down with a lean, by frame coordinates.
Matrix3 LeaningDown(double turn) {
  const Matrix3 nadir = {1, 0, 0, 0, -1, 0, 0, 0, -1};
  return Product(RotationFromAxisAngle({0, 0, turn}),
                 Product(RotationFromAxisAngle({0.12, -0.2, 0}), nadir));
}

struct Scene {
  std::string reference;  // text of the element
  Matrix3 rotation = RotationFromAxisAngle({0.4, -1.1, 0.7});
  Vector3 translation{};
  double scale = 12.5;
  bool inComponent = false;
  std::vector<std::pair<Vector3, Matrix3>> cameras;  // centre and axes in the outer frame

  [[nodiscard]] Vector3 InChunk(const Vector3& outer) const {
    return Product(Transposed(rotation),
                   Vector3{(outer[0] - translation[0]) / scale, (outer[1] - translation[1]) / scale,
                           (outer[2] - translation[2]) / scale});
  }
  [[nodiscard]] std::string Xml() const {
    const std::string place = "<transform><rotation>" + Text(rotation) +
                              "</rotation><translation>" + Text(translation) +
                              "</translation><scale>" + Exact(scale) + "</scale></transform>\n";
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<document version=\"2.0.0\">\n<chunk "
        "label=\"Chunk 1\" enabled=\"true\">\n<sensors next_id=\"1\">\n"
        "<sensor id=\"0\" label=\"FC6310\" type=\"frame\">\n"
        "<resolution width=\"1400\" height=\"1000\"/>\n"
        "<calibration type=\"frame\" class=\"initial\"><f>77</f></calibration>\n"
        "<calibration type=\"frame\" class=\"adjusted\">\n"
        "<resolution width=\"1400\" height=\"1000\"/>\n" +
        kLensXml + "</calibration></sensor>\n</sensors>\n";
    xml += inComponent ? "<components><component id=\"3\">" + place + "</component></components>\n"
                       : place;
    xml += "<cameras next_id=\"9\">\n";
    for (std::size_t i = 0; i < cameras.size(); ++i) {
      const Vector3 c = InChunk(cameras[i].first);
      const Matrix3 r = Product(Transposed(rotation), cameras[i].second);
      const std::array<double, 16> t = {r[0], r[1], r[2], c[0], r[3], r[4], r[5], c[1],
                                        r[6], r[7], r[8], c[2], 0,    0,    0,    1};
      xml += std::string(i == 1 ? "<group id=\"0\" label=\"east\">" : "") + "<camera id=\"" +
             std::to_string(i) + "\" sensor_id=\"0\" " +
             (inComponent ? "component_id=\"3\" " : "") + "label=\"p" + std::to_string(i) +
             (i == 0 ? ".jpg" : "") + "\"><transform>" + Text(t) + "</transform></camera>" +
             (i == 1 ? "</group>\n" : "\n");
    }
    return xml + "<camera id=\"7\" sensor_id=\"0\" label=\"off\" enabled=\"false\"/>\n" +
           "<camera id=\"8\" sensor_id=\"0\" label=\"loose\"/>\n</cameras>\n<reference>" +
           reference + "</reference>\n</chunk>\n</document>\n";
  }
};

std::string Escaped(std::string wkt) {
  for (std::size_t at = 0; (at = wkt.find('"', at)) != std::string::npos;) {
    wkt.replace(at, 1, "&quot;");
  }
  return wkt;
}

// Two cameras over a place on an ellipsoid, 120 m above ground points of 300 to 330 m.
struct EarthScene : Scene {
  EarthScene(double lon, double lat, double a, double inverseFlattening)
      : lon(lon), lat(lat), a(a), inverseFlattening(inverseFlattening) {
    translation = At({5, -3, 80});
    for (int i = 0; i < 2; ++i) cameras.push_back({At({40.0 * i, 10, 440}), Axes(0.3 + 2.0 * i)});
  }
  // Of east, north (both in seconds of arc times 30 metres) and height.
  [[nodiscard]] Vector3 Place(const Vector3& p) const {
    return {lon + p[0] / 30 / 3600, lat + p[1] / 30 / 3600, p[2]};
  }
  [[nodiscard]] Vector3 At(const Vector3& p) const { return Ecef(Place(p), a, inverseFlattening); }
  [[nodiscard]] Matrix3 Axes(double turn) const {
    const double sl = std::sin(lon * kRadian), cl = std::cos(lon * kRadian);
    const double sb = std::sin(lat * kRadian), cb = std::cos(lat * kRadian);
    const Matrix3 fromEnu = {-sl, -sb * cl, cb * cl, cl, -sb * sl, cb * sl, 0, cb, sb};
    return Product(fromEnu, LeaningDown(turn));
  }
  double lon, lat, a, inverseFlattening;
};

void Fill(const ImportFolder& folder, const Scene& scene, const std::string& crs) {
  folder.WriteDsm(crs, 500000, 5500000);
  folder.WritePhoto("p0.jpg", kWidth, kHeight);
  folder.WritePhoto("P1.JPG", kWidth, kHeight);
  folder.dir.Write("cameras.xml", scene.Xml());
}

// Ground points through the chunk and the manual's camera, and through the survey on the map: the
// geographic system of the earth-centred coordinates, an older datum (another ellipsoid, a
// projected reference), the transform in a component.
TEST(MetashapeImportTest, GroundPointsFallWhereTheManualPutsThem) {
  struct Case {
    EarthScene scene;
    const char* reference;
    const char* geographic;
    const char* map;
    bool inComponent;
  };
  const Case cases[] = {
      {{12.55, 49.5, 6378137, 298.257223563}, "EPSG:4326", "EPSG:4326", "EPSG:32633", false},
      {{12.1, 49.5, 6377397.155, 299.1528128}, "EPSG:31468", "EPSG:4314", "EPSG:31468", true},
  };
  for (Case c : cases) {
    c.scene.reference = Escaped(geo::CrsToWkt(c.reference));
    c.scene.inComponent = c.inComponent;
    const ImportFolder folder;
    Fill(folder, c.scene, c.map);
    EXPECT_TRUE(LooksLikeMetashape(folder.File("cameras.xml")));
    EXPECT_TRUE(LooksLikeMetashape(folder.dir.Path()));
    EXPECT_FALSE(LooksLikeMetashape(folder.File("dsm.tif")));
    const Survey survey = Imported(ImportMetashape, folder.Request(""));
    EXPECT_THAT(survey.notes, AllOf(Contains("1 camera left out: disabled"),
                                    Contains("1 camera left out: not aligned")));
    const auto toMap = geo::CrsTransform::Create(c.geographic, c.map);
    for (std::size_t i = 0; i < 2; ++i) {
      const Vector3 centre = c.scene.InChunk(c.scene.cameras[i].first);
      const Matrix3 axes = Product(Transposed(c.scene.rotation), c.scene.cameras[i].second);
      const auto pair = [&](const Vector3& d) -> PointPair {
        const Vector3 p = {d[0], d[1], 300 + d[2]}, place = c.scene.Place(p);
        Vector3 fromCentre = c.scene.InChunk(c.scene.At(p));
        for (std::size_t j = 0; j < 3; ++j) fromCentre[j] -= centre[j];
        const auto map = toMap->Apply({place[0], place[1], 0});
        return {Manual(Product(Transposed(axes), fromCentre)), map->x, map->y, p[2]};
      };
      const char* name = i == 0 ? "p0.jpg" : "P1.JPG";
      EXPECT_LT(LargestDistance(survey, name, kWidth, kHeight, 200, pair), 0.15) << c.map;
    }
  }
}

// Poses in a local frame that is the map minus an offset.
TEST(MetashapeImportTest, LocalFramesAreTakenAsTheMapThatTheUserNames) {
  Scene scene;
  scene.reference = "LOCAL_CS[&quot;Local Coordinates (m)&quot;,UNIT[&quot;metre&quot;,1]]";
  for (int i = 0; i < 2; ++i) scene.cameras.push_back({{60.0 * i, 20, 430}, LeaningDown(i)});
  const ImportFolder folder;
  Fill(folder, scene, "EPSG:32633");
  auto request = folder.Request("cameras.xml");
  EXPECT_THAT(Said(ImportMetashape, request),
              HasSubstr("local one; set a coordinate system and export again, or say with"));
  request.crs = "EPSG:32633";
  request.offset = {321000, 5480000, -2};
  const auto pair = [&](const Vector3& d) -> PointPair {
    const Vector3 seen = {d[0], d[1], 300 + d[2] - 430};
    return {Manual(Product(Transposed(LeaningDown(1)), seen)), d[0] + 321060, d[1] + 5480020,
            298 + d[2]};
  };
  const Survey survey = Imported(ImportMetashape, request);
  EXPECT_LT(LargestDistance(survey, "P1.JPG", kWidth, kHeight, 200, pair), 0.15);
}

TEST(MetashapeImportTest, EachFaultIsNamedWithItsLine) {
  struct Case {
    const char* from;
    const char* to;
    const char* words;
  };
  const Case cases[] = {
      {"</sensors>", "", "line 22: is no well-formed XML (Start-end tags mismatch)"},
      {"document", "paper", "line 1: holds no chunk of cameras"},
      {"sensors", "senses", "line 3: the chunk has no sensors"},
      {"type=\"frame\" class=\"adjusted\"", "type=\"fisheye\" class=\"adjusted\"",
       "line 5: sensor \"FC6310\": camera type fisheye cannot be expressed"},
      {"<f>1100</f>", "<f>nan</f>", "line 10: sensor \"FC6310\": f is no finite number"},
      {"<f>1100</f>", "<fx>1100</fx>", "calibration of an old program version (fx, fy)"},
      {"<f>1100</f>", "", "line 5: sensor \"FC6310\": has no focal length"},
      {"<f>1100</f>", "<f>1100</f><p3>0.1</p3>", "p3 is not zero"},
      {"calibration", "calculation", "has no calibration"},
      {"<b2>-0.1", "<b2>40", "cannot be expressed: best fit off by"},
      {"width=\"1400\"", "width=\"x\"", "has no resolution in pixels"},
      {"sensor_id=\"0\"", "sensor_id=\"5\"", "camera \"5\" of 2 photos is not described"},
      {" 0 0 0 1 <", " 0 0 0 <", "line 16: camera \"p0.jpg\": its transform is no rigid motion"},
      {"<transform>0.", "<transform>-0.", "line 16: camera \"p0.jpg\": its transform is no rigid"},
      {"<scale>", "<scale>-", "line 14: the chunk's transform is damaged"},
      {"<transform><rotation>", "<transform><rotation>a ", "line 14: the chunk's transform"},
      {"<rotation>", "<turn>", "no well-formed XML"},
      {"<reference>", "<reference>nowhere ", "its coordinate system is a local one"},
      {"label=\"p", "label=\"q", "none of its 2 photos can be used"},
  };
  EarthScene scene(12.55, 49.5, 6378137, 298.257223563);
  scene.reference = Escaped(geo::CrsToWkt("EPSG:4326"));
  const ImportFolder folder;
  Fill(folder, scene, "EPSG:32633");
  for (const Case& c : cases) {
    std::string xml = scene.Xml();
    ASSERT_NE(xml.find(c.from), std::string::npos) << c.from;
    for (std::size_t at = 0; (at = xml.find(c.from, at)) != std::string::npos;) {
      xml.replace(at, std::string(c.from).size(), c.to);
      at += std::string(c.to).size();
    }
    folder.dir.Write("cameras.xml", xml);
    EXPECT_THAT(Said(ImportMetashape, folder.Request("cameras.xml")),
                AllOf(HasSubstr("cameras.xml: "), HasSubstr(c.words)));
  }
  // Heights above a geoid need its height, which the offset gives.
  scene.reference = Escaped(geo::CrsToWkt("EPSG:32633+5773"));
  folder.dir.Write("cameras.xml", scene.Xml());
  auto request = folder.Request("cameras.xml");
  EXPECT_THAT(Said(ImportMetashape, request), HasSubstr("count from EGM96 height"));
  request.offset = {0, 0, -45.5};
  const Survey survey = Imported(ImportMetashape, request);
  EXPECT_NEAR(survey.blocks.at(0).photos.at(0).z, 440 - 45.5, 1e-6);
  folder.WriteDsm("", 0, 0);
  EXPECT_THAT(Said(ImportMetashape, request), HasSubstr("dsm.tif: names no coordinate system"));
  request.dsmPath.clear();
  EXPECT_THAT(Said(ImportMetashape, request), HasSubstr("give the DSM with --dsm"));
}

// Entities are never expanded, however many of each other they name.
TEST(MetashapeFileTest, EntitiesStayWhatTheyAre) {
  EarthScene scene(12.55, 49.5, 6378137, 298.257223563);
  std::string bomb = "<!DOCTYPE document [<!ENTITY a0 \"boom\">";
  for (int i = 1; i < 40; ++i) {
    bomb += "<!ENTITY a" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) bomb += "&a" + std::to_string(i - 1) + ";";
    bomb += "\">";
  }
  std::string xml = scene.Xml();
  xml.insert(xml.find("<document"), bomb + "]>\n");
  xml.replace(xml.find("p0.jpg"), 6, "&a39;");
  std::string error;
  const auto chunk = ParseMetashape(xml, error);
  ASSERT_TRUE(chunk) << error;
  EXPECT_EQ(chunk->cameras.at(0).label, "&a39;");
}

}  // namespace
}  // namespace tqtortho::host
