// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "survey/geodesy.h"
#include "survey/rotation.h"
#include "testing/import_scene.h"
#include "testing/town_data.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::Said;

constexpr double kDegree = 3.14159265358979323846 / 180;

// There are two of that name.
std::optional<Survey> Odm(const ImportRequest& request, std::string& error) {
  return ImportOdm(request, error);
}

double AngleBetween(const Matrix3& a, const Matrix3& b) {
  double chord = 0;
  for (std::size_t i = 0; i < a.size(); ++i) chord += (a[i] - b[i]) * (a[i] - b[i]);
  return 2 * std::asin(std::min(1.0, std::sqrt(chord / 8)));
}

Matrix3 Turn(std::size_t axis, double angle) {
  Vector3 v{};
  v[axis] = angle;
  return RotationFromAxisAngle(v);
}

// Poses that an independent tool derived from the same project: photo name -> position and the
// classic omega, phi, kappa (about X, then Y, then Z).
TEST(OdmImportTest, FieldSurveyHasThePosesOfAnIndependentTool) {
  const std::string data = tqtortho::testing::SharedData();
  if (data.empty()) GTEST_SKIP() << "no measurement data (TQTORTHO_SHARED_DATA)";
  std::string error;
  const auto survey = ImportOdm(data + "/odm-field", error);
  ASSERT_TRUE(survey) << error;
  ASSERT_EQ(survey->blocks.size(), 1U);
  ASSERT_EQ(survey->blocks[0].photos.size(), 4U);
  EXPECT_EQ(survey->blocks[0].photos.front().name, "100_0005_0018.tif");  // flown first
  EXPECT_EQ(survey->cameras.at(0).model, 3);
  EXPECT_THAT(survey->notes, AllOf(Contains(HasSubstr("on the map grid, offset 292632, 2731169")),
                                   Contains(HasSubstr("RMS"))));

  const auto params = nlohmann::json::parse(
      tqtortho::testing::ReadText(data + "/odm-field/params/ext_param.geojson"));
  int compared = 0;
  for (const auto& feature : params["features"]) {
    const auto& p = feature["properties"];
    for (const SurveyPhoto& photo : survey->blocks[0].photos) {
      if (photo.name != p["filename"].get<std::string>() + ".tif") continue;
      ++compared;
      const Vector3 at = p["xyz"];
      EXPECT_LT(std::hypot(photo.x - at[0], photo.y - at[1], photo.z - at[2]), 1e-4);
      const Matrix3 expected =
          Product(Product(Turn(0, p["opk"][0]), Turn(1, p["opk"][1])), Turn(2, p["opk"][2]));
      EXPECT_LT(AngleBetween(MatrixFromAngles({photo.omega, photo.phi, photo.kappa}), expected),
                1e-6 * kDegree);
    }
  }
  EXPECT_EQ(compared, 4);
}

// A survey whose poses are local, with a table of the same poses on the map from its makers (x, y,
// z; omega, phi, kappa in degrees). Nothing but the photos tells.
TEST(OdmImportTest, BeachSurveyIsFoundLocalByItsPhotos) {
  const std::string data = tqtortho::testing::SharedData();
  if (data.empty()) GTEST_SKIP() << "no measurement data (TQTORTHO_SHARED_DATA)";
  std::string error;
  const auto survey = ImportOdm(data + "/odm-beach", error);
  ASSERT_TRUE(survey) << error;
  EXPECT_THAT(survey->notes, Contains(AllOf(HasSubstr("local east-north-up frame"),
                                            HasSubstr("photos see the DSM's relief"))));
  std::map<std::string, SurveyPhoto> photos;
  for (const SurveyPhoto& photo : survey->blocks.at(0).photos) photos[photo.name] = photo;
  std::istringstream table(
      tqtortho::testing::ReadText(data + "/odm-beach/params/xyz_opk_utm15n.csv"));
  std::string line;
  std::getline(table, line);
  int compared = 0;
  while (std::getline(table, line)) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream fields(line);
    std::string name;
    Vector3 at{}, angles{};
    fields >> name >> at[0] >> at[1] >> at[2] >> angles[0] >> angles[1] >> angles[2];
    const auto photo = photos.find(name);
    ASSERT_NE(photo, photos.end()) << name;
    const SurveyPhoto& p = photo->second;
    EXPECT_LT(std::hypot(p.x - at[0], p.y - at[1], p.z - at[2]), 2e-3) << name;
    const Matrix3 expected =
        Product(Product(Turn(0, angles[0] * kDegree), Turn(1, angles[1] * kDegree)),
                Turn(2, angles[2] * kDegree));
    EXPECT_LT(AngleBetween(MatrixFromAngles({p.omega, p.phi, p.kappa}), expected), 1e-3 * kDegree)
        << name;
    ++compared;
  }
  EXPECT_EQ(compared, 18);
}

// A small project on disk, in UTM zone 33 at its western border, where the grid is turned most.
struct OdmProject : ImportFolder {
  OdmProject() {
    WriteDsm("EPSG:32633");
    for (int i = 0; i < 9; ++i) AddShot("p" + std::to_string(i), i % 3 * 60.0, i / 3 * 60.0);
  }
  void WriteDsm(const std::string& crs, double x = 500000, double y = 5500000) const {
    ImportFolder::WriteDsm(crs, x, y);
    std::filesystem::create_directories(File("odm_dem"));
    std::filesystem::rename(File("dsm.tif"), File("odm_dem/dsm.tif"));
  }
  // Looks down with a lean, from 100 m above the reference.
  void AddShot(const std::string& name, double east, double north) {
    const Vector3 t = Product(RotationFromAxisAngle(kTurn), Vector3{-east, -north, -100});
    shots[name + ".jpg"] = {{"rotation", kTurn},
                            {"translation", t},
                            {"camera", "cam"},
                            {"gps_position", {east, north, 100}}};
    WritePhoto(name + ".jpg", 400, 300);
  }
  [[nodiscard]] ImportRequest Wanted() const {
    nlohmann::json r;
    r["cameras"] = cameras;
    r["shots"] = shots;
    r["reference_lla"] = {{"latitude", kOrigin.latitude},
                          {"longitude", kOrigin.longitude},
                          {"altitude", kOrigin.height}};
    dir.Write("opensfm/reconstruction.json", nlohmann::json::array({r}).dump());
    ImportRequest request;
    request.path = dir.Path();
    return request;
  }

  static constexpr Geodetic kOrigin{12.1, 49.5, 300};
  static constexpr Vector3 kTurn = {3.0, 0.2, -0.1};
  nlohmann::json cameras = nlohmann::json::parse(
      R"({"cam": {"projection_type": "perspective", "width": 400, "height": 300, "focal": 0.8,
                  "k1": -0.01, "k2": 0.002}})");
  nlohmann::json shots = nlohmann::json::object();
};

// A local frame: ground points through the source's own model, and through ours on the map. Map
// scale is in there (4e-4 at most), as it is in any survey on a map.
TEST(OdmImportTest, LocalFramesAreMovedToTheMapWithTheirConvergence) {
  const OdmProject project;
  const Survey survey = Imported(Odm, project.Wanted());
  EXPECT_THAT(survey.notes, Contains(HasSubstr("local east-north-up frame")));
  const auto toMap = geo::CrsTransform::Create("EPSG:4326", "EPSG:32633");
  const Topocentric frame(OdmProject::kOrigin);
  for (int i = 0; i < 9; ++i) {
    const auto pair = [&](const Vector3& d) -> PointPair {
      const Geodetic place = frame.Place({i % 3 * 60 + d[0], i / 3 * 60 + d[1], d[2]});
      const auto map = toMap->Apply({place.longitude, place.latitude, 0});
      const Vector3 seen =
          Product(RotationFromAxisAngle(OdmProject::kTurn), Vector3{d[0], d[1], d[2] - 100});
      const double x = seen[0] / seen[2], y = seen[1] / seen[2], r2 = x * x + y * y;
      const double lens = 400 * 0.8 * (1 - 0.01 * r2 + 0.002 * r2 * r2);
      return {{lens * x + 199.5, lens * y + 149.5}, map->x, map->y, place.height};
    };
    const std::string name = "p" + std::to_string(i) + ".jpg";
    EXPECT_LT(LargestDistance(survey, name, 400, 300, 80, pair), 0.12) << name;
  }
}

TEST(OdmImportTest, PosesOnTheGridTakeTheOffsetOfTheProject) {
  const OdmProject project;
  project.dir.Write("opensfm/reconstruction.topocentric.json", "[]");
  // UTM coordinates of the reference, from PROJ; not whole metres, so taken as they are.
  EXPECT_NEAR(Imported(Odm, project.Wanted()).blocks.at(0).photos[0].x, 290031.968946, 1e-4);
  project.dir.Write("odm_georeferencing/coords.txt", "WGS84 UTM 33N\n290032 5487083\n");
  const auto photos = Imported(Odm, project.Wanted()).blocks.at(0).photos;
  EXPECT_NEAR(photos[1].x, 290032 + 60, 1e-6);
  EXPECT_NEAR(photos[3].y, 5487083 + 60, 1e-6);
  EXPECT_EQ(photos[1].z, photos[0].z);
  // A DSM that somebody reprojected does not share the poses' grid any more.
  project.WriteDsm("EPSG:32632", 700000, 5500000);
  EXPECT_THAT(Said(Odm, project.Wanted()), AllOf(HasSubstr("coords.txt"), Not(HasSubstr("taken"))));
}

TEST(OdmImportTest, PhotosAreFoundBySpellingAndTheRestIsNoted) {
  OdmProject project;
  for (const char* name : {"odd", "gone", "case", "cut"}) project.AddShot(name, 10, 10);
  project.WritePhoto("odd.jpg", 300, 400);
  project.Remove("images/gone.jpg");
  std::filesystem::rename(project.File("images/case.jpg"), project.File("images/Case.JPG"));
  project.dir.Write("images/cut.jpg", "no image");
  auto bare = project.shots["p0.jpg"];
  bare["capture_time"] = 5;
  project.shots.erase("p0.jpg");
  project.shots["p0"] = bare;  // a shot named without the extension
  const Survey survey = Imported(Odm, project.Wanted());
  std::vector<std::string> names;
  for (const auto& photo : survey.blocks.at(0).photos) names.push_back(photo.name);
  EXPECT_EQ(names.size(), 10U);
  EXPECT_EQ(names.back(), "p0.jpg");
  EXPECT_THAT(names, Contains("Case.JPG"));
  for (const auto& [name, words] : {std::pair{"odd.jpg", "400 x 300"},
                                    {"gone.jpg", "no such file"},
                                    {"cut.jpg", "no readable"}}) {
    EXPECT_THAT(survey.notes, Contains(AllOf(HasSubstr(name), HasSubstr(words))));
  }
}

TEST(OdmImportTest, CamerasGetABlockEachAndUnusedOnesDoNotMatter) {
  OdmProject project;
  project.cameras["all round"] = {{"projection_type", "spherical"}};
  project.cameras["second"] = project.cameras["cam"];
  project.shots["p4.jpg"]["camera"] = "second";
  const Survey survey = Imported(Odm, project.Wanted());
  ASSERT_EQ(survey.blocks.size(), 2U);
  ASSERT_EQ(survey.cameras.size(), 2U);
  EXPECT_EQ(survey.blocks[0].photos.size(), 8U);
  ASSERT_EQ(survey.blocks[1].photos.size(), 1U);
  EXPECT_EQ(survey.blocks[1].photos[0].cameraId, survey.cameras[1].id);
  EXPECT_NE(survey.cameras[0].id, survey.cameras[1].id);
  project.shots["p4.jpg"]["camera"] = "all round";
  EXPECT_THAT(Said(Odm, project.Wanted()),
              HasSubstr("\"all round\": projection type spherical cannot be expressed"));
}

TEST(OdmImportTest, IncompleteProjectsSayWhatIsMissing) {
  std::string error;
  EXPECT_FALSE(ImportOdm("/nowhere", error));
  EXPECT_THAT(error, HasSubstr("/nowhere"));
  const ImportFolder empty;
  ImportRequest request;
  request.path = empty.dir.Path();
  EXPECT_THAT(Said(Odm, request), HasSubstr("reconstruction.json"));
  const OdmProject project;
  project.WriteDsm("EPSG:4326", 12, 49);
  request = project.Wanted();
  EXPECT_THAT(Said(Odm, request), HasSubstr("not in metres"));
  project.WriteDsm("EPSG:32633");
  project.dir.Write("opensfm/reconstruction.json", "[{\"shots\": {\"a");
  EXPECT_THAT(Said(Odm, request), AllOf(HasSubstr("reconstruction.json"), HasSubstr("damaged")));
  project.Remove("images");
  EXPECT_THAT(Said(Odm, project.Wanted()), HasSubstr("none of its 9 photos"));
  project.Remove("odm_dem/dsm.tif");
  EXPECT_THAT(Said(Odm, project.Wanted()), HasSubstr("--dsm"));
}

}  // namespace
}  // namespace tqtortho::host
