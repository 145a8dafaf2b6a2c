// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/TqFSManager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <vector>

#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqorkit {
namespace {

TEST(TqFSManagerTest, EveryTypeHasItsOwnFixedName) {
  struct Case {
    const char* name;
    int type;
    const char* expected;
  };
  const Case cases[] = {
      {"/o/a_1.jpg", 1, "/o/a_1.msk"},     {"/o/a_1.jpg", 4, "/o/a_1.tif"},
      {"/o/a_1.jpg", 6, "/o/a_1.georef"},  {"/o/a_1.jpg", 7, "/o/a_1.jpg"},
      {"/o/a_1.jpg", 11, "/o/a_1.obsref"}, {"/o/a_1.jpg", 13, "/o/a_1.jpg_obs.tif"},
      {"/o/a_1.jpg", 99, "/o/a_1.jpg"},    {"/o.d/a_1", 1, "/o.d/a_1.msk"},
      {"a.b.c.tif", 6, "a.b.c.georef"},    {"", 1, ".msk"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TqFSManager::ModifyExtName(c.name, c.type), c.expected) << c.name << " " << c.type;
  }
}

// Two files of one photo under one name would overwrite each other, whatever its extension.
TEST(TqFSManagerTest, TheFilesOfOnePhotoNeverShareAName) {
  for (const char* ortho : {"d/a_0.jpg", "d/a_0.JPG", "d/a_0.png", "d/a_0"}) {
    std::set<std::string> names;
    for (const int type : {1, 4, 6, 7, 11, 13}) {
      names.insert(TqFSManager::ModifyExtName(ortho, type));
    }
    EXPECT_EQ(names.size(), 6u) << ortho;
  }
}

TEST(TqFSManagerTest, TheBlockNumberGoesBetweenNameAndExtension) {
  struct Case {
    const char* name;
    const char* text;
    int type;
    const char* expected;
  };
  const Case cases[] = {
      {"d/a.jpg", "3_", 7, "d/a_3.jpg"}, {"d/a.jpg", "12", 7, "d/a_12.jpg"},
      {"d.e/a", "0_", 7, "d.e/a_0"},     {"a.jpg", "3_", 13, "a_3.jpg_obs.tif"},
      {"a.jpg", "", 7, "a.jpg"},
  };
  for (const Case& c : cases) {
    std::string out = "old";
    TqFSManager::ModifyExtAndName(c.name, c.text, out, c.type);
    EXPECT_EQ(out, c.expected);
  }
}

TEST(TqFSManagerTest, ReducedCopiesStandBesideTheOutputDirectory) {
  struct Case {
    const char* outputDir;
    const char* expected;
  };
  const Case cases[] = {
      {"/data/out/", "/data/rs/a_0.tif"}, {"/data/out", "/data/rs/a_0.tif"},
      {"/out/", "/rs/a_0.tif"},           {"out/", "rs/a_0.tif"},
      {"./", "./../rs/a_0.tif"},          {"../", "../../rs/a_0.tif"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TqFSManager::ChangeFileDirectory("/data/out/sub/a_0.jpg", c.outputDir, "/rs/", 4),
              c.expected);
  }
}

TEST(TqFSManagerTest, SavedBytesComeBackWithTheirGeoreference) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("a.jpg_obs.tif");
  const std::vector<std::uint8_t> bytes{0, 255, 7, 1, 0, 128};
  const double transform[6] = {300000, 0.25, 0, 2730000, 0, -0.25};
  const tqimage::GeoCoefficients geo(transform, 3, 2);
  ASSERT_TRUE(TqFSManager::SaveImageFile(bytes.data(), 3, 2, 1, path, true, &geo));
  EXPECT_FALSE(TqFSManager::SaveImageFile(bytes.data(), 3, 2, 1, path, false, &geo));
  PhotoInfo image;
  tqimage::GeoCoefficients back;
  ASSERT_TRUE(tqimage::TqImage::QuickReadImage(path, image, &back));
  EXPECT_EQ(image.data, bytes);
  EXPECT_EQ(back.GetOrigin(), geo.GetOrigin());
  EXPECT_FALSE(TqFSManager::SaveImageFile(nullptr, 3, 2, 1, path, true, &geo));
  EXPECT_FALSE(TqFSManager::SaveImageFile(bytes.data(), 0, 2, 1, path, true, &geo));
}

TEST(TqFSManagerTest, TheTemporaryDirectoryFollowsSetterThenEnvironment) {
  ASSERT_EQ(::setenv("TQTORTHO_TMP_DIR", "/from/environment/", 1), 0);
  TqFSManager::SetOutputTmpFilePath("/from/setter/");
  EXPECT_EQ(TqFSManager::GetOutputTmpFilePath(), "/from/setter");
  TqFSManager::SetOutputTmpFilePath("");
  EXPECT_EQ(TqFSManager::GetOutputTmpFilePath(), "/from/environment");
  ::unsetenv("TQTORTHO_TMP_DIR");
  ASSERT_EQ(::setenv("XDG_CACHE_HOME", "/cache", 1), 0);
  EXPECT_EQ(TqFSManager::GetOutputTmpFilePath(), "/cache/tqtortho");
  ::unsetenv("XDG_CACHE_HOME");
}

}  // namespace
}  // namespace tqorkit
