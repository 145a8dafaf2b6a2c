// SPDX-License-Identifier: Apache-2.0
#include "importers/opensfm_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace tqtortho::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Shot(const std::string& name, const std::string& more = "") {
  return "\"" + name +
         R"(": {"rotation": [3.141592653589793, 0, 0], "translation": [1, 2, 3], "camera": "c")" +
         more + "}";
}

std::string Cameras(const std::string& body) { return R"("cameras": {"c": {)" + body + "}}"; }

TEST(OpenSfmFileTest, ReadsPosesInFlightOrder) {
  std::string error;
  const auto file = ParseOpenSfm(
      R"([{"shots": {)" + Shot("b", R"(, "capture_time": 20, "gps_position": [7, 8, 9])") + "," +
          Shot("z", R"(, "capture_time": 10)") + "," + Shot("a", R"(, "capture_time": 20)") + "}}]",
      error);
  ASSERT_TRUE(file) << error;
  ASSERT_EQ(file->shots.size(), 3U);
  EXPECT_EQ(file->shots[0].name + file->shots[1].name + file->shots[2].name, "zab");
  // Turned half round about x: the camera sees (x, -y, -z) + (1, 2, 3), so it stands at (-1, 2, 3).
  const Vector3& centre = file->shots[0].centre;
  EXPECT_NEAR(std::hypot(centre[0] + 1, centre[1] - 2, centre[2] - 3), 0, 1e-12);
  EXPECT_FALSE(file->shots[0].gps);
  EXPECT_EQ(file->shots[2].gps, (Vector3{7, 8, 9}));
}

TEST(OpenSfmFileTest, CamerasThatCannotBeUsedSayWhy) {
  struct Case {
    const char* body;
    const char* words;
  };
  const Case cases[] = {
      {R"("projection_type": "fisheye", "width": 40, "height": 30, "focal": 0.9)",
       "\"c\": projection type fisheye cannot be expressed"},
      {R"("projection_type": "spherical")", "projection type spherical cannot be expressed"},
      {R"("projection_type": "dual")", "projection type dual cannot be expressed"},
      {R"("projection_type": 7)", "projection type (not named) cannot be expressed"},
      {R"("width": 40)", "projection type (not named) cannot be expressed"},
      {R"("projection_type": "perspective", "width": 40, "height": 30)", "no number \"focal\""},
      {R"("projection_type": "brown", "width": 40, "height": 30, "focal_x": 1)",
       "no number \"focal_y\""},
      {R"("projection_type": "radial", "height": 30, "focal_x": 1, "focal_y": 1)",
       "no number \"width\""},
  };
  for (const Case& c : cases) {
    std::string error;
    const auto file =
        ParseOpenSfm("[{" + Cameras(c.body) + R"(, "shots": {)" + Shot("a") + "}}]", error);
    ASSERT_TRUE(file) << error;
    EXPECT_THAT(file->cameras.at("c").fault, HasSubstr(c.words));
  }
}

// "perspective" and "radial" must not pick up coefficients that their projection does not have.
TEST(OpenSfmFileTest, ProjectionTypesTakeOnlyTheirOwnNumbers) {
  std::string error;
  const std::string all = R"(, "width": 40, "height": 30, "focal": 0.7, "focal_x": 0.9,
      "focal_y": 0.8, "c_x": 0.1, "k1": 1, "k2": 2, "k3": 3, "p1": 4)";
  const auto lens = [&](const std::string& type) {
    const auto file = ParseOpenSfm("[{" + Cameras(R"("projection_type": ")" + type + "\"" + all) +
                                       R"(, "shots": {)" + Shot("a") + "}}]",
                                   error);
    const SourceLens& l = file->cameras.at("c").lens;
    return std::array<double, 7>{l.focalX, l.focalY, l.centreX, l.k1, l.k2, l.k3, l.p1};
  };
  EXPECT_THAT(lens("perspective"), ElementsAre(0.7, 0.7, 0, 1, 2, 0, 0));
  EXPECT_THAT(lens("simple_radial"), ElementsAre(0.9, 0.8, 0.1, 1, 0, 0, 0));
  EXPECT_THAT(lens("radial"), ElementsAre(0.9, 0.8, 0.1, 1, 2, 0, 0));
  EXPECT_THAT(lens("brown"), ElementsAre(0.9, 0.8, 0.1, 1, 2, 3, 4));
}

TEST(OpenSfmFileTest, TheLargestReconstructionIsTakenAndTheRestNoted) {
  std::string error;
  const auto file = ParseOpenSfm(
      R"([{"shots": {)" + Shot("a") + R"(}}, {"shots": {)" + Shot("b") + "," + Shot("c") + "}}, 5]",
      error);
  ASSERT_TRUE(file) << error;
  EXPECT_EQ(file->shots.size(), 2U);
  ASSERT_EQ(file->notes.size(), 1U);
  EXPECT_THAT(file->notes[0], HasSubstr("1 photo left out"));
}

TEST(OpenSfmFileTest, BrokenPosesAreLeftOutByName) {
  std::string error;
  const auto file =
      ParseOpenSfm(R"([{"shots": {)" + Shot("good") +
                       R"(, "short": {"rotation": [1, 2], "translation": [1, 2, 3], "camera": "c"},
             "text": {"rotation": [1, 2, "x"], "translation": [1, 2, 3], "camera": "c"},
             "huge": {"rotation": [1e308, 1e308, 0], "translation": [1e308, 1e308, 3], "camera": "c"},
             "bare": {"rotation": [1, 2, 3], "translation": [1, 2, 3]}, "none": 4}}])",
                   error);
  ASSERT_TRUE(file) << error;
  EXPECT_EQ(file->shots.size(), 1U);
  EXPECT_EQ(file->notes.size(), 5U);
}

TEST(OpenSfmFileTest, WhatIsNoReconstructionIsRefused) {
  for (const char* text : {"", "[", "{}", "[]", "[{}]", "nonsense", "[{\"shots\": {}}]", "\xff\xfe",
                           "[{\"shots\": [1]}]", "[{\"shots\": {\"a\": {}}}]"}) {
    std::string error;
    EXPECT_FALSE(ParseOpenSfm(text, error)) << text;
    EXPECT_THAT(error, Not(IsEmpty())) << text;
  }
}

}  // namespace
}  // namespace tqtortho::host
