// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_placement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "importers/ground_control.h"
#include "importers/map_frame.h"
#include "importers/odm_import.h"
#include "importers/photo_agreement.h"
#include "importers/project_import.h"
#include "survey/geodesy.h"
#include "survey/number_text.h"
#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::Said;
using tqtortho::testing::WriteHeights;

constexpr int kWide = 320, kHigh = 240;
constexpr double kFocal = 0.8 * kWide;  // pixels

std::optional<Survey> Odm(const ImportRequest& request, std::string& error) {
  return ImportOdm(request, error);
}

double Hills(double x, double y) { return 2.5 * std::sin(x / 6) + 2 * std::cos(y / 5 + x / 11); }

/// Ground with something to see at every scale from half a metre to ten.
double Paint(double x, double y) {
  double grey = 128;
  for (int k = 0; k < 12; ++k) {
    const double wave = 0.3 + 0.13 * k, turn = 2.4 * k;
    grey += 14 * std::sin((x * std::cos(turn) + y * std::sin(turn)) / wave + 1.7 * k);
  }
  return grey;
}

/// A project at the western border of UTM zone 33, where the grid is turned by 2.2 degrees, whose
/// photos were truly taken from the places that its poses have in one of the two frames. Nothing
/// but what a test adds tells which.
struct FrameProject : ImportFolder {
  explicit FrameProject(OdmFrame truth, bool hilly = true) : hilly(hilly) {
    const MapFrame map(geo::CrsToWkt("EPSG:32633"));
    std::string error;
    toGrid = *map.FromTopocentric(kOrigin, error);
    const Vector3 reference = *toGrid({0, 0, 0});
    offset = {std::round(reference[0]), std::round(reference[1])};
    nlohmann::json file;
    file["cameras"]["cam"] = {{"projection_type", "perspective"},
                              {"width", kWide},
                              {"height", kHigh},
                              {"focal", 0.8},
                              {"k1", 0.0},
                              {"k2", 0.0}};
    file["reference_lla"] = {{"latitude", kOrigin.latitude},
                             {"longitude", kOrigin.longitude},
                             {"altitude", kOrigin.height}};
    // West of the reference, so that a shift by the turn is there beside the turn.
    for (int i = 0; i < 6; ++i) {
      OpenSfmShot shot;
      shot.name = "p" + std::to_string(i) + ".jpg";
      const Vector3 turn = {3.0, 0.2, -0.1 + 0.02 * i};
      shot.rotation = RotationFromAxisAngle(turn);
      shot.centre = {i % 3 * 24.0 - 90, i / 3 * 24.0, 60};
      Vector3 t = Product(shot.rotation, shot.centre);
      for (double& v : t) v = -v;
      file["shots"][shot.name] = {{"rotation", turn}, {"translation", t}, {"camera", "cam"}};
      pose[shot.name] = truth == OdmFrame::kGrid ? PoseFromGrid(shot, offset[0], offset[1])
                                                 : *PoseFromTopocentric(shot, toGrid);
    }
    dir.Write("opensfm/reconstruction.json", nlohmann::json::array({file}).dump());
    dir.Write("odm_georeferencing/coords.txt",
              "WGS84 UTM 33N\n" + Exact(offset[0]) + " " + Exact(offset[1]) + "\n");
    WriteSurface();
    for (const auto& [name, place] : pose) WriteView(name, place);
  }
  [[nodiscard]] double Ground(double x, double y) const {
    return hilly ? Hills(x - offset[0], y - offset[1]) : 0.0;
  }
  void WriteSurface() const {
    const int size = 280;
    std::vector<float> heights;
    const tqtortho::testing::RasterPlace place{offset[0] - 136, offset[1] + 82, 0.5,
                                               geo::CrsToWkt("EPSG:32633")};
    for (int i = 0; i < size * size; ++i) {
      heights.push_back(static_cast<float>(
          Ground(place.x + i % size * place.cell, place.y - i / size * place.cell)));
    }
    std::filesystem::create_directories(File("odm_dem"));
    ASSERT_TRUE(WriteHeights(File("odm_dem/dsm.tif"), heights.data(), size, size, place));
  }
  /// What a camera sees, ray by ray.
  void WriteView(const std::string& name, const GroundPose& place) const {
    tqorkit::PhotoInfo photo;
    photo.width = kWide;
    photo.height = kHigh;
    photo.bands = 1;
    photo.dataType = tqimage::kByte;
    for (int i = 0; i < kWide * kHigh; ++i) {
      const double right = (i % kWide + 0.5 - kWide / 2.0) / kFocal;
      const double down = (i / kWide + 0.5 - kHigh / 2.0) / kFocal;
      const Vector3 ray = Product(place.cameraToGround, Vector3{right, -down, -1});
      double height = 0, x = 0, y = 0;
      for (int step = 0; step < 16; ++step) {
        const double far = (height - place.centre[2]) / ray[2];
        x = place.centre[0] + far * ray[0];
        y = place.centre[1] + far * ray[1];
        height = 0.5 * (height + Ground(x, y));
      }
      photo.data.push_back(static_cast<std::uint8_t>(
          std::clamp<double>(Paint(x - offset[0], y - offset[1]), 0, 255)));
    }
    std::filesystem::create_directories(File("images"));
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(File("images/" + name), photo, nullptr, true));
  }
  [[nodiscard]] ImportRequest Wanted(FrameChoice frame = FrameChoice::kAuto) const {
    ImportRequest request;
    request.path = dir.Path();
    request.frame = frame;
    return request;
  }
  /// How far the import's cameras are from the true ones.
  [[nodiscard]] double Off(const ImportRequest& request) const {
    double largest = 0;
    const Survey survey = tqtortho::testing::Imported(Odm, request);
    for (const SurveyPhoto& p : survey.blocks.at(0).photos) {
      const Vector3& at = pose.at(p.name).centre;
      largest = std::max(largest, std::hypot(p.x - at[0], p.y - at[1], p.z - at[2]));
    }
    return largest;
  }
  /// Marks of control: ground points as the true cameras see them.
  void WriteControl() const {
    std::string text = "WGS84 UTM 33N\n# marked by hand\n";
    for (const auto& [name, place] : pose) {
      for (const double e : {-15.0, 10.0}) {
        const double x = place.centre[0] + e, y = place.centre[1] + 5, z = Ground(x, y);
        const Vector3 seen =
            Product(Transposed(place.cameraToGround),
                    Vector3{x - place.centre[0], y - place.centre[1], z - place.centre[2]});
        text += Fixed(x, 3) + " " + Fixed(y, 3) + " " + Fixed(z, 3) + " " +
                Fixed(-seen[0] / seen[2] * kFocal + kWide / 2.0 - 0.5, 2) + " " +
                Fixed(seen[1] / seen[2] * kFocal + kHigh / 2.0 - 0.5, 2) + " " + name + " gcp\n";
      }
    }
    dir.Write("gcp_list.txt", text);
  }
  /// The photos' own positions on the grid, a few centimetres off.
  void WritePositions() const {
    std::mt19937 random(5);
    std::normal_distribution<double> noise(0, 0.03);
    std::string text = "WGS84 UTM 33N\n" + Exact(offset[0]) + " " + Exact(offset[1]) + "\n";
    for (const auto& [name, place] : pose) {
      text += Fixed(place.centre[0] - offset[0] + noise(random), 3) + " " +
              Fixed(place.centre[1] - offset[1] + noise(random), 3) + " 60\n";
    }
    dir.Write("odm_georeferencing/coords.txt", text);
  }

  static constexpr Geodetic kOrigin{12.1, 49.5, 0};
  bool hilly;
  TopocentricToGrid toGrid;
  std::array<double, 2> offset{};
  std::map<std::string, GroundPose> pose;
};

const char* Words(OdmFrame truth) {
  return truth == OdmFrame::kGrid ? "on the map grid" : "in a local east-north-up frame";
}

// Each kind of evidence alone, under both truths. Level ground for those that do not read photos:
// there photos cannot tell.
TEST(OdmPlacementTest, EachKindOfEvidenceTellsTheFrame) {
  for (const OdmFrame truth : {OdmFrame::kGrid, OdmFrame::kTopocentric}) {
    const FrameProject hills(truth);
    EXPECT_THAT(Said(Odm, hills.Wanted()),
                AllOf(HasSubstr(Words(truth)), HasSubstr("photos see the DSM's relief")));
    EXPECT_LT(hills.Off(hills.Wanted()), 1e-4);

    const FrameProject level(truth, false);
    EXPECT_THAT(Said(Odm, level.Wanted()),
                AllOf(HasSubstr("on the map grid"), HasSubstr("--frame local")));
    level.WritePositions();
    EXPECT_THAT(Said(Odm, level.Wanted()),
                AllOf(HasSubstr(Words(truth)), HasSubstr("coords.txt, which")));
    EXPECT_LT(level.Off(level.Wanted()), 1e-4);
    // A photo more than positions: nobody knows whose they are.
    level.WritePhoto("q.jpg", 10, 10);
    EXPECT_THAT(Said(Odm, level.Wanted()), HasSubstr("--frame local"));
    level.WriteControl();
    EXPECT_THAT(Said(Odm, level.Wanted()), AllOf(HasSubstr(Words(truth)), HasSubstr("12 marks")));
    EXPECT_LT(level.Off(level.Wanted()), 1e-4);
  }
}

TEST(OdmPlacementTest, WhatTheUserSaysHoldsAgainstAllEvidence) {
  const FrameProject project(OdmFrame::kTopocentric);
  EXPECT_THAT(Said(Odm, project.Wanted(FrameChoice::kGrid)),
              AllOf(HasSubstr("on the map grid"), HasSubstr("as --frame says")));
  EXPECT_GT(project.Off(project.Wanted(FrameChoice::kGrid)), 1);
  project.dir.Write("opensfm/reconstruction.topocentric.json", "[]");
  EXPECT_THAT(Said(Odm, project.Wanted()), HasSubstr("on the map grid"));
  EXPECT_LT(project.Off(project.Wanted(FrameChoice::kLocal)), 1e-4);
  // A local frame has no use for an offset, so a damaged one does not matter.
  project.dir.Write("odm_georeferencing/coords.txt", "WGS84 UTM 33N\n1 2\n");
  EXPECT_LT(project.Off(project.Wanted(FrameChoice::kLocal)), 1e-4);
  ImportRequest other = project.Wanted(FrameChoice::kLocal);
  other.path = project.File("opensfm/reconstruction.json");
  other.dsmPath = project.File("odm_dem/dsm.tif");
  std::string error;
  EXPECT_FALSE(ImportProjectAs(ProjectKind::kOpenSfm, other, error));
  EXPECT_THAT(error, HasSubstr("no use for --frame"));
}

// A surface of the user's own on the neighbouring zone, where the site lies east of the central
// meridian: poses go there by way of the project's map, and its relief tells as well.
TEST(OdmPlacementTest, ASurfaceOnAnotherMapTellsToo) {
  const FrameProject project(OdmFrame::kTopocentric);
  const auto there = geo::CrsTransform::Create("EPSG:32633", "EPSG:32632");
  const auto back = geo::CrsTransform::Create("EPSG:32632", "EPSG:32633");
  const auto middle = there->Apply({project.offset[0] - 66, project.offset[1] + 12, 0});
  const int size = 230;
  std::vector<float> heights;
  const tqtortho::testing::RasterPlace place{middle->x - 69, middle->y + 69, 0.6,
                                             geo::CrsToWkt("EPSG:32632")};
  for (int i = 0; i < size * size; ++i) {
    const auto at =
        back->Apply({place.x + i % size * place.cell, place.y - i / size * place.cell, 0});
    heights.push_back(static_cast<float>(project.Ground(at->x, at->y)));
  }
  ASSERT_TRUE(WriteHeights(project.File("own.tif"), heights.data(), size, size, place));
  ImportRequest request = project.Wanted();
  request.dsmPath = project.File("own.tif");
  EXPECT_THAT(Said(Odm, request), AllOf(HasSubstr("in a local east-north-up frame"),
                                        HasSubstr("photos see the DSM's relief")));
  const Survey survey = tqtortho::testing::Imported(Odm, request);
  for (const SurveyPhoto& p : survey.blocks.at(0).photos) {
    const Vector3& at = project.pose.at(p.name).centre;
    const auto expected = there->Apply({at[0], at[1], 0});
    EXPECT_LT(std::hypot(p.x - expected->x, p.y - expected->y, p.z - at[2]), 1e-4);
  }
}

// The share is what the statistics must get right: neither truth may be preferred, nor outliers
// taken for evidence.
TEST(FitShareTest, FindsTheShareThroughOffsetsAndOutliers) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  for (const double truth : {0.0, 0.5, 1.0}) {
    std::vector<RelationSample> samples;
    for (int i = 0; i < 200; ++i) {
      const double expected = 0.2 * normal(random);
      const bool outlier = i % 5 == 0;
      samples.push_back({expected,
                         truth * expected + (i % 4) * 0.3 +
                             (outlier ? 2.0 * normal(random) : 0.05 * normal(random)),
                         i % 4});
    }
    const ShareFit fit = FitShare(samples);
    EXPECT_NEAR(fit.share, truth, 4 * fit.error);
    EXPECT_LT(fit.error, 0.05);
    EXPECT_EQ(fit.Decides(), truth == 0.5 ? -1 : static_cast<int>(truth));
    samples.resize(20);
    EXPECT_EQ(FitShare(samples).Decides(), -1);
  }
  EXPECT_EQ(FitShare({}).Decides(), -1);
  EXPECT_EQ(FitShare(std::vector<RelationSample>(50)).Decides(), -1);  // level ground
}

TEST(ControlListTest, ReadsListsAndSystemsAsTheyAreWritten) {
  const auto list = ParseControlList(
      "\xEF\xBB\xBFWGS84 UTM 15S\r\n\r\n# x y z\r\n1.5 2 3 10 20 a.jpg g1 more\r\n1 2 nan 4 5 "
      "b.jpg\r\n"
      "1 2 3 4 5\r\n");
  ASSERT_TRUE(list);
  EXPECT_EQ(list->crs, "EPSG:32715");
  ASSERT_EQ(list->marks.size(), 1U);
  EXPECT_EQ(list->marks[0].ground, (Vector3{1.5, 2, 3}));
  EXPECT_EQ(list->marks[0].photo, "a.jpg");
  EXPECT_EQ(ParseControlList("+proj=utm +zone=10 +datum=WGS84\n1 2 3 4 5 a\n")->crs,
            "+proj=utm +zone=10 +datum=WGS84");
  for (const char* text : {"", "EPSG:4326", "EPSG:4326\nx y z 1 2 a\n", "# only\n"}) {
    EXPECT_FALSE(ParseControlList(text)) << text;
  }
}

}  // namespace
}  // namespace tqtortho::host
