// SPDX-License-Identifier: Apache-2.0
#include "tqfd/PathHelper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "testing/temp_dir.h"

namespace tqfd {
namespace {

using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

TEST(PathHelperTest, PartsOfAPathGiveThePathAgain) {
  struct Case {
    const char* path;
    PathParts parts;
  };
  const Case cases[] = {
      {"a.jpg", {"", "", "a", ".jpg"}},
      {"/d/e.f/a.b.jpg", {"", "/d/e.f/", "a.b", ".jpg"}},
      {"/d.x/noext", {"", "/d.x/", "noext", ""}},
      {"C:\\photos\\a.tif", {"C:", "\\photos\\", "a", ".tif"}},
      {"C:a.tif", {"C:", "", "a", ".tif"}},
      {"7:a.tif", {"", "", "7:a", ".tif"}},
      {"d/.hidden", {"", "d/", "", ".hidden"}},
      {"d/", {"", "d/", "", ""}},
      {"", {"", "", "", ""}},
  };
  for (const Case& c : cases) {
    PathParts parts;
    ASSERT_TRUE(PathHelper::SplitPath(c.path, parts)) << c.path;
    EXPECT_EQ(parts.drive, c.parts.drive) << c.path;
    EXPECT_EQ(parts.directory, c.parts.directory) << c.path;
    EXPECT_EQ(parts.fileName, c.parts.fileName) << c.path;
    EXPECT_EQ(parts.extension, c.parts.extension) << c.path;
    EXPECT_EQ(parts.drive + parts.directory + parts.fileName + parts.extension, c.path);
  }
}

TEST(PathHelperTest, APartThatIsTooLongFailsAndLeavesNoPartBehind) {
  const std::string directory = std::string(1022, 'd') + "/";
  const std::string name(255, 'n');
  const std::string extension = "." + std::string(30, 'e');
  PathParts parts;
  EXPECT_TRUE(PathHelper::SplitPath(directory + name + extension, parts));
  for (const std::string& path :
       {"d" + directory + name + extension, directory + "n" + name + extension,
        directory + name + extension + "e"}) {
    EXPECT_FALSE(PathHelper::SplitPath(path, parts));
    EXPECT_EQ(parts.drive + parts.directory + parts.fileName + parts.extension, "");
  }
}

TEST(PathHelperTest, CopyReplacesItsTargetAndLeavesNothingElse) {
  const TempDir dir;
  const std::string source = dir.Write("source", "new");
  const std::string target = dir.Write("sub/target", "old and longer");
  EXPECT_TRUE(PathHelper::CopyFile2(source, target));
  EXPECT_EQ(ReadText(target), "new");
  EXPECT_FALSE(PathHelper::CopyFile2(dir.File("missing"), target));
  EXPECT_EQ(ReadText(target), "new");
  EXPECT_FALSE(PathHelper::CopyFile2(source, dir.File("nowhere/target")));
  const auto inSub = std::filesystem::directory_iterator(dir.Path() + "/sub");
  EXPECT_EQ(std::distance(begin(inSub), end(inSub)), 1);
}

TEST(PathHelperTest, RemoveIsTrueWhenTheFileIsGoneAndNeverRemovesADirectory) {
  const TempDir dir;
  const std::string file = dir.Write("file", "x");
  EXPECT_TRUE(PathHelper::RemoveFile(file));
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_TRUE(PathHelper::RemoveFile(file));
  std::filesystem::create_directory(dir.File("empty"));
  EXPECT_FALSE(PathHelper::RemoveFile(dir.File("empty")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.File("empty")));
}

TEST(PathHelperTest, MakesTheParentsOfAFileButNotTheFile) {
  const TempDir dir;
  EXPECT_TRUE(PathHelper::MakeParentDirectory(dir.File("a/b/c.tif")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.File("a/b")));
  EXPECT_FALSE(std::filesystem::exists(dir.File("a/b/c.tif")));
  EXPECT_TRUE(PathHelper::MakeParentDirectory("c.tif"));
  dir.Write("file", "x");
  EXPECT_FALSE(PathHelper::MakeParentDirectory(dir.File("file/c.tif")));
}

TEST(PathHelperTest, TheSetterComesBeforeTheEnvironmentAndTheEnvironmentBeforeTheHome) {
  ASSERT_EQ(::setenv("XDG_DATA_HOME", "/xdg/", 1), 0);
  ASSERT_EQ(::setenv("TQTORTHO_DATA_DIR", "/from/environment//", 1), 0);
  PathHelper::SetProgramDataDirectory("/from/setter/");
  EXPECT_EQ(PathHelper::GetProgramDataDirectory(), "/from/setter");
  PathHelper::SetProgramDataDirectory("");
  EXPECT_EQ(PathHelper::GetProgramDataDirectory(), "/from/environment");
  ::unsetenv("TQTORTHO_DATA_DIR");
  EXPECT_EQ(PathHelper::GetProgramDataDirectory(), "/xdg/tqtortho");
  ::setenv("XDG_DATA_HOME", "relative", 1);  // such values are to be ignored
  ::setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(PathHelper::GetProgramDataDirectory(), "/home/someone/.local/share/tqtortho");
  ::unsetenv("XDG_DATA_HOME");
}

TEST(PathHelperTest, TheExecutablesDirectoryHoldsThisTest) {
  EXPECT_TRUE(std::filesystem::exists(PathHelper::GetExecuteFilePath() + "/platform_test"));
}

}  // namespace
}  // namespace tqfd
