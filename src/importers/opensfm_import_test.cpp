// SPDX-License-Identifier: Apache-2.0
#include "importers/opensfm_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <numbers>

#include "survey/rotation.h"
#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::HasSubstr;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::Said;

constexpr int kWidth = 1400, kHeight = 1000;
constexpr double kLongitude = 12.1, kLatitude = 49.5, kAltitude = 300;

// A point of the local frame in earth-centred coordinates, by the ellipsoid's own formulas.
Vector3 EarthPoint(const Vector3& local) {
  const double lon = kLongitude * std::numbers::pi / 180, lat = kLatitude * std::numbers::pi / 180;
  const double e2 = 0.00669437999014132,
               n = 6378137 / std::sqrt(1 - e2 * std::pow(std::sin(lat), 2));
  const Vector3 east = {-std::sin(lon), std::cos(lon), 0};
  const Vector3 up = {std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat)};
  const Vector3 north = {-std::sin(lat) * std::cos(lon), -std::sin(lat) * std::sin(lon),
                         std::cos(lat)};
  Vector3 out = {(n + kAltitude) * up[0], (n + kAltitude) * up[1],
                 (n * (1 - e2) + kAltitude) * up[2]};
  for (std::size_t i = 0; i < 3; ++i) {
    out[i] += local[0] * east[i] + local[1] * north[i] + local[2] * up[i];
  }
  return out;
}

struct Project : ImportFolder {
  Project() {
    WriteDsm("EPSG:32633", 290000, 5487000);
    for (int i = 0; i < 9; ++i) {
      const std::string name = "p" + std::to_string(i) + ".jpg";
      const Vector3 c = {i % 3 * 60.0, i / 3 * 60.0, 100};
      shots[name] = {
          {"rotation", kTurn}, {"translation", Shift(c)}, {"camera", "cam"}, {"gps_position", c}};
      WritePhoto(name, kWidth, kHeight);
    }
  }
  static Vector3 Shift(const Vector3& centre) {
    return Product(RotationFromAxisAngle(kTurn), Vector3{-centre[0], -centre[1], -centre[2]});
  }
  void Write(bool referenceInside) const {
    nlohmann::json r;
    r["cameras"]["cam"] = nlohmann::json::parse(
        R"({"projection_type": "brown", "width": 1400, "height": 1000, "focal_x": 0.8,
            "focal_y": 0.8, "c_x": 0.004, "c_y": -0.003, "k1": -0.2, "k2": 0.06, "k3": -0.01,
            "p1": 5e-4, "p2": -3e-4})");
    r["shots"] = shots;
    const nlohmann::json reference = {
        {"latitude", kLatitude}, {"longitude", kLongitude}, {"altitude", kAltitude}};
    if (referenceInside) r["reference_lla"] = reference;
    if (!referenceInside) dir.Write("reference_lla.json", reference.dump());
    dir.Write("reconstruction.json", nlohmann::json::array({r}).dump());
  }
  static constexpr Vector3 kTurn = {3.0, 0.2, -0.1};
  nlohmann::json shots;
};

// At the border of a zone, where the grid is turned most, with the reference in either place.
TEST(OpenSfmImportTest, GroundPointsFallWhereTheDocumentedModelPutsThem) {
  const auto toPlace = geo::CrsTransform::Create("EPSG:4978", "EPSG:4979");
  const auto toMap = geo::CrsTransform::Create("EPSG:4326", "EPSG:32633");
  ASSERT_TRUE(toPlace && toMap);
  for (const bool inside : {true, false}) {
    const Project project;
    project.Write(inside);
    EXPECT_TRUE(LooksLikeOpenSfm(project.dir.Path()));
    const Survey survey = Imported(ImportOpenSfm, project.Request(""));
    ASSERT_EQ(survey.blocks.at(0).photos.size(), 9U);
    for (int i : {0, 4, 8}) {
      const auto pair = [&](const Vector3& d) -> PointPair {
        const Vector3 seen =
            Product(RotationFromAxisAngle(Project::kTurn), Vector3{d[0], d[1], d[2] - 100});
        const double x = seen[0] / seen[2], y = seen[1] / seen[2], r2 = x * x + y * y;
        const double radial = 1 - 0.2 * r2 + 0.06 * r2 * r2 - 0.01 * r2 * r2 * r2;
        const double xd = x * radial + 2 * 5e-4 * x * y - 3e-4 * (r2 + 2 * x * x);
        const double yd = y * radial + 5e-4 * (r2 + 2 * y * y) - 2 * 3e-4 * x * y;
        const Vector3 e = EarthPoint({i % 3 * 60 + d[0], i / 3 * 60 + d[1], d[2]});
        const auto place = toPlace->Apply({e[0], e[1], e[2]});
        const auto map = toMap->Apply({place->x, place->y, 0});
        return {{kWidth * (0.8 * xd + 0.004) + kWidth / 2.0 - 0.5,
                 kWidth * (0.8 * yd - 0.003) + kHeight / 2.0 - 0.5},
                map->x,
                map->y,
                place->z};
      };
      // A map is not true to scale, here by 1.5e-4, which a photo's border shows as 0.1 pixel.
      const std::string name = "p" + std::to_string(i) + ".jpg";
      EXPECT_LT(LargestDistance(survey, name, kWidth, kHeight, 60, pair), 0.25);
    }
  }
}

TEST(OpenSfmImportTest, FramesThatAreNotLocalMustBeSaid) {
  Project project;
  const double turn = -2.21 * std::numbers::pi / 180;  // about the convergence there
  for (auto& [name, shot] : project.shots.items()) {
    const Vector3 c = shot["gps_position"];
    shot["translation"] = Project::Shift(Product(RotationFromAxisAngle({0, 0, turn}), c));
  }
  project.Write(true);
  ImportRequest request = project.Request("reconstruction.json");
  EXPECT_THAT(Said(ImportOpenSfm, request),
              HasSubstr("no longer stand in the local frame; say with --crs and --offset"));
  request.crs = "EPSG:32633";
  request.offset = {290031, 5487083, 7};
  const Survey survey = Imported(ImportOpenSfm, request);
  EXPECT_NEAR(survey.blocks.at(0).photos.at(0).x, 290031, 1e-6);
  EXPECT_NEAR(survey.blocks.at(0).photos.at(0).z, 107, 1e-6);
}

TEST(OpenSfmImportTest, EachFaultIsNamedWithTheWayOut) {
  const Project project;
  const auto fails = [&](const ImportRequest& request, const std::string& words) {
    EXPECT_THAT(Said(ImportOpenSfm, request), HasSubstr(words));
  };
  fails(project.Request(""), "reconstruction.json: cannot be read (no such file); give the folder");
  project.Write(true);
  ImportRequest request = project.Request("");
  request.dsmPath.clear();
  fails(request, "holds no surface model; give the DSM with --dsm");
  project.Write(false);
  project.dir.Write("reference_lla.json", "{\"latitude\": 97, \"longitude\": 2}");
  fails(project.Request(""), "reference_lla.json is damaged: no latitude and longitude");
  project.Remove("reference_lla.json");
  fails(project.Request(""), "not georeferenced; process it with photo positions, or say with");
  // Inside a project of another program the same file has other poses.
  std::filesystem::create_directories(project.File("odm/odm_dem"));
  project.dir.Write("odm/opensfm/reconstruction.json",
                    tqtortho::testing::ReadText(project.File("reconstruction.json")));
  fails(project.Request("odm/opensfm"), "is part of an OpenDroneMap project");
  project.dir.Write("reconstruction.json", "{\"cameras\": 1}");
  EXPECT_FALSE(LooksLikeOpenSfm(project.dir.Path()));
}

}  // namespace
}  // namespace tqtortho::host
