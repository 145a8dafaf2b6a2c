// SPDX-License-Identifier: Apache-2.0
#include "pipeline/job_inputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "testing/comma_locale.h"

namespace tqtortho {
namespace {

using ::testing::ElementsAre;

std::map<int, tqorkit::tqIntOri> Cameras(const std::string& text) {
  std::istringstream in(text);
  std::map<int, tqorkit::tqIntOri> cameras;
  ReadCameras(in, cameras);
  return cameras;
}

std::vector<tqorkit::tqPhotoCategory> Blocks(const std::string& text, double gsd = 0.25) {
  std::istringstream in(text);
  std::vector<tqorkit::tqPhotoCategory> blocks;
  ReadPhotoList(in, gsd, blocks);
  return blocks;
}

std::vector<std::string> NamesOf(const tqorkit::tqPhotoCategory& block) {
  std::vector<std::string> names;
  for (const auto& photo : block.GetPhotos()) names.push_back(photo.GetPhotoName());
  return names;
}

const char* const kSixteen = "4000 3000 35.5 36 24 2010 1490 3 1e-2 -2 3 4 5 6 7 8\n";

TEST(ReadCamerasTest, OffsetsAndPixelSizeComeFromTheSensorWidth) {
  const testing::CommaLocale comma;  // where the machine has one, points stay decimal points
  const auto cameras = Cameras(std::string("1\n7\n  A name, with blanks \n") + kSixteen);
  ASSERT_EQ(cameras.size(), 1U);
  const auto& c = cameras.at(7).Get();
  EXPECT_EQ(c.cameraId, 7);
  EXPECT_EQ(c.name, "  A name, with blanks ");
  EXPECT_EQ(c.imageWidth, 4000);
  EXPECT_EQ(c.imageHeight, 3000);
  EXPECT_EQ(c.focalLength, 35.5);
  EXPECT_DOUBLE_EQ(c.pixelSize, 0.009);
  EXPECT_DOUBLE_EQ(c.offsetX, 0.09);
  EXPECT_DOUBLE_EQ(c.offsetY, -0.09);
  EXPECT_EQ(c.distortionModel, 3);
  EXPECT_THAT(c.coefficients, ElementsAre(0.01, -2, 3, 4, 5, 6, 7, 8));
}

TEST(ReadCamerasTest, WhatIsNoCameraIsSkippedAndTheNextOneIsRead) {
  const std::string good = std::string("2\nsecond\n") + kSixteen;
  struct Case {
    const char* what;
    std::string text;
    std::vector<int> ids;
  };
  const Case cases[] = {
      {"fifteen values",
       "2\n1\nfirst\n4000 3000 35.5 36 24 2010 1490 3 1 2 3 4 5 6 7\n" + good,
       {2}},
      {"a word among the values",
       "2\n1\nfirst\n4000 x 35 36 24 1 1 3 1 2 3 4 5 6 7 8\n" + good,
       {2}},
      {"fifteen values of which a fraction makes two",
       "2\n1\nn\n9 9 9 9 9 9 9 1.5 1 2 3 4 5 6 7\n" + good,
       {1, 2}},
      {"an empty value line", "2\n1\nfirst\n\n" + good, {2}},
      {"an id that is no number", std::string("1\nx\nname\n") + kSixteen, {0}},
      {"a rest behind the values", "1\n1\nn\n1 1 1 1 1 1 1 0 1 2 3 4 5 6 7 8 9 abc\n", {1}},
      {"a count too small", "1\n" + good + good, {2}},
      {"a count too large", "2000000000\n" + good, {2}},
      {"a negative count", "-1\n" + good, {}},
      {"no count", "two\n" + good, {}},
      {"an empty file", "", {}},
      {"a file that ends in a name", "1\n1\nname", {}},
      {"an id keeps its first record", "2\n2\nx\n1 2 3\n" + good + good, {2}},
      {"Windows line ends", "1\r\n5\r\nname\r\n1 1 1 1 1 1 1 0 1 2 3 4 5 6 7 8\r\n", {5}},
  };
  for (const Case& c : cases) {
    std::vector<int> ids;
    for (const auto& entry : Cameras(c.text)) ids.push_back(entry.first);
    EXPECT_EQ(ids, c.ids) << c.what;
  }
}

TEST(ReadPhotoListTest, PhotosGetEmptyRectangleSampleDistanceAndBlockIndex) {
  const auto blocks = Blocks("2\n1\n/a b/photos \nd/one.jpg 1.5 2.5 3.5 0.1 0.2 0.3 4\n0\nempty\n");
  ASSERT_EQ(blocks.size(), 2U);
  EXPECT_EQ(blocks[0].GetPhotoPath(), "/a b/photos ");
  EXPECT_TRUE(blocks[1].GetPhotos().empty());
  ASSERT_EQ(blocks[0].GetPhotos().size(), 1U);
  const auto& photo = blocks[0].GetPhotos()[0].Get();
  EXPECT_EQ(photo.photoName, "d/one.jpg");
  EXPECT_THAT(photo.position, ElementsAre(1.5, 2.5, 3.5, 0.1, 0.2, 0.3));
  EXPECT_EQ(photo.cameraId, 4);
  EXPECT_EQ(photo.geoRect.minX, std::numeric_limits<double>::max());
  EXPECT_EQ(photo.geoRect.maxY, -std::numeric_limits<double>::max());
  EXPECT_THAT(photo.heightPair, ElementsAre(0.25, -0.25));
  EXPECT_EQ(photo.imageBlockId, 0);
}

TEST(ReadPhotoListTest, DamagedLinesCostOnlyThemselves) {
  auto blocks = Blocks(
      "9\n3\nfirst\na 1 2 3 4 5 6 1\nb 1 2 3 4 5 6\nc 1 2 3 4 5 6 1 rest\n"
      "x\nsecond\n"                    // a count that is no number: an empty block
      "5\nthird\nd 1 2 3 4 5 6 1\n");  // the file ends early
  ASSERT_EQ(blocks.size(), 3U);
  EXPECT_THAT(NamesOf(blocks[0]), ElementsAre("a", "c"));
  EXPECT_THAT(NamesOf(blocks[1]), ElementsAre());
  EXPECT_THAT(NamesOf(blocks[2]), ElementsAre("d"));
  std::istringstream more("1\n1\np\n" + std::string(100000, 'n') + " 1 2 3 4 5 6 1\n");
  ReadPhotoList(more, 0, blocks);  // a second list continues the numbers; names have any length
  ASSERT_EQ(blocks.size(), 4U);
  EXPECT_EQ(blocks[3].GetPhotos().at(0).GetImgBlkId(), 3);
  EXPECT_EQ(NamesOf(blocks[3]).at(0).size(), 100000U);
  EXPECT_TRUE(Blocks("1\n1").empty()) << "a block without a path line";
  EXPECT_TRUE(Blocks("-3\n1\np\n").empty());
}

}  // namespace
}  // namespace tqtortho
