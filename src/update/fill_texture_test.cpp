// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "stage/messages.h"
#include "testing/threads.h"
#include "testing/update_job.h"
#include "tqfd/StringConverter.h"
#include "tqorkit/tqBinaryData.h"

namespace tqtortho {
namespace {

using testing::ByteRecord;
using testing::Calls;
using testing::Load;
using testing::LoadRecord;
using testing::UpdateJob;
using testing::Window;
using tqorkit::PhotoInfo;
using Bytes = std::vector<std::uint8_t>;

constexpr int kCols = 420, kRows = 300, kPhotos = 3;
const Window kWindows[kPhotos] = {{0, 0, 260, 300}, {120, 0, 300, 280}, {60, 30, 300, 270}};

/// A block on flat ground, photographed from three places; rectified, with masks, on disk. The
/// ground is dark, the roof bright, each photo a shade of its own.
class Job : public UpdateJob {
 public:
  using tqTORProc::GenTextureByBlock;
  using tqTORProc::GetGeoCoeff;

  Job() : UpdateJob({std::begin(kWindows), std::end(kWindows)}) {
    tqorkit::tqIntOri::INTORI camera;
    camera.imageWidth = camera.imageHeight = 1000;
    camera.focalLength = 1000;
    camera.pixelSize = 1;
    cameras[7].Set(camera);
    std::mt19937 random(5);
    const auto draw = [&](int below) { return static_cast<int>(random() % below); };
    for (auto& mask : hidden_) {
      mask.assign(static_cast<std::size_t>(kCols) * kRows, false);
      for (int blob = 0; blob < 150; ++blob) {
        const int row = draw(kRows), col = draw(kCols), rows = 1 + draw(14), cols = 1 + draw(14);
        for (int r = row; r < std::min(row + rows, kRows); ++r) {
          for (int c = col; c < std::min(col + cols, kCols); ++c) mask[Index(r, c)] = true;
        }
      }
    }
    for (int p = 0; p < kPhotos; ++p) WritePhoto(p);
    PhotoInfo dsm = ByteRecord(kCols, kRows, 4);
    dsm.bands = 1;
    dsm.dataType = tqimage::kFloat32;
    auto* heights = reinterpret_cast<float*>(dsm.data.data());
    for (int i = 0; i < kCols * kRows; ++i) heights[i] = IsRoof(i / kCols, i % kCols) ? 12 : 3;
    Save(dir.File("dsm.tif"), dsm, {0, 0, kCols, kRows});
  }

  static std::size_t Index(int row, int col) { return static_cast<std::size_t>(row) * kCols + col; }
  static bool IsRoof(int row, int col) {
    return row >= 120 && row < 180 && col >= 150 && col < 250;
  }
  /// Ground beside the roof that nobody sees, and a place without heights.
  static bool IsLane(int row, int col) {
    return row >= 180 && row < 192 && col >= 150 && col < 250;
  }
  static bool IsVoid(int row, int col) { return row >= 60 && row < 75 && col >= 200 && col < 222; }
  bool IsHidden(int p, int row, int col) const {
    return IsLane(row, col) || hidden_[p][Index(row, col)];
  }
  static bool Covers(int p, int row, int col) {
    const Window& w = kWindows[p];
    // The frame of photo 2 leaves a corner of its raster empty.
    return row >= w.row && row < w.row + w.rows && col >= w.col && col < w.col + w.cols &&
           !IsVoid(row, col) && !(p == 2 && row + col < 130);
  }
  bool Sees(int p, int row, int col) const { return Covers(p, row, col) && !IsHidden(p, row, col); }
  static std::uint8_t Colour(int p, int row, int col, int band) {
    return static_cast<std::uint8_t>((IsRoof(row, col) ? 180 : 40) + 20 * p + 5 * band +
                                     (3 * row + col) % 4);
  }
  bool MakeTexture(Calls* calls = nullptr) {
    return GennerateFillTexture(Prefix(), calls ? Calls::Callback : nullptr, calls);
  }
  bool Update(Calls* calls = nullptr) { return Run(&Job::UpdateOrthoImagesEx, calls); }
  static std::vector<std::uint16_t> Map() {
    tqorkit::tqBinaryData map;
    std::vector<std::uint16_t> cells(static_cast<std::size_t>(kCols) * kRows);
    EXPECT_TRUE(map.Open(tqfd::StringConverter::Convert(PixMapPath())));
    EXPECT_TRUE(map.ReadBlkData(0, 0, kCols, kRows, cells.data()));
    return cells;
  }
  /// Calls visit(row, col, cell) for the cells of a photo's raster.
  static void ForCells(int p, const std::function<void(int, int, std::size_t)>& visit) {
    const Window& w = kWindows[p];
    for (int i = 0; i < w.cols * w.rows; ++i) {
      visit(w.row + i / w.cols, w.col + i % w.cols, static_cast<std::size_t>(i));
    }
  }

 private:
  void WritePhoto(int p) {
    const Window& w = kWindows[p];
    const auto value = [&](int row, int col, int band) -> std::uint8_t {
      if (!Covers(p, row + w.row, col + w.col)) return IsVoid(row + w.row, col + w.col) ? 0 : 1;
      // Hidden cells show what hides them.
      if (IsHidden(p, row + w.row, col + w.col)) return 250;
      return Colour(p, row + w.row, col + w.col, band);
    };
    WriteRaster(Ortho(p), w, 3, value);
    WriteRaster(Hidden(p), w, 1, [&](int row, int col, int) -> std::uint8_t {
      return IsHidden(p, row + w.row, col + w.col) ? 255 : 0;
    });
  }

  std::vector<bool> hidden_[kPhotos];
};

TEST(FillTextureTest, EverySeenCellComesFromAPhotoThatSeesItOnTheMosaicsGrid) {
  Job job;
  Calls calls;
  ASSERT_TRUE(job.MakeTexture(&calls));
  EXPECT_DOUBLE_EQ(calls.percents.back(), 100);
  EXPECT_EQ(calls.messages.back(), ToGbk(message::kTexturing));
  tqimage::GeoCoefficients geo;
  const PhotoInfo texture = LoadRecord(TexturePath(), &geo);
  ASSERT_EQ(texture.bands, 3);
  ASSERT_EQ(texture.width, kCols);
  ASSERT_EQ(texture.height, kRows);
  EXPECT_EQ(geo.GetOrigin(), job.GetGeoCoeff().GetOrigin());
  EXPECT_EQ(geo.GetResolution(), job.GetGeoCoeff().GetResolution());
  const auto map = Job::Map();
  int inside = 0;
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const int number = map[Job::Index(row, col)];
      const bool seen = job.Sees(0, row, col) || job.Sees(1, row, col) || job.Sees(2, row, col);
      ASSERT_EQ(number != 0, seen) << row << " " << col;
      if (!seen) continue;
      ASSERT_TRUE(job.Sees(number - 1, row, col)) << row << " " << col;
      bool seam = false;
      for (int r = std::max(row - 4, 0); r <= std::min(row + 4, kRows - 1); ++r) {
        for (int c = std::max(col - 4, 0); c <= std::min(col + 4, kCols - 1); ++c) {
          seam = seam || (map[Job::Index(r, c)] != number && map[Job::Index(r, c)] != 0);
        }
      }
      for (int b = 0; b < 3; ++b) {
        const int colour = texture.data[3 * Job::Index(row, col) + b];
        if (!seam) {
          ASSERT_EQ(colour, Job::Colour(number - 1, row, col, b)) << row << " " << col;
        }
        ASSERT_LT(colour, 240) << "the colour of what hides, at " << row << " " << col;
      }
      inside += seam ? 0 : 1;
    }
  }
  EXPECT_GT(inside, kCols * kRows / 2);
}

TEST(FillTextureTest, HowBlocksAreCutDoesNotShow) {
  Job job;
  ASSERT_TRUE(job.MakeTexture());
  const Bytes texture = Load(TexturePath());
  const auto map = Job::Map();
  Bytes colours;
  std::vector<std::uint16_t> numbers;
  for (int row = 0; row < kRows; row += 61) {
    for (int col = 0; col < kCols; col += 97) {
      const int endCol = std::min(col + 97, kCols), endRow = std::min(row + 61, kRows);
      ASSERT_TRUE(
          job.GenTextureByBlock(job.Prefix(), {col, row, endCol, endRow}, colours, numbers));
      for (std::size_t i = 0; i < numbers.size(); ++i) {
        const int k = static_cast<int>(i);
        const std::size_t at = Job::Index(row + k / (endCol - col), col + k % (endCol - col));
        ASSERT_EQ(numbers[i], map[at]) << at;
        for (int b = 0; b < 3; ++b) ASSERT_EQ(colours[3 * i + b], texture[3 * at + b]) << at;
      }
    }
  }
  EXPECT_FALSE(job.GenTextureByBlock(job.Prefix(), {400, 0, kCols + 1, 9}, colours, numbers));
  EXPECT_FALSE(job.GenTextureByBlock(job.Prefix(), {9, 9, 9, 20}, colours, numbers));
}

TEST(FillTextureTest, WhatNobodySeesIsFilledFromItsOwnLevelAndNothingBeyondThePhotos) {
  for (const bool haveHeights : {true, false}) {
    Job job;
    if (!haveHeights) std::filesystem::remove(job.dir.File("dsm.tif"));
    ASSERT_TRUE(job.MakeTexture());
    const Bytes texture = Load(TexturePath());
    const auto map = Job::Map();
    int bright = 0;
    for (int row = 0; row < kRows; ++row) {
      for (int col = 0; col < kCols; ++col) {
        const int colour = texture[3 * Job::Index(row, col)];
        const bool lane = Job::IsLane(row, col);
        if (lane || Job::IsVoid(row, col)) {
          ASSERT_EQ(map[Job::Index(row, col)], 0);
          ASSERT_GT(colour, 0) << row << " " << col;
        }
        if (lane && colour > 110) ++bright;
        ASSERT_FALSE(row >= 280 && col >= 360 && colour != 0) << "beyond all rasters";
      }
    }
    // Without heights the roof is as near as the ground.
    EXPECT_EQ(bright == 0, haveHeights) << bright;
  }
}

TEST(FillTextureTest, AStopLeavesTheEarlierFilesAndPhotosWithoutMaskSupplyNothing) {
  Job job;
  EXPECT_FALSE(job.Update()) << "no texture";
  job.dir.Write("tmp/ot/textures.tif", "earlier");
  job.dir.Write("tmp/ot/pix_map.bin", "earlier");
  Calls calls;
  calls.answer = 0;
  EXPECT_FALSE(job.MakeTexture(&calls));
  EXPECT_EQ(calls.percents.size(), 1U);
  EXPECT_EQ(std::filesystem::file_size(TexturePath()), 7U);
  EXPECT_EQ(std::filesystem::file_size(PixMapPath()), 7U);
  std::filesystem::remove(job.Hidden(0));
  std::filesystem::copy_file(job.Ortho(0), job.Ortho(2),
                             std::filesystem::copy_options::overwrite_existing);
  ASSERT_TRUE(job.MakeTexture());
  EXPECT_THAT(Job::Map(), ::testing::Each(::testing::AnyOf(0, 2)));
  std::filesystem::remove(ParamFilePath());
  EXPECT_FALSE(job.MakeTexture());
}

TEST(FillUpdateTest, HiddenCellsAndHolesTakeTheTextureAndSeenCellsKeepTheirBytes) {
  Job job;
  ASSERT_TRUE(job.MakeTexture());
  const Bytes texture = Load(TexturePath());
  const auto map = Job::Map();
  Bytes before[kPhotos];
  for (int p = 0; p < kPhotos; ++p) before[p] = Load(job.Ortho(p));
  Calls calls;
  ASSERT_TRUE(job.Update(&calls));
  EXPECT_EQ(calls.percents.size(), 3U);
  EXPECT_NEAR(calls.percents.back(), 100, 1e-9);
  int othersColours = 0;
  for (int p = 0; p < kPhotos; ++p) {
    const Bytes after = Load(job.Ortho(p));
    Job::ForCells(p, [&](int row, int col, std::size_t i) {
      const bool fill =
          (Job::Covers(p, row, col) && job.IsHidden(p, row, col)) || Job::IsVoid(row, col);
      const int number = map[Job::Index(row, col)];
      for (int b = 0; b < 3; ++b) {
        const int filled = texture[3 * Job::Index(row, col) + b];
        ASSERT_EQ(after[3 * i + b], fill ? filled : before[p][3 * i + b])
            << p << ": " << row << " " << col;
        if (fill && number != 0 && filled == Job::Colour(number - 1, row, col, b)) ++othersColours;
      }
    });
  }
  EXPECT_GT(othersColours, 10000);
  const Bytes once = Load(job.Ortho(0));
  ASSERT_TRUE(job.Update());
  EXPECT_EQ(Load(job.Ortho(0)), once) << "a second update changes nothing";
  // The full update takes the same two files.
  ASSERT_TRUE(job.Run(&Job::UpdateOrthoImages));
  const Bytes full = Load(job.Ortho(1));
  Job::ForCells(1, [&](int row, int col, std::size_t i) {
    if (Job::Covers(1, row, col) && col > kWindows[1].col) {
      ASSERT_EQ(full[3 * i], texture[3 * Job::Index(row, col)]) << row << " " << col;
    }
  });
}

}  // namespace
}  // namespace tqtortho
