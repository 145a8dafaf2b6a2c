// SPDX-License-Identifier: Apache-2.0
#include "prepare/photo_staging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "testing/temp_dir.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

Survey SurveyOf(const std::string& path, const std::vector<std::string>& names) {
  Survey survey;
  survey.blocks.resize(1);
  survey.blocks[0].path = path;
  for (const std::string& name : names) survey.blocks[0].photos.push_back({name});
  return survey;
}

TEST(PhotoStagingTest, SafeNamesNeedNoLinks) {
  const TempDir dir;
  Survey survey = SurveyOf("/photos of mine", {"a.jpg", "b.jpg", "\xC3\xA9t\xC3\xA9.jpg"});
  std::string error;
  ASSERT_TRUE(StagePhotos(survey, dir.File("staged"), error));
  EXPECT_EQ(survey.blocks[0].path, "/photos of mine");
  EXPECT_FALSE(fs::exists(dir.File("staged")));
}

TEST(PhotoStagingTest, NamesWithBlanksAndFoldersBecomeLinksThatReadTheSamePhoto) {
  const TempDir dir;
  const std::string longName = std::string(230, 'x') + ".jpg";
  const std::vector<std::string> names = {
      "a b.jpg",       "a_b.jpg",        "a\tb.jpg",        "c.jpg",         "100MEDIA/c.jpg",
      longName,        "101MEDIA/c.jpg", "day 2/./x/c.jpg", "day/2/x/c.jpg", "../in/100MEDIA/d.jpg",
      "100MEDIA_c.jpg"};
  for (const std::string& name : names) dir.Write("in/" + name, "photo " + name);
  for (int run = 0; run < 2; ++run) {  // the second run finds its links in place
    Survey survey = SurveyOf(dir.File("in"), names);
    std::string error;
    ASSERT_TRUE(StagePhotos(survey, dir.File("staged"), error)) << error;
    std::set<std::string> distinct;
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string& name = survey.blocks[0].photos[i].name;
      EXPECT_EQ(name.find_first_of(" \t/"), std::string::npos) << name;
      EXPECT_LE(name.size(), 200U);
      EXPECT_TRUE(distinct.insert(name).second) << name;
      EXPECT_EQ(fs::path(name).extension(), ".jpg");
      EXPECT_EQ(ReadText(survey.blocks[0].path + "/" + name), "photo " + names[i]);
    }
    EXPECT_EQ(survey.blocks[0].photos[1].name, "a_b.jpg");
    EXPECT_EQ(survey.blocks[0].photos[3].name, "c.jpg");
    EXPECT_EQ(survey.blocks[0].photos[4].name, "100MEDIA_c_2.jpg");
    EXPECT_EQ(survey.blocks[0].photos[6].name, "101MEDIA_c.jpg");
    EXPECT_EQ(survey.blocks[0].photos[9].name, "in_100MEDIA_d.jpg");
    EXPECT_EQ(survey.blocks[0].photos[10].name, "100MEDIA_c.jpg");
  }
}

TEST(PhotoStagingTest, WhatIsNoLinkIsNeverReplaced) {
  const TempDir dir;
  dir.Write("staged/photos1/a_b.jpg", "somebody's file");
  Survey survey = SurveyOf(dir.Path(), {"a b.jpg"});
  std::string error;
  EXPECT_FALSE(StagePhotos(survey, dir.File("staged"), error));
  EXPECT_THAT(error, ::testing::HasSubstr("a_b.jpg"));
  EXPECT_EQ(survey.blocks[0].photos[0].name, "a b.jpg");
  EXPECT_EQ(ReadText(dir.File("staged/photos1/a_b.jpg")), "somebody's file");
}

TEST(PhotoStagingTest, AFolderThatCannotBeMadeIsNamed) {
  const TempDir dir;
  dir.Write("file", "");
  Survey survey = SurveyOf(dir.Path(), {"a b.jpg"});
  std::string error;
  EXPECT_FALSE(StagePhotos(survey, dir.File("file"), error));
  EXPECT_THAT(error, ::testing::HasSubstr(dir.File("file")));
}

}  // namespace
}  // namespace tqtortho::host
