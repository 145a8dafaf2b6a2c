// SPDX-License-Identifier: Apache-2.0
#include "survey/survey_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>

#include "pipeline/job_inputs.h"
#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using tqtortho::testing::Replaced;

const std::string kCamera =
    "600 450 2.4 2.4 1.8 303 223 1 9.9e-08 -2.1e-13 2.5e-19 4.9e-06 -3.5e-06 2e-04 -1.5e-04 0";
const std::string kCameras = "1\n7\nSynth camera 1\n" + kCamera + "\n";
const std::string kPhoto = "S01.png 500013.5 5400010.1 158.9 -0.0165 0.0087 3.1 7";
const std::string kPhotos = "1\n1\nphotos\n" + kPhoto + "\n";

std::vector<std::string> Problems(const std::string& cameras, const std::string& photos) {
  std::vector<std::string> problems;
  const auto survey = ParseSurvey(cameras, "dir/cams.txt", photos, "dir/list.txt", problems);
  EXPECT_EQ(survey.has_value(), problems.empty());
  return problems;
}

struct Case {
  std::string text;
  int line;
  const char* words;
};

TEST(SurveyReaderTest, GoodListsGiveTheSurvey) {
  std::vector<std::string> problems;
  const auto survey = ParseSurvey(kCameras, "dir/cams.txt", kPhotos, "dir/list.txt", problems);
  ASSERT_TRUE(survey);
  EXPECT_THAT(problems, IsEmpty());
  ASSERT_EQ(survey->cameras.size(), 1U);
  const SurveyCamera& c = survey->cameras[0];
  EXPECT_EQ(c.id, 7);
  EXPECT_EQ(c.name, "Synth camera 1");
  EXPECT_EQ(c.sensorHeight, 1.8);
  EXPECT_EQ(c.principalY, 223);
  EXPECT_EQ(c.model, 1);
  EXPECT_EQ(c.coefficients[6], -1.5e-4);
  EXPECT_EQ(c.rasterWidth, 0);
  ASSERT_EQ(survey->blocks.size(), 1U);
  EXPECT_EQ(survey->blocks[0].path, "dir/photos");  // relative to the list, not to the process
  const SurveyPhoto& p = survey->blocks[0].photos.at(0);
  EXPECT_EQ(p.name, "S01.png");
  EXPECT_EQ(p.y, 5400010.1);
  EXPECT_EQ(p.omega, -0.0165);
  EXPECT_EQ(p.kappa, 3.1);
  EXPECT_EQ(p.cameraId, 7);
}

TEST(SurveyReaderTest, WindowsLineEndsByteOrderMarkAndAbsolutePathsAreAccepted) {
  const auto windows = [](std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
      text.insert(at, 1, '\r');
    }
    return "\xEF\xBB\xBF" + text + "\r\n";
  };
  std::vector<std::string> problems;
  const auto survey =
      ParseSurvey(windows(kCameras), "cams.txt", windows(Replaced(kPhotos, "photos", "/a b/p")),
                  "list.txt", problems);
  ASSERT_TRUE(survey) << problems.front();
  EXPECT_EQ(survey->cameras[0].name, "Synth camera 1");
  EXPECT_EQ(survey->blocks[0].path, "/a b/p");
}

// Every fault gets its one line: file, line number, what is wrong.
TEST(SurveyReaderTest, EveryCameraFaultIsNamedWithItsLine) {
  const auto with = [](const std::string& what, const std::string& text) {
    return Replaced(kCameras, what, text);
  };
  const Case cases[] = {
      {with(" 0\n", "\n"), 4, "15 values instead of sixteen"},
      {with(" 0\n", " 0 0\n"), 4, "17 values"},
      {with("9.9e-08", "abc"), 4, "value 9 of camera 7 is \"abc\""},
      {with("9.9e-08", "nan"), 4, "finite"},
      {with("9.9e-08", "1e999"), 4, "finite"},
      {with("9.9e-08", "0,1"), 4, "finite"},
      {with("223 1 ", "223 1.0 "), 4, "whole number"},
      {with("223 1 ", "223 2 "), 4, "distortion model 2 is unknown"},
      {with("2.4 2.4", "0 2.4"), 4, "focal length is 0"},
      {with("2.4 2.4", "-1 2.4"), 4, "focal length is -1"},
      {with("2.4 2.4", "2.4 0"), 4, "sensor width is 0"},
      {with("2.4 2.4", "600 2.4"), 4, "one unit"},
      {with("600 450", "-600 450"), 4, "image size"},
      {with("303 223", "0.012 0.003"), 4, "principal point"},
      {with("303 223", "303 448"), 4, "principal point"},
      {with("9.9e-08", "-0.26"), 4, "moves the image corner"},
      {"", 1, "number of cameras"},
      {"0\n", 1, "number of cameras"},
      {"1.5\n", 1, "number of cameras"},
      {"1\nx\nname\n" + kCamera, 2, "id of camera 1 of 1"},
      {"1\n7\nname", 3, "ends inside camera 7"},
      {"2" + kCameras.substr(1), 5, "id of camera 2 of 2"},
      {kCameras + "8\n", 5, "more lines follow"},
      {"2" + kCameras.substr(1) + kCameras.substr(2), 5, "id 7 is used twice"},
  };
  for (const Case& c : cases) {
    const std::string where = "dir/cams.txt:" + std::to_string(c.line) + ": ";
    EXPECT_THAT(Problems(c.text, kPhotos), ElementsAre(AllOf(HasSubstr(where), HasSubstr(c.words))))
        << c.text;
  }
}

TEST(SurveyReaderTest, EveryPhotoFaultIsNamedWithItsLine) {
  const auto with = [](const std::string& what, const std::string& text) {
    return Replaced(kPhotos, what, text);
  };
  const std::string place = "500013.5 5400010.1 158.9", turn = "-0.0165 0.0087 3.1";
  const Case cases[] = {
      {with(" 7\n", "\n"), 4, "this one 7"},
      {with("S01.png", "S 01.png"), 4, "must not hold blanks"},
      {with("158.9", "high"), 4, "field 4 is \"high\""},
      {with("158.9", "inf"), 4, "finite"},
      {with("3.1 7", "3.1 7.5"), 4, "camera id is \"7.5\""},
      {with("3.1 7", "3.1 8"), 4, "names camera 8"},
      {with("3.1", "178.2"), 4, "degrees"},
      {with("-0.0165", "-6.5"), 4, "degrees"},
      {with(place + " " + turn, turn + " " + place), 4, "order is name X Y Z omega phi kappa"},
      {with(turn, "3.1 -0.0165 0.0087"), 4, "above the horizon"},
      {with("S01.png", std::string(300, 'a')), 4, "longer than"},
      {"", 1, "number of photo blocks"},
      {with("1\nphotos", "-1\nphotos"), 2, "number of photos of block 1 of 1"},
      {"1\n3000000000\nphotos\n", 2, "number of photos"},
      {"1\n1\n\n" + kPhoto, 3, "folder of block 1 of 1"},
      {with("1\nphotos", "2\nphotos"), 4, "ends after 1 of 2 photos"},
      {with("1\nphotos", "65000\nphotos"), 4, "ends after 1 of 65000 photos"},
      {with("1\nphotos", "65536\nphotos"), 2, "a job has at most 65535"},
      {kPhotos + kPhoto, 5, "more lines follow"},
      {"2" + kPhotos.substr(1) + kPhoto, 5, "number of photos of block 2 of 2"},
      {"1\n2\nphotos\n" + kPhoto + "\n" + kPhoto, 5, "listed twice"},
      {"2\n1\nphotos\n" + kPhoto + "\n1\n./a/../photos/\n" + kPhoto, 7, "listed twice"},
  };
  for (const Case& c : cases) {
    const std::string where = "dir/list.txt:" + std::to_string(c.line) + ": ";
    EXPECT_THAT(Problems(kCameras, c.text),
                ElementsAre(AllOf(HasSubstr(where), HasSubstr(c.words))))
        << c.text;
  }
}

TEST(SurveyReaderTest, ManyFaultsAreCutShortAndMissingFilesNamed) {
  std::string photos = "1\n500\np\n";
  for (int i = 0; i < 500; ++i) photos += "bad\n";
  EXPECT_EQ(Problems(kCameras, photos).size(), 101U);
  std::vector<std::string> problems;
  EXPECT_FALSE(ReadSurvey("/nowhere/cams.txt", "/", problems));
  EXPECT_THAT(problems, ElementsAre(HasSubstr("/nowhere/cams.txt"), HasSubstr("/: cannot")));
}

// What is written reads back in the same digits, by the strict reader and by the library's own.
TEST(SurveyWriterTest, WrittenListsReadBackByBothReaders) {
  Survey survey;
  SurveyCamera camera{3,       "a camera",  1400.25, 924.0000004, 911.7192121,
                      1400.25, 924.0000004, 681.38,  462.0000002, 1};
  const double k[8] = {1.23456789012345e-9, -2.1e-300, 1.0 / 3e20, 1e-7, -1e-7, 2e-4, 1e-4, 0};
  std::copy(std::begin(k), std::end(k), camera.coefficients);
  camera.rasterWidth = 1368;
  camera.rasterHeight = 912;
  survey.cameras = {camera};
  survey.blocks = {{"/photos dir",
                    {{"a.tif", 292710.2172910783, 2731048.7710343534, 186.4457465535,
                      0.503193657104389, -1.6411311937833e-2, -3.1107436060095, 3}}}};
  const tqtortho::testing::TempDir dir;
  // A decimal comma locale must change nothing.
  const char* const comma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  ASSERT_TRUE(WriteCameraFile(dir.File("c.txt"), survey));
  ASSERT_TRUE(WritePhotoList(dir.File("p.txt"), survey));
  if (comma != nullptr) std::setlocale(LC_NUMERIC, "C");
  std::vector<std::string> problems;
  const auto back = ReadSurvey(dir.File("c.txt"), dir.File("p.txt"), problems);
  ASSERT_TRUE(back) << problems.front();
  const SurveyCamera& c = back->cameras.at(0);
  EXPECT_EQ(c.name, "a camera");
  EXPECT_EQ(c.rasterWidth, 1368);
  EXPECT_EQ(c.rasterHeight, 912);
  EXPECT_EQ(c.height, camera.height);
  EXPECT_EQ(c.focalLength, camera.focalLength);
  EXPECT_THAT(c.coefficients, ::testing::ElementsAreArray(k));
  const SurveyPhoto& p = back->blocks.at(0).photos.at(0);
  EXPECT_NEAR(p.x, 292710.2172910783, 6e-7);
  EXPECT_NEAR(p.kappa, -3.1107436060095, 6e-13);
  EXPECT_EQ(back->blocks[0].path, "/photos dir");

  std::map<int, tqorkit::tqIntOri> cameras;
  std::vector<tqorkit::tqPhotoCategory> blocks;
  std::ifstream cameraFile(dir.File("c.txt")), photoList(dir.File("p.txt"));
  ReadCameras(cameraFile, cameras);
  ReadPhotoList(photoList, 0.4, blocks);
  ASSERT_EQ(cameras.count(3), 1U);
  EXPECT_EQ(cameras[3].Get().pixelSize, 1);
  EXPECT_EQ(cameras[3].Get().offsetY, camera.principalY - 0.5 * camera.height);
  EXPECT_THAT(cameras[3].Get().coefficients, ::testing::ElementsAreArray(k));
  ASSERT_EQ(blocks.size(), 1U);
  ASSERT_EQ(blocks[0].GetPhotos().size(), 1U);
  EXPECT_EQ(blocks[0].GetPhotos()[0].Get().position[5], p.kappa);
}

TEST(SurveyWriterTest, WhatTheListsCannotHoldIsNotWritten) {
  const tqtortho::testing::TempDir dir;
  Survey survey;
  survey.cameras.resize(1);
  survey.cameras[0].name = "two\nlines";
  ASSERT_TRUE(WriteCameraFile(dir.File("c.txt"), survey));
  EXPECT_THAT(tqtortho::testing::ReadText(dir.File("c.txt")), HasSubstr("two lines\n"));
  survey.cameras[0].focalLength = HUGE_VAL;
  EXPECT_FALSE(WriteCameraFile(dir.File("bad.txt"), survey));
  for (const char* name : {"", "a b.jpg", "a\tb.jpg", "a\n.jpg"}) {
    survey.blocks = {{"/p", {{name, 1, 2, 3, 0, 0, 0, 1}}}};
    EXPECT_FALSE(WritePhotoList(dir.File("bad.txt"), survey)) << name;
  }
  survey.blocks = {{"/p", {{"a.jpg", 1, 2, std::nan(""), 0, 0, 0, 1}}}};
  EXPECT_FALSE(WritePhotoList(dir.File("bad.txt"), survey));
  EXPECT_FALSE(std::filesystem::exists(dir.File("bad.txt")));
  EXPECT_FALSE(WriteCameraFile(dir.File("no/such/dir.txt"), Survey{}));
}

}  // namespace
}  // namespace tqtortho::host
