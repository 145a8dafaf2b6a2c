// SPDX-License-Identifier: Apache-2.0
#include "prepare/band_choice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "run/job_state.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqimage::TqImage;

/// Sample of a band (from 1) of the test photo.
int Sample(int band, int col, int row) { return 1000 * band + 40 * row + 100 * col; }

class BandChoiceTest : public ::testing::Test {
 protected:
  static constexpr int kCols = 7, kRows = 5;

  void SetUp() override {
    TqImage image;
    ASSERT_TRUE(image.Create(dir.File("p & q.tif"), kCols, kRows, 5, tqimage::kUInt16,
                             tqimage::kGeoTiff, true));
    for (int band = 1; band <= 5; ++band) {
      std::vector<std::uint16_t> cells;
      for (int i = 0; i < kCols * kRows; ++i) {
        cells.push_back(static_cast<std::uint16_t>(Sample(band, i % kCols, i / kCols)));
      }
      ASSERT_TRUE(image.WriteImage(band - 1, {0, 0, kCols, kRows}, tqimage::kUInt16, cells.data()));
    }
    ASSERT_TRUE(image.Close());
    std::ofstream(dir.File("torn.tif")) << "II*";
  }
  Survey Photos(std::vector<std::string> names) {
    Survey survey;
    survey.blocks.push_back({std::filesystem::path(dir.File("x")).parent_path().string(), {}});
    for (auto& name : names) {
      survey.blocks[0].photos.push_back({});
      survey.blocks[0].photos.back().name = std::move(name);
    }
    return survey;
  }

  testing::TempDir dir;
  std::string error;
};

TEST_F(BandChoiceTest, ShowsTheChosenBandsInTheirOrderStretchedAndClamped) {
  Survey survey = Photos({"p & q.tif", "torn.tif"});
  const BandChoice choice{{4, 1, 3}, std::pair{1500.0, 4050.0}};
  ASSERT_TRUE(ChooseBands(choice, dir.File("work"), survey, error)) << error;
  const std::string path = survey.blocks[0].path + "/p & q.tif";
  tqorkit::PhotoInfo photo;
  ASSERT_TRUE(TqImage::QuickReadImage(path, photo, nullptr));
  ASSERT_EQ(photo.bands, 3);
  ASSERT_EQ(photo.dataType, tqimage::kByte);
  for (int i = 0; i < kCols * kRows; ++i) {
    for (int b = 0; b < 3; ++b) {
      const double grey = (Sample(choice.bands[b], i % kCols, i / kCols) - 1500) / 10.0;
      EXPECT_NEAR(photo.data[3 * i + b], std::clamp(grey, 0.0, 255.0), 0.51) << i << " " << b;
    }
  }
  // The unreadable photo is still there to be complained about.
  EXPECT_TRUE(std::filesystem::exists(survey.blocks[0].path + "/torn.tif"));

  // Again: the file stays as it is. A source that changed: it does not.
  const std::string stamp = FileStamp(path);
  Survey again = Photos({"p & q.tif"});
  ASSERT_TRUE(ChooseBands(choice, dir.File("work"), again, error));
  EXPECT_EQ(FileStamp(path), stamp);
  std::filesystem::last_write_time(
      dir.File("p & q.tif"),
      std::filesystem::file_time_type::clock::now() + std::chrono::seconds(5));
  again = Photos({"p & q.tif"});
  ASSERT_TRUE(ChooseBands(choice, dir.File("work"), again, error));
  EXPECT_NE(FileStamp(path), stamp);
}

TEST_F(BandChoiceTest, SaysWhichPhotoLacksABandOrNeedsARange) {
  const std::string photo = dir.File("p & q.tif");
  const auto refused = [&](const BandChoice& choice) {
    Survey survey = Photos({"p & q.tif"});
    const std::string before = survey.blocks[0].path;
    EXPECT_FALSE(ChooseBands(choice, dir.File("work"), survey, error));
    EXPECT_EQ(survey.blocks[0].path, before);
    return error;
  };
  BandChoice choice;
  choice.bands = {6, 2, 1};
  choice.range = {0.0, 1.0};
  EXPECT_EQ(refused(choice), photo + ": has 5 bands, not band 6; choose others with --bands");
  choice.bands = {1};
  choice.range.reset();
  EXPECT_EQ(refused(choice), photo +
                                 ": samples are UInt16; say with --range LO,HI which values "
                                 "become black and white");
}

}  // namespace
}  // namespace tqtortho::host
