// SPDX-License-Identifier: Apache-2.0
#include "report/short_paths.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/temp_dir.h"

namespace tqtortho::host {
namespace {

TEST(ShortPathsTest, AbsolutePathsLoseTheirDirectories) {
  const tqtortho::testing::TempDir dir;
  std::filesystem::create_directories(dir.File("my survey/photos of May"));
  const std::string spaced = dir.File("my survey/photos of May");
  struct Case {
    std::string text, shorter;
  };
  const Case cases[] = {
      {"", ""},
      {"/", "/"},
      {"no path, 3 / 4 of it and/or more", "no path, 3 / 4 of it and/or more"},
      {"/home/eva/dsm.tif", "dsm.tif"},
      {"/home/eva/dsm.tif: has holes", "dsm.tif: has holes"},
      {"/dsm.tif", "dsm.tif"},
      {"camera file /a/b/cameras.txt and photo list /a/c/photos.txt",
       "camera file cameras.txt and photo list photos.txt"},
      {"see \"/srv/x/y.log\" (/srv/x/z.log) --out=/srv/o", "see \"y.log\" (z.log) --out=o"},
      {"photo " + spaced + "/a b.jpg: is damaged", "photo a b.jpg: is damaged"},
      {spaced, "photos of May"},
      {"https://example.org/a/b and town/dsm.tif stay",
       "https://example.org/a/b and town/dsm.tif stay"},
  };
  for (const Case& c : cases) EXPECT_EQ(WithShortPaths(c.text), c.shorter) << c.text;
}

}  // namespace
}  // namespace tqtortho::host
