// SPDX-License-Identifier: Apache-2.0
#include "stage/photo_files.h"

#include <gtest/gtest.h>

#include <set>

#include "tqfd/PathHelper.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho {
namespace {

TEST(PhotoFilesTest, OrthoNameKeepsDriveDirectoryAndExtension) {
  struct Case {
    std::string outputDir, photo;
    int block;
    std::string ortho;
  };
  for (const Case& c : {Case{"out/", "a.jpg", 0, "out/a_0.jpg"},
                        Case{"out/", "d1/d2/a.b.JPG", 12, "out/d1/d2/a.b_12.JPG"},
                        Case{"out", "a", 3, "outa_3"},  // a prefix is joined as it is
                        Case{"o/", "C:\\f\\x.tif", 1, "o/C:\\f\\x_1.tif"}}) {
    EXPECT_EQ(OrthoName(c.outputDir, c.photo, c.block), c.ortho) << c.photo;
  }
}

TEST(PhotoFilesTest, NamePartsBeyondTheLimitsGiveNoName) {
  EXPECT_EQ(OrthoName("o/", std::string(255, 'n') + ".jpg", 0),
            "o/" + std::string(255, 'n') + "_0.jpg");
  EXPECT_EQ(OrthoName("o/", std::string(256, 'n') + ".jpg", 0), "");
  EXPECT_EQ(OrthoName("o/", "a." + std::string(40, 'x'), 0), "");
}

// Two files of one photo with one name would silently destroy each other.
TEST(PhotoFilesTest, AllFilesOfAPhotoAreDistinct) {
  for (const std::string ortho : {"o/a_0.jpg", "o/a_0.tif", "o/a_0"}) {
    const std::set<std::string> names{
        ortho,
        ObscuredMaskName(ortho),
        WeightMaskName(ortho),
        OwnershipMaskName(ortho),
        OwnershipMaskCopyName(ortho),
        OrthoSidecarName(ortho),
        ObscuredSidecarName(ortho),
        ReducedCopyName(ortho, "o/"),
    };
    EXPECT_EQ(names.size(), 8u) << ortho;
  }
  EXPECT_EQ(ObscuredMaskName("o/a_0.jpg"), "o/a_0.jpg_obs.tif");
  EXPECT_EQ(WeightMaskName("o/a_0.jpg"), "o/a_0.jpg_wgt.tif");
}

TEST(PhotoFilesTest, JobWideFilesFollowTheDirectorySetters) {
  tqfd::PathHelper::SetProgramDataDirectory("/data");
  tqorkit::TqFSManager::SetOutputTmpFilePath("/tmp0");
  EXPECT_EQ(ParamFilePath(), "/data/ortho_data/orParam.txt");
  EXPECT_EQ(BorderMaskPath(), "/tmp0/ot/bordermsk.tif");
  EXPECT_EQ(PixMapPath(), "/tmp0/ot/pix_map.bin");
  EXPECT_EQ(TexturePath(), "/tmp0/ot/textures.tif");
  tqfd::PathHelper::SetProgramDataDirectory("");
  tqorkit::TqFSManager::SetOutputTmpFilePath("");
}

}  // namespace
}  // namespace tqtortho
