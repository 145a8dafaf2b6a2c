// SPDX-License-Identifier: Apache-2.0
#include "importers/pose_csv_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numbers>

#include "importers/odm_import.h"
#include "importers/pose_table.h"
#include "survey/geodesy.h"
#include "testing/import_scene.h"
#include "testing/town_data.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using tqtortho::testing::CameraOfPhoto;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::RasterPoint;
using tqtortho::testing::Said;
using tqtortho::testing::SampledAt;

constexpr double kRadian = std::numbers::pi / 180;
constexpr int kWidth = 1200, kHeight = 900;

// The same camera in each of the ways that a calibration may be written.
const char* const kRelative =
    "type: brown\nim_size: [1200, 900]\nfocal_len: 0.8\ncx: 0.01\ncy: -0.02\nk1: -0.1\n"
    "k2: 0.03\nk3: -0.002\np1: 0.0006\np2: -0.0004\n";
const char* const kPixels =
    "my camera:\n    type: opencv\n    im_size: [1200, 900]\n    fx: 960\n    fy: 960.0\n"
    "    cx: 611.5\n    cy: 425.5\n    k1: -0.1\n    k2: 0.03\n    k3: -0.002\n"
    "    p1: 0.0006\n    p2: -0.0004\n";
const char* const kSensor =
    "{\n\t\"my camera\": {\"type\": \"brown\", \"im_size\": [1200, 900], \"focal_len\": [9.6, "
    "9.6],\n\t\"sensor_size\": [12, 9.0], \"cx\": 0.01, \"cy\": -2e-2, \"k1\": -0.1, \"k2\": "
    "0.03,\n\t\"k3\": -0.002, \"p1\": 0.0006, \"p2\": -0.0004}}";
const char* const kProject =
    "{\"my camera\": {\"projection_type\": \"brown\", \"width\": 1200, \"height\": 900, "
    "\"focal_x\": 0.8, \"focal_y\": 0.8, \"c_x\": 0.01, \"c_y\": -0.02, \"k1\": -0.1, \"k2\": "
    "0.03, \"k3\": -0.002, \"p1\": 0.0006, \"p2\": -0.0004}}";

// That camera, for a point by its axes right, down, forward.
tqtortho::testing::RasterPoint Documented(double right, double down, double forward) {
  const double x = right / forward, y = down / forward, r2 = x * x + y * y;
  const double radial = 1 - 0.1 * r2 + 0.03 * r2 * r2 - 0.002 * r2 * r2 * r2;
  return {611.5 + 960 * (x * radial + 2 * 0.0006 * x * y - 0.0004 * (r2 + 2 * x * x)),
          425.5 + 960 * (y * radial - 2 * 0.0004 * x * y + 0.0006 * (r2 + 2 * y * y))};
}

struct TableFolder : ImportFolder {
  TableFolder() {
    WriteDsm("EPSG:32633", 290000, 5487000);
    WritePhoto("a b.tif", kWidth, kHeight);
    dir.Write("camera.yaml", kRelative);
  }
};

constexpr const char* kPlainRow = "a b.tif,290010,5487020,400,10,-5,130\n";
constexpr const char* kPlain =
    "filename,x,y,z,omega,phi,kappa\na b.tif,290010,5487020,400,10,-5,130\n";

// Omega, phi, kappa with each way of writing the calibration.
TEST(PoseCsvImportTest, GroundPointsFallWhereOmegaPhiKappaPutThem) {
  const double o = 10 * kRadian, f = -5 * kRadian, k = 130 * kRadian;
  const Matrix3 rx = {1, 0, 0, 0, std::cos(o), -std::sin(o), 0, std::sin(o), std::cos(o)};
  const Matrix3 ry = {std::cos(f), 0, std::sin(f), 0, 1, 0, -std::sin(f), 0, std::cos(f)};
  const Matrix3 rz = {std::cos(k), -std::sin(k), 0, std::sin(k), std::cos(k), 0, 0, 0, 1};
  const Matrix3 toCamera = Transposed(Product(rx, Product(ry, rz)));
  const TableFolder folder;
  folder.dir.Write("poses.csv", kPlain);
  EXPECT_TRUE(LooksLikePoseCsv(folder.File("poses.csv")));
  EXPECT_TRUE(LooksLikePoseCsv(folder.dir.Path()));
  EXPECT_FALSE(LooksLikePoseCsv(folder.File("camera.yaml")));
  const auto pair = [&](const Vector3& d) -> PointPair {
    const Vector3 c = Product(toCamera, Vector3{d[0], d[1], d[2] - 100});
    return {Documented(c[0], -c[1], -c[2]), 290010 + d[0], 5487020 + d[1], 300 + d[2]};
  };
  for (const char* calibration : {kRelative, kPixels, kSensor, kProject}) {
    auto request = folder.Request("poses.csv");
    request.cameraFile = folder.dir.Write("calibration", calibration);
    const Survey survey = Imported(ImportPoseCsv, request);
    EXPECT_LT(LargestDistance(survey, "a b.tif", kWidth, kHeight, 120, pair), 0.01) << calibration;
  }
}

// Roll, pitch, yaw at longitude and latitude, as the body of an aircraft turns: told here by the
// directions of its axes, one turn after the other, in the local frame of true north.
TEST(PoseCsvImportTest, GroundPointsFallWhereRollPitchYawPutThem) {
  const TableFolder folder;
  folder.dir.Write("poses.csv",
                   "photo;lat;lon;alt;yaw_deg;pitch_deg;roll_deg\n"
                   "A B;49,5;12,55;400;40;25;-8\n");
  const Survey survey = Imported(ImportPoseCsv, folder.Request("poses.csv"));
  const double yaw = 40 * kRadian, pitch = 25 * kRadian, roll = -8 * kRadian;
  const auto mixed = [](const Vector3& a, double ca, const Vector3& b, double cb) {
    return Vector3{ca * a[0] + cb * b[0], ca * a[1] + cb * b[1], ca * a[2] + cb * b[2]};
  };
  // Yaw turns the nose from north to east, pitch lifts it, roll dips the right wing.
  const Vector3 level = {std::sin(yaw), std::cos(yaw), 0},
                wing = {std::cos(yaw), -std::sin(yaw), 0};
  const Vector3 nose = mixed(level, std::cos(pitch), {0, 0, 1}, std::sin(pitch));
  const Vector3 belly = mixed(level, std::sin(pitch), {0, 0, -1}, std::cos(pitch));
  const Vector3 right = mixed(wing, std::cos(roll), belly, std::sin(roll));
  const Vector3 sight = mixed(belly, std::cos(roll), wing, -std::sin(roll));
  const auto toMap = geo::CrsTransform::Create("EPSG:4326", "EPSG:32633");
  const Topocentric local({12.55, 49.5, 400});
  const auto pair = [&](const Vector3& d) -> PointPair {
    const Vector3 p = {d[0], d[1], d[2] - 100};
    const Geodetic place = local.Place(p);
    const auto map = toMap->Apply({place.longitude, place.latitude, 0});
    const Vector3 c = Product(Matrix3{right[0], right[1], right[2], -nose[0], -nose[1], -nose[2],
                                      sight[0], sight[1], sight[2]},
                              p);
    return {Documented(c[0], c[1], c[2]), map->x, map->y, place.height};
  };
  EXPECT_LT(LargestDistance(survey, "a b.tif", kWidth, kHeight, 80, pair), 0.1);
  // A gimbal's pitch counts from the horizon; positions on the map make no difference.
  folder.dir.Write("poses.csv",
                   "photo,x,y,z,gimbal_yaw,gimbal_pitch,gimbal_roll\n"
                   "a b.tif,322627.8,5486100,400,40,-65,0\n");
  const PhotoCamera gimbal =
      CameraOfPhoto(Imported(ImportPoseCsv, folder.Request("poses.csv")), "a b.tif");
  // Column 2 is backward; level convergence is under two degrees.
  EXPECT_NEAR(-gimbal.rotation[8], -std::cos(pitch), 1e-6);
  EXPECT_NEAR(std::atan2(-gimbal.rotation[2], -gimbal.rotation[5]), yaw, 2.5 * kRadian);
}

// One table in many spellings.
TEST(PoseTableTest, SpellingsOfOneTableMeanTheSame) {
  std::string error;
  const auto plain = ParsePoseTable(kPlain, error);
  ASSERT_TRUE(plain) << error;
  EXPECT_THAT(plain->notes, ElementsAre(HasSubstr("degrees: one of them is 130.0")));
  const char* const spellings[] = {
      "\xEF\xBB\xBFKappa [deg],Phi [deg],Omega [deg],Label,Z,Y,X,unknown\r\n"
      "130,-5,10,a b.tif,400,5487020,290010,\r\n",
      "#Image;X/East;Y/North;Z/Altitude;omega;phi;kappa\n\n# note\n\"a b.tif\";290010,0;5487020;"
      "4e2;10,00;-5;130",
      "'filename' 'x' 'y'  'z' 'omega' 'phi' 'kappa' 'camera'\n"
      "'a b.tif' 290010 5487020 400 10 -5 130 \"no \"\"1\"\"\"\n",
      "image name\teasting[m]\tnorthing[m]\theight (m)\tomega_rad\tphi_rad\tkappa_rad\r"
      "a b.tif\t290010\t5487020\t400\t0.17453292519943295\t-0.08726646259971647\t"
      "2.2689280275926285\r",
  };
  for (const char* text : spellings) {
    const auto table = ParsePoseTable(text, error);
    ASSERT_TRUE(table) << error << "\n" << text;
    ASSERT_EQ(table->rows.size(), 1U);
    EXPECT_EQ(table->rows[0].name, "a b.tif");
    EXPECT_EQ(table->rows[0].position, plain->rows[0].position);
    for (std::size_t i = 0; i < 9; ++i) {
      EXPECT_NEAR(table->rows[0].cameraToFrame[i], plain->rows[0].cameraToFrame[i], 1e-12);
    }
  }
  EXPECT_EQ(ParsePoseTable(spellings[2], error)->rows[0].camera, "no \"1\"");
  const auto small = ParsePoseTable("name,x,y,z,omega,phi,kappa\na,1,2,3,0.1,0.2,3\n", error);
  EXPECT_THAT(small->notes, ElementsAre(HasSubstr("though all are below 6.3")));
}

TEST(PoseCsvImportTest, EachFaultIsNamedWithFileAndLine) {
  struct Case {
    std::string table;
    std::string calibration;
    const char* words;
  };
  const std::string head = "filename,x,y,z,omega,phi,kappa\n";
  const std::string twoCameras = "a: {im_size: [4, 4], fx: 5}\nb: {im_size: [4, 4], fx: 5}\n";
  const Case cases[] = {
      {"", kRelative, "poses.csv: line 1: the file is empty"},
      {"x,y,z,omega,phi,kappa\n", kRelative, "line 1: the header names no column for the photo"},
      {"file,x,z,omega,phi,kappa\n", kRelative, "no column for the position (x, y, z or"},
      {"file,x,y,z,omega,phi\n", kRelative, "no column for the attitude (omega, phi, kappa or"},
      {"file,x,y,z,omega[gon],phi,kappa\n", kRelative, "line 1: the unit of column \"omega[gon]\""},
      {"file,x[ft],y,z,omega,phi,kappa\n", kRelative,
       "unit of column \"x[ft]\" is not known; use m"},
      {"file,x,y,z,omega_rad,phi_deg,kappa\n", kRelative, "\"phi_deg\" has another unit"},
      {"file,x,x,y,z,omega,phi,kappa\n", kRelative, "column \"x\" is a second one for x"},
      {head + "a,1,2,3,4,5\n", kRelative, "line 2: has 6 columns, the header 7"},
      {head + "\na,1,2,3,4,5,nan\n", kRelative, "line 3: kappa \"nan\" is no finite number"},
      {head + "a,1,2,3,4,5,1e9\n", kRelative, "line 2: kappa \"1e9\" is no angle"},
      {head + "a,1,2 m,3,4,5,6\n", kRelative, "line 2: y \"2 m\" is no finite number"},
      {head + "'a,1,2,3,4,5,6\n", kRelative, "line 2: a quote is not closed"},
      {head + ",1,2,3,4,5,6\n", kRelative, "line 2: names no photo"},
      {head + kPlainRow + kPlainRow, kRelative, "line 3: names a b.tif again, after line 2"},
      {head, kRelative, "line 1: no photo follows the header"},
      {"file,lon,lat,alt,roll,pitch,yaw\na,49.5,120.1,3,4,5,6\n", kRelative,
       "line 2: longitude and latitude are not degrees on the earth (exchanged?)"},
      {head + "gone.tif,1,2,3,4,5,6\n", kRelative, "none of its 1 photos can be used"},
      {kPlain, "", "calibration: is empty"},
      {kPlain, "a: [1, 2\n", "calibration: line 2: is neither YAML nor JSON"},
      {kPlain, "a: &x 1\nb: *x\n", "line 1: anchors and aliases are not read"},
      {kPlain, std::string(1000, '['), "line 1: is neither YAML nor JSON (nested too deeply)"},
      {kPlain, "a: 1\n", "describes no camera"},
      {kPlain, "type: fisheye\nim_size: [4, 4]\nfx: 5\n", "type fisheye cannot be expressed"},
      {kPlain, "im_size: [4]\nfx: 5\n", "im_size is not the width and height"},
      {kPlain, "im_size: [4, 4]\nfx: .nan\n", "calibration: camera \"camera\": fx is no finite"},
      {kPlain, "im_size: [4, 4]\n", "has no focal length (focal_len, or fx in pixels)"},
      {kPlain, "im_size: [4, 4]\nfx: 5\nk4: 0.1\n", "k4 is not zero and cannot be expressed"},
      {kPlain, twoCameras, "poses.csv: line 2: names no camera, and "},
      {"camera,filename,x,y,z,omega,phi,kappa\nc,a,1,2,3,4,5,6\n", twoCameras,
       "line 2: camera \"c\", and "},
  };
  const TableFolder folder;
  auto request = folder.Request("poses.csv");
  for (const Case& c : cases) {
    folder.dir.Write("poses.csv", c.table);
    request.cameraFile = folder.dir.Write("calibration", c.calibration);
    EXPECT_THAT(Said(ImportPoseCsv, request),
                AllOf(HasSubstr(c.words), HasSubstr("poses.csv: "), Not(HasSubstr("taken"))));
  }
  folder.dir.Write("poses.csv", kPlain);
  folder.dir.Write("poses2.csv", kPlain);
  EXPECT_FALSE(LooksLikePoseCsv(folder.dir.Path()));
  EXPECT_THAT(Said(ImportPoseCsv, folder.Request("")),
              HasSubstr("holds 2 tables of poses (poses.csv, poses2.csv); give one file"));
  request = folder.Request("poses.csv");
  folder.Remove("camera.yaml");
  EXPECT_THAT(Said(ImportPoseCsv, request),
              HasSubstr("no calibration: give it with --camera-file"));
  request.cameraFile = folder.dir.Write("camera.yaml", kRelative);
  request.crs = "EPSG:4326";
  EXPECT_THAT(Said(ImportPoseCsv, request), HasSubstr("(WGS 84) is not in metres"));
  request.crs.clear();
  folder.WriteDsm("", 0, 0);
  EXPECT_THAT(Said(ImportPoseCsv, request), HasSubstr("dsm.tif: names no coordinate system"));
}

// A real survey: its published table against its project, photo by photo over the whole ground.
TEST(PoseCsvImportTest, FieldSurveyIsThatOfItsProject) {
  const std::string data = tqtortho::testing::SharedData();
  if (data.empty()) GTEST_SKIP() << "no measurement data (TQTORTHO_SHARED_DATA)";
  const std::string field = data + "/odm-field";
  ImportRequest request;
  request.path = field;
  const auto importOdm = [](const ImportRequest& r, std::string& e) { return ImportOdm(r, e); };
  const Survey project = Imported(importOdm, request);
  request.dsmPath = field + "/odm_dem/dsm.tif";
  // The flown attitudes are rounded to whole degrees of the gimbal: near is all they can be.
  for (const auto& [table, limit] :
       {std::pair{"odm_xyz_opk.csv", 0.1}, {"odm_lla_rpy.csv", 40.0}}) {
    request.path = field + "/params/" + table;
    const Survey survey = Imported(ImportPoseCsv, request);
    ASSERT_EQ(survey.blocks.at(0).photos.size(), 4U);
    for (const SurveyPhoto& photo : survey.blocks[0].photos) {
      const PhotoCamera ours = CameraOfPhoto(survey, photo.name);
      const auto pair = [&](const Vector3& d) -> PointPair {
        const double x = 292750 + d[0], y = 2731065 + d[1], z = 57 + 2 * d[2];
        return {SampledAt(ours, x, y, z), x, y, z};
      };
      EXPECT_LT(LargestDistance(project, photo.name, 1368, 912, 200, pair), limit) << table;
    }
  }
}

}  // namespace
}  // namespace tqtortho::host
