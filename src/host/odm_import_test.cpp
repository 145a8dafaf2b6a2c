// SPDX-License-Identifier: Apache-2.0
#include "host/odm_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "geo/Crs.h"
#include "host/geodesy.h"
#include "host/rotation.h"
#include "rectify/camera_model.h"
#include "testing/temp_dir.h"
#include "testing/town_data.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using tqtortho::testing::TempDir;

constexpr double kDegree = 3.14159265358979323846 / 180;

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
  EXPECT_EQ(survey->blocks[0].photos.back().name, "100_0005_0142.tif");
  EXPECT_EQ(survey->cameras.at(0).model, 3);
  EXPECT_THAT(survey->notes, Contains(HasSubstr("on the map grid, offset 292632, 2731169")));
  EXPECT_THAT(survey->notes, Contains(HasSubstr("RMS")));

  const auto params = nlohmann::json::parse(
      tqtortho::testing::ReadText(data + "/odm-field/params/ext_param.geojson"));
  int compared = 0;
  for (const auto& feature : params["features"]) {
    const auto& p = feature["properties"];
    for (const SurveyPhoto& photo : survey->blocks[0].photos) {
      if (photo.name != p["filename"].get<std::string>() + ".tif") continue;
      ++compared;
      EXPECT_NEAR(photo.x, p["xyz"][0].get<double>(), 1e-4);
      EXPECT_NEAR(photo.y, p["xyz"][1].get<double>(), 1e-4);
      EXPECT_NEAR(photo.z, p["xyz"][2].get<double>(), 1e-4);
      const Matrix3 expected =
          Product(Product(Turn(0, p["opk"][0]), Turn(1, p["opk"][1])), Turn(2, p["opk"][2]));
      EXPECT_LT(AngleBetween(MatrixFromAngles({photo.omega, photo.phi, photo.kappa}), expected),
                1e-6 * kDegree);
    }
  }
  EXPECT_EQ(compared, 4);
}

// A small project on disk, in UTM zone 33 at its western border, where the grid is turned most.
class OdmProject {
 public:
  OdmProject() {
    WriteDsm("EPSG:32633", 500000, 5500000);
    camera_ = {{"projection_type", "perspective"},
               {"width", 400},
               {"height", 300},
               {"focal", 0.8},
               {"k1", -0.01},
               {"k2", 0.002}};
    for (int i = 0; i < 9; ++i) AddShot("p" + std::to_string(i), i % 3 * 60.0, i / 3 * 60.0);
  }
  void WriteDsm(const std::string& crs, double x, double y) const {
    tqorkit::PhotoInfo dsm;
    dsm.width = dsm.height = 4;
    dsm.bands = 1;
    dsm.dataType = tqimage::kFloat32;
    dsm.data.assign(4 * 4 * sizeof(float), 0);
    const double transform[6] = {x, 1, 0, y, 0, -1};
    tqimage::GeoCoefficients place(transform, 4, 4);
    place.SetProjection(geo::CrsToWkt(crs));
    fs::create_directories(dir_.File("odm_dem"));
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(dir_.File("odm_dem/dsm.tif"), dsm, &place, true));
  }
  void WritePhoto(const std::string& name, int width, int height) const {
    tqorkit::PhotoInfo photo;
    photo.width = width;
    photo.height = height;
    photo.bands = 1;
    photo.dataType = tqimage::kByte;
    photo.data.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 9);
    fs::create_directories(dir_.File("images"));
    ASSERT_TRUE(
        tqimage::TqImage::QuickWriteImage(dir_.File("images/" + name), photo, nullptr, true));
  }
  // Looks down with a lean, from 100 m above the reference.
  void AddShot(const std::string& name, double east, double north) {
    const Vector3 axisAngle = {3.0, 0.2, -0.1};
    const Vector3 t = Product(RotationFromAxisAngle(axisAngle), Vector3{-east, -north, -100});
    shots_[name + ".jpg"] = {{"rotation", axisAngle},
                             {"translation", t},
                             {"camera", "cam"},
                             {"gps_position", {east, north, 100}}};
    WritePhoto(name + ".jpg", 400, 300);
  }
  void WriteReconstruction() const {
    nlohmann::json r;
    r["cameras"]["cam"] = camera_;
    r["shots"] = shots_;
    r["reference_lla"] = {{"latitude", kOrigin.latitude},
                          {"longitude", kOrigin.longitude},
                          {"altitude", kOrigin.height}};
    dir_.Write("opensfm/reconstruction.json", nlohmann::json::array({r}).dump());
  }
  std::optional<Survey> Import(std::string& error) const {
    WriteReconstruction();
    return ImportOdm(dir_.Path(), error);
  }

  static constexpr Geodetic kOrigin{12.1, 49.5, 300};
  TempDir dir_;
  nlohmann::json camera_, shots_ = nlohmann::json::object();
};

// A local frame: ground points through the source's own pose, and through ours on the map. Map
// scale is in there (4e-4 at most), as it is in any survey on a map.
TEST(OdmImportTest, LocalFramesAreMovedToTheMapWithTheirConvergence) {
  const OdmProject project;
  std::string error;
  const auto survey = project.Import(error);
  ASSERT_TRUE(survey) << error;
  EXPECT_THAT(survey->notes, Contains(HasSubstr("local east-north-up frame")));
  const auto toMap = geo::CrsTransform::Create("EPSG:4326", "EPSG:32633");
  ASSERT_TRUE(toMap);
  const Topocentric frame(OdmProject::kOrigin);
  const SurveyCamera& camera = survey->cameras.at(0);
  const Matrix3 rotation = RotationFromAxisAngle({3.0, 0.2, -0.1});
  ASSERT_EQ(survey->blocks.at(0).photos.size(), 9U);
  for (std::size_t i = 0; i < 9; ++i) {
    const SurveyPhoto& photo = survey->blocks[0].photos[i];
    const Vector3 centre = {static_cast<double>(i % 3) * 60, static_cast<double>(i / 3) * 60, 100};
    PhotoCamera ours;
    ours.centre = {photo.x, photo.y, photo.z};
    ours.focal = camera.focalLength;
    ours.pixelSize = 1;
    RotationFromAngles(photo.phi, photo.omega, photo.kappa, ours.rotation);
    for (const double dx : {-40.0, 0.0, 40.0}) {
      for (const double dy : {-30.0, 0.0, 30.0}) {
        const Vector3 local = {centre[0] + dx, centre[1] + dy, 0};
        const Vector3 seen = Product(rotation, Vector3{dx, dy, -100});
        const Geodetic place = frame.Place(local);
        const auto map = toMap->Apply({place.longitude, place.latitude, 0});
        ASSERT_TRUE(map);
        const auto image = ImageFromGround(ours, map->x, map->y, place.height);
        EXPECT_NEAR(image.x, camera.focalLength * seen[0] / seen[2], 0.08);
        EXPECT_NEAR(-image.y, camera.focalLength * seen[1] / seen[2], 0.08);
      }
    }
  }
}

TEST(OdmImportTest, PosesOnTheGridTakeTheOffsetOfTheProject) {
  const OdmProject project;
  project.dir_.Write("opensfm/reconstruction.topocentric.json", "[]");
  std::string error;
  auto survey = project.Import(error);
  ASSERT_TRUE(survey) << error;
  // UTM coordinates of the reference, from PROJ; not whole metres, so taken as they are.
  EXPECT_NEAR(survey->blocks[0].photos[0].x, 290031.968946, 1e-4);
  const double reference = survey->blocks[0].photos[0].x;
  project.dir_.Write("odm_georeferencing/coords.txt", "WGS84 UTM 33N\n290032 5487083\n");
  survey = project.Import(error);
  ASSERT_TRUE(survey) << error;
  EXPECT_NEAR(survey->blocks[0].photos[1].x, 290032 + 60, 1e-6);
  EXPECT_NEAR(survey->blocks[0].photos[3].y, 5487083 + 60, 1e-6);
  EXPECT_EQ(survey->blocks[0].photos[1].z, survey->blocks[0].photos[0].z);
  EXPECT_LT(std::fabs(reference - 290032), 1);
  // A DSM that somebody reprojected does not share the poses' grid any more.
  project.WriteDsm("EPSG:32632", 700000, 5500000);
  EXPECT_FALSE(project.Import(error));
  EXPECT_THAT(error, HasSubstr("coords.txt"));
}

TEST(OdmImportTest, PhotosAreFoundBySpellingAndTheRestIsNoted) {
  OdmProject project;
  project.AddShot("odd", 10, 10);
  project.WritePhoto("odd.jpg", 300, 400);
  project.AddShot("gone", 20, 20);
  fs::remove(project.dir_.File("images/gone.jpg"));
  project.AddShot("case", 30, 30);
  fs::rename(project.dir_.File("images/case.jpg"), project.dir_.File("images/Case.JPG"));
  project.AddShot("cut", 30, 40);
  project.dir_.Write("images/cut.jpg", "no image");
  auto bare = project.shots_["p0.jpg"];
  bare["capture_time"] = 5;
  project.shots_.erase("p0.jpg");
  project.shots_["p0"] = bare;  // a shot named without the extension
  std::string error;
  const auto survey = project.Import(error);
  ASSERT_TRUE(survey) << error;
  std::vector<std::string> names;
  for (const auto& photo : survey->blocks.at(0).photos) names.push_back(photo.name);
  EXPECT_EQ(names.size(), 10U);
  EXPECT_EQ(names.back(), "p0.jpg");
  EXPECT_THAT(names, Contains("Case.JPG"));
  EXPECT_THAT(survey->notes, Contains(AllOf(HasSubstr("odd.jpg"), HasSubstr("400 x 300"))));
  EXPECT_THAT(survey->notes, Contains(AllOf(HasSubstr("gone.jpg"), HasSubstr("no such file"))));
  EXPECT_THAT(survey->notes, Contains(AllOf(HasSubstr("cut.jpg"), HasSubstr("no readable"))));
}

TEST(OdmImportTest, CamerasGetABlockEachAndUnusedOnesDoNotMatter) {
  OdmProject project;
  project.WriteReconstruction();
  auto file = nlohmann::json::parse(
      tqtortho::testing::ReadText(project.dir_.File("opensfm/reconstruction.json")));
  file[0]["cameras"]["all round"] = {{"projection_type", "spherical"}};
  file[0]["cameras"]["second"] = project.camera_;
  file[0]["shots"]["p4.jpg"]["camera"] = "second";
  project.dir_.Write("opensfm/reconstruction.json", file.dump());
  std::string error;
  const auto survey = ImportOdm(project.dir_.Path(), error);
  ASSERT_TRUE(survey) << error;
  ASSERT_EQ(survey->blocks.size(), 2U);
  ASSERT_EQ(survey->cameras.size(), 2U);
  EXPECT_EQ(survey->blocks[0].photos.size(), 8U);
  ASSERT_EQ(survey->blocks[1].photos.size(), 1U);
  EXPECT_EQ(survey->blocks[1].photos[0].cameraId, survey->cameras[1].id);
  EXPECT_NE(survey->cameras[0].id, survey->cameras[1].id);
  file[0]["shots"]["p4.jpg"]["camera"] = "all round";
  project.dir_.Write("opensfm/reconstruction.json", file.dump());
  EXPECT_FALSE(ImportOdm(project.dir_.Path(), error));
  EXPECT_THAT(error, HasSubstr("\"all round\": projection type spherical cannot be expressed"));
}

TEST(OdmImportTest, IncompleteProjectsSayWhatIsMissing) {
  std::string error;
  EXPECT_FALSE(ImportOdm("/nowhere", error));
  EXPECT_THAT(error, HasSubstr("/nowhere"));
  {
    const TempDir empty;
    EXPECT_FALSE(ImportOdm(empty.Path(), error));
    EXPECT_THAT(error, HasSubstr("reconstruction.json"));
  }
  const OdmProject project;
  project.WriteDsm("EPSG:4326", 12, 49);
  EXPECT_FALSE(project.Import(error));
  EXPECT_THAT(error, HasSubstr("not in metres"));
  project.WriteDsm("EPSG:32633", 500000, 5500000);
  project.dir_.Write("opensfm/reconstruction.json", "[{\"shots\": {\"a");
  EXPECT_FALSE(ImportOdm(project.dir_.Path(), error));
  EXPECT_THAT(error, AllOf(HasSubstr("reconstruction.json"), HasSubstr("damaged")));
  fs::remove_all(project.dir_.File("images"));
  EXPECT_FALSE(project.Import(error));
  EXPECT_THAT(error, HasSubstr("none of its 9 photos"));
  fs::remove(project.dir_.File("odm_dem/dsm.tif"));
  EXPECT_FALSE(project.Import(error));
  EXPECT_THAT(error, HasSubstr("--dsm"));
}

}  // namespace
}  // namespace tqtortho::host
