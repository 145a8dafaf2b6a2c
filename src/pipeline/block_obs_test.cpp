// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "testing/log_capture.h"
#include "testing/photo_records.h"
#include "testing/tiny_job.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

using testing::TinyJob;

/// A parameter file over a DSM with a wall: header, then the given lines.
class BlockObsTest : public ::testing::Test {
 protected:
  BlockObsTest() {
    EXPECT_TRUE(files_.WriteDsm([](int, int col) { return col / 4 == 9 ? 15.0F : 0.0F; }));
  }
  std::string Write(const std::string& blocks, const std::string& scale = "1.000000",
                    const std::string& pair = "0.250000\t0.000000") {
    return files_.dir.Write("orParam.txt", "1\n" + scale + "\n0\n0\n" + pair + "\n" + files_.Dsm() +
                                               "\n" + files_.Out() + "\n" + blocks);
  }
  static std::string Block(int number, const std::vector<std::string>& photos) {
    std::string text = "block" + std::to_string(number) + "\nno camera here\n" +
                       std::to_string(photos.size()) + "\n/photos\n";
    for (const auto& photo : photos) text += photo + "\n";
    return text;
  }
  /// Twelve fields; the rectangle lies well inside the DSM.
  static std::string Line(const std::string& name, double east) {
    char text[400];
    std::snprintf(text, sizeof text, "%s\t%f\t%f\t%f\t0\t0\t0\t1\t%f\t%f\t%f\t%f", name.c_str(),
                  TinyJob::kX0 + east, TinyJob::kY0 - 12, TinyJob::kFlight, TinyJob::kX0 + east - 9,
                  TinyJob::kY0 - 19, TinyJob::kX0 + east + 9, TinyJob::kY0 - 5);
    return text;
  }
  [[nodiscard]] std::vector<std::string> OutFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(files_.Out())) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static bool Run(const std::string& path, int number) {
    return tqTORProc().BlockObs(path.c_str(), number);
  }

  TinyJob files_;
};

TEST_F(BlockObsTest, PhotosOfTheBlockGetMasksUnderTheirWholeNames) {
  const std::string path = Write(Block(1, {Line("Z.JPG", 14)}) +
                                 Block(2, {Line("A.JPG", 11), Line("B.JPG", 20) + "\t5"}));
  ASSERT_TRUE(Run(path, 2));
  EXPECT_EQ(OutFiles(), (std::vector<std::string>{"A.JPG_obs.tif", "A.JPG_obs.tif_thumb.png",
                                                  "B.JPG_obs.tif", "B.JPG_obs.tif_thumb.png"}));
  // The grid follows from the first height value: 18 x 14 units at 0.25.
  tqorkit::tqExtOri photo =
      testing::PhotoAt(TinyJob::kX0 + 11, TinyJob::kY0 - 12, TinyJob::kFlight,
                       {TinyJob::kX0 + 2, TinyJob::kY0 - 19, TinyJob::kX0 + 20, TinyJob::kY0 - 5});
  photo.SetGSD(0.25, -0.25);
  const std::string alone = files_.dir.File("alone.tif");
  tqRayTracer tracer;
  ASSERT_TRUE(tracer.DoRayTracingOnThumbnail(photo, files_.Dsm(), alone, ""));
  tqorkit::PhotoInfo expected;
  tqorkit::PhotoInfo mask;
  ASSERT_TRUE(tqimage::TqImage::QuickReadImage(alone, expected, nullptr));
  ASSERT_TRUE(tqimage::TqImage::QuickReadImage(files_.Out() + "A.JPG_obs.tif", mask, nullptr));
  EXPECT_EQ(mask.width, 73);
  EXPECT_EQ(mask.height, 57);
  EXPECT_EQ(mask.data, expected.data);
  EXPECT_NE(std::count(mask.data.begin(), mask.data.end(), 255), 0);
}

TEST_F(BlockObsTest, PhotosThatFailLeaveNothingAndNoStaleMask) {
  files_.dir.Write("out/A.JPG_obs.tif", "yesterday");
  files_.dir.Write("out/A.JPG_obs.tif_thumb.png", "yesterday");
  const std::string photos = Block(1, {Line("A.JPG", 11)});
  EXPECT_TRUE(Run(Write(photos, "1.000000", "0.000000\t0.000000"), 1)) << "cells of size 0";
  EXPECT_TRUE(OutFiles().empty());
  EXPECT_TRUE(Run(Write(Block(1, {"damaged line", Line("far.JPG", 9000)})), 1));
  EXPECT_TRUE(OutFiles().empty());
  EXPECT_TRUE(Run(Write(Block(1, {})), 1)) << "a block without photos";
}

TEST_F(BlockObsTest, FilesAndBlocksThatAreNotThereFail) {
  const testing::LogCapture log;
  const std::string photos = Block(1, {Line("A.JPG", 11)});
  EXPECT_FALSE(tqTORProc().BlockObs(nullptr, 1));
  EXPECT_FALSE(Run(files_.dir.File("none.txt"), 1));
  EXPECT_FALSE(Run(Write(photos), 2));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_FALSE(Run(Write(photos, "0.999"), 1));
  EXPECT_EQ(log.lines.size(), 1U);
  EXPECT_TRUE(OutFiles().empty());
}

}  // namespace
}  // namespace tqtortho
