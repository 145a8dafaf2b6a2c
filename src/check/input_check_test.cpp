// SPDX-License-Identifier: Apache-2.0
#include "check/input_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "geo/Crs.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using tqimage::TqImage;

class InputCheckTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteDsm("dsm.tif", 0.5, -0.5, "EPSG:32633");
    WritePhoto("a.tif", 60, 40, 3, 1);
    survey.cameras = {Camera()};
    survey.blocks = {{dir.Path(), {Photo("a.tif")}}};
  }
  std::string WriteDsm(const std::string& name, double cellX, double cellY, const std::string& crs,
                       float height = 100) {
    const double transform[6] = {500000, cellX, 0, 5400000, 0, cellY};
    tqimage::GeoCoefficients at(transform, 80, 60);
    at.SetProjection(crs.empty() ? "" : geo::CrsToWkt(crs));
    const std::vector<float> cells(80 * 60, height);
    TqImage image;
    EXPECT_TRUE(image.Create(dir.File(name), 80, 60, 1, tqimage::kFloat32, 17, true));
    EXPECT_TRUE(image.SetGeoCoefficients(at));
    EXPECT_TRUE(image.SetNoDataValue(0, -9999));
    EXPECT_TRUE(image.WriteImage(0, {0, 0, 80, 60}, tqimage::kFloat32, cells.data()));
    EXPECT_TRUE(image.Close());
    return dir.File(name);
  }
  void WritePhoto(const std::string& name, int width, int height, int bands, int type) {
    tqorkit::PhotoInfo photo;
    photo.width = width;
    photo.height = height;
    photo.bands = bands;
    photo.dataType = type;
    photo.data.assign(static_cast<std::size_t>(width * height * bands * type), 9);
    EXPECT_TRUE(TqImage::QuickWriteImage(dir.File(name), photo, nullptr, true));
  }
  static SurveyCamera Camera() {
    SurveyCamera c;
    c.id = 1;
    c.width = c.sensorWidth = 60;
    c.height = c.sensorHeight = 40;
    c.focalLength = 60;
    return c;
  }
  static SurveyPhoto Photo(const std::string& name) {
    SurveyPhoto p;
    p.name = name;
    p.x = 500010;
    p.y = 5399990;
    p.z = 160;
    p.cameraId = 1;
    return p;
  }
  std::vector<Finding> Check(const std::string& dsm = "dsm.tif") {
    result = CheckSurvey(survey, dir.File(dsm));
    return result.findings;
  }

  testing::TempDir dir;
  Survey survey;
  CheckResult result;
};

auto Says(Finding::Level level, const std::string& text) {
  return Contains(AllOf(Field(&Finding::level, level), Field(&Finding::text, HasSubstr(text))));
}
auto Error(const std::string& text) { return Says(Finding::Level::kError, text); }
auto Warning(const std::string& text) { return Says(Finding::Level::kWarning, text); }

// All that is said is the scale of a UTM zone's middle.
TEST_F(InputCheckTest, AGoodSurveyHasNoFindingsAndTrueFacts) {
  EXPECT_THAT(Check(), AllOf(SizeIs(1), Warning("scale of 0.99960")));
  EXPECT_EQ(result.facts.photos, 1);
  EXPECT_DOUBLE_EQ(result.facts.photoResolution, 1.0);  // 60 m above ground, f = 60 pixels
  EXPECT_DOUBLE_EQ(result.facts.dsm.meanHeight, 100);
  EXPECT_EQ(result.facts.dsm.crsCode, "EPSG:32633");
}

TEST_F(InputCheckTest, EveryFaultOfADsmIsNamed) {
  WriteDsm("degrees.tif", 1e-5, -1e-5, "EPSG:4326");
  WriteDsm("oblong.tif", 0.5, -0.25, "EPSG:32633");
  WriteDsm("southup.tif", 0.5, 0.5, "EPSG:32633");
  WriteDsm("empty.tif", 0.5, -0.5, "EPSG:32633", -9999);
  dir.Write("text.tif", "this is no raster");
  WritePhoto("plain.tif", 60, 40, 1, 1);
  EXPECT_THAT(Check("degrees.tif"), Error("is in degrees"));
  EXPECT_THAT(Check("oblong.tif"), Error("not square"));
  EXPECT_THAT(Check("southup.tif"), Error("north-up"));
  EXPECT_THAT(Check("empty.tif"), Error("no height"));
  EXPECT_THAT(Check("text.tif"), Error("text.tif"));
  EXPECT_THAT(Check("plain.tif"), Error("no georeference"));
  EXPECT_THAT(Check("missing.tif"), Error("missing.tif"));
}

// A surface of a large country, true to scale in its middle: what counts is where the photos are.
TEST_F(InputCheckTest, TheMapsScaleIsThatOfThePhotosPlace) {
  WriteDsm("mercator.tif", 0.5, -0.5, "EPSG:3857");
  EXPECT_THAT(Check("mercator.tif"), AllOf(SizeIs(1), Error("gdalwarp")));
  WriteDsm("wide.tif", 60000, -60000, "EPSG:32633");
  survey.blocks[0].photos[0].x = 500000 + 180000;
  EXPECT_THAT(Check("wide.tif"), Not(Warning("has a scale")));
  survey.blocks[0].photos[0].x = 500000 + 400000;
  EXPECT_THAT(Check("wide.tif"), Error("has a scale of 1.001"));
}

TEST_F(InputCheckTest, APhotoThatCannotBeUsedIsLeftOutAndNamedOthersStay) {
  WritePhoto("turned.tif", 40, 60, 3, 1);
  WritePhoto("deep.tif", 60, 40, 1, 2);
  WritePhoto("two.tif", 60, 40, 2, 1);
  auto& photos = survey.blocks[0].photos;
  for (const char* name : {"turned.tif", "deep.tif", "two.tif", "gone.tif", "low.tif", "x.tif"}) {
    photos.push_back(Photo(name));
  }
  WritePhoto("low.tif", 60, 40, 3, 1);
  photos[5].z = 90;
  photos[6].cameraId = 7;
  const auto findings = Check();
  for (const char* words :
       {"turned.tif: is 40 x 60", "--range LO,HI", "2 bands", "gone.tif", "camera 7 is not listed",
        "low.tif: its camera (height 90) lies below the surface"}) {
    EXPECT_THAT(findings, Warning(words));
  }
  EXPECT_TRUE(result.Usable());
  ASSERT_EQ(survey.blocks[0].photos.size(), 1U);
  EXPECT_EQ(survey.blocks[0].photos[0].name, "a.tif");
}

TEST_F(InputCheckTest, HeightsInOtherUnitsThanCoordinatesAreRefused) {
  WriteDsm("feet.tif", 0.5, -0.5, "EPSG:32633+6360");
  WriteDsm("allfeet.tif", 0.5, -0.5, "EPSG:2263+6360");
  WriteDsm("metres.tif", 0.5, -0.5, "EPSG:32633+5773");
  EXPECT_THAT(Check("feet.tif"), Error("heights are in units of 0.304801 m"));
  EXPECT_THAT(Check("metres.tif"), Not(Contains(Field(&Finding::level, Finding::Level::kError))));
  EXPECT_THAT(Check("allfeet.tif"), Warning("its units are 0.304801 m"));
}

TEST_F(InputCheckTest, SuspectOrientationsAreNamedWithTheirProbableCause) {
  const auto found = [&](double SurveyPhoto::*field, double value) {
    SurveyPhoto photo = Photo("a.tif");
    photo.*field = value;
    survey.blocks[0].photos = {photo};
    return Check();
  };
  EXPECT_THAT(found(&SurveyPhoto::z, 70),
              Error("below the surface (half of them by 30 m and more)"));
  EXPECT_THAT(found(&SurveyPhoto::z, 5200), Warning("geoid, ellipsoid"));
  EXPECT_THAT(found(&SurveyPhoto::omega, 1.0), Warning("more than 57 degrees off the vertical"));
  EXPECT_THAT(found(&SurveyPhoto::x, 500910), Error("no photo shows any of the DSM"));
  EXPECT_THAT(found(&SurveyPhoto::x, 13.4), Error("10 km"));
}

TEST_F(InputCheckTest, ManyPhotosWithTroubleFillAFewLines) {
  for (int i = 0; i < 50; ++i) {
    survey.blocks[0].photos.push_back(Photo("gone" + std::to_string(i)));
  }
  const auto findings = Check();
  EXPECT_EQ(findings.size(), 12U);  // with that of the scale
  EXPECT_THAT(findings, Warning("40 more photos left out, the last: "));
}

TEST(RoundUpTwoDigitsTest, RoundsUpwardsOnceAndKeepsTwoDigitValues) {
  constexpr double kCases[][2] = {{0.0873, 0.088}, {0.1, 0.1}, {0.35, 0.35}, {0.0999, 0.1},
                                  {12.01, 13.0},   {1.0, 1.0}, {0.0, 0.0},   {-1.0, 0.0}};
  for (const auto& [in, out] : kCases) {
    EXPECT_NEAR(RoundUpTwoDigits(in), out, 1e-12) << in;
  }
}

}  // namespace
}  // namespace tqtortho::host
