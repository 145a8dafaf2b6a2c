// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>

#include "job/messages.h"
#include "job/photo_files.h"
#include "testing/progress_calls.h"
#include "testing/temp_dir.h"
#include "tqfd/PathHelper.h"
#include "tqfd/StringConverter.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqorkit/tqBinaryData.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

using testing::Calls;
using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using Bytes = std::vector<std::uint8_t>;

constexpr int kCols = 420, kRows = 300, kPhotos = 3;
constexpr double kWest = 500000.5, kNorth = 5400000.5, kGsd = 0.5;
const tqfd::Rect2_T<int> kWindows[kPhotos] = {
    {0, 0, 260, 300}, {120, 0, 420, 280}, {60, 30, 360, 300}};

PhotoInfo Record(int cols, int rows, int bands) {
  PhotoInfo image;
  image.width = cols;
  image.height = rows;
  image.bands = bands;
  image.dataType = tqimage::kByte;
  image.data.resize(static_cast<std::size_t>(cols) * rows * bands);
  return image;
}

PhotoInfo Load(const std::string& path, GeoCoefficients* geo = nullptr) {
  PhotoInfo image;
  EXPECT_TRUE(TqImage::QuickReadImage(path, image, geo)) << path;
  return image;
}

/// A block on flat ground, photographed from three places; rectified, with masks, on disk. The
/// ground is dark, the roof bright, each photo a shade of its own.
class Job : public tqTORProc {
 public:
  using tqTORProc::FillImgInvalidHoles;
  using tqTORProc::FillImgObscure;
  using tqTORProc::GenTextureByBlock;
  using tqTORProc::GetGeoCoeff;
  using tqTORProc::photoBlocks;

  Job() {
    tqfd::PathHelper::SetProgramDataDirectory(dir.File("data"));
    tqorkit::TqFSManager::SetOutputTmpFilePath(dir.File("tmp"));
    std::filesystem::create_directories(dir.File("out"));
    dir.Write("data/ortho_data/orParam.txt",
              "1\n1.0\n0\n0\n0.500000\t0.000000\n" + dir.File("dsm.tif") + "\nout\n");
    tqorkit::tqIntOri::INTORI camera;
    camera.imageWidth = camera.imageHeight = 1000;
    camera.focalLength = 1000;
    camera.pixelSize = 1;
    cameras[7].Set(camera);
    std::mt19937 random(5);
    for (auto& mask : hidden_) {
      mask.assign(static_cast<std::size_t>(kCols) * kRows, false);
      for (int blob = 0; blob < 150; ++blob) {
        const int row = static_cast<int>(random() % kRows),
                  col = static_cast<int>(random() % kCols);
        const int rows = 1 + static_cast<int>(random() % 14),
                  cols = 1 + static_cast<int>(random() % 14);
        for (int r = row; r < std::min(row + rows, kRows); ++r) {
          for (int c = col; c < std::min(col + cols, kCols); ++c) mask[Index(r, c)] = true;
        }
      }
    }
    photoBlocks.resize(2);
    for (int p = 0; p < kPhotos; ++p) AddPhoto(p, kWindows[p]);
    auto dsm = Record(kCols, kRows, 1);
    dsm.dataType = tqimage::kFloat32;
    dsm.data.resize(4 * dsm.data.size());
    auto* heights = reinterpret_cast<float*>(dsm.data.data());
    for (int i = 0; i < kCols * kRows; ++i) heights[i] = IsRoof(i / kCols, i % kCols) ? 12 : 3;
    Save(dir.File("dsm.tif"), dsm, 0, 0);
  }
  ~Job() override {
    tqfd::PathHelper::SetProgramDataDirectory("");
    tqorkit::TqFSManager::SetOutputTmpFilePath("");
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
    const auto& w = kWindows[p];
    // The frame of photo 2 leaves a corner of its raster empty.
    return row >= w.minY && row < w.maxY && col >= w.minX && col < w.maxX && !IsVoid(row, col) &&
           !(p == 2 && row + col < 130);
  }
  bool Sees(int p, int row, int col) const { return Covers(p, row, col) && !IsHidden(p, row, col); }
  static std::uint8_t Colour(int p, int row, int col, int band) {
    return static_cast<std::uint8_t>((IsRoof(row, col) ? 180 : 40) + 20 * p + 5 * band +
                                     (3 * row + col) % 4);
  }
  std::string Prefix() const { return dir.File("out") + "/"; }
  std::string Ortho(int p) const {
    return OrthoName(Prefix(), std::string(1, static_cast<char>('a' + p)) + ".jpg", p / 2);
  }
  bool MakeTexture(Calls* calls = nullptr) {
    return GennerateFillTexture(Prefix(), calls ? Calls::Callback : nullptr, calls);
  }
  bool Update(Calls* calls = nullptr) {
    return UpdateOrthoImagesEx("none", Prefix(), calls ? Calls::Callback : nullptr, calls);
  }
  static std::vector<std::uint16_t> Map() {
    tqorkit::tqBinaryData map;
    std::vector<std::uint16_t> cells(static_cast<std::size_t>(kCols) * kRows);
    EXPECT_TRUE(map.Open(tqfd::StringConverter::Convert(PixMapPath())));
    EXPECT_TRUE(map.ReadBlkData(0, 0, kCols, kRows, cells.data()));
    return cells;
  }
  /// Calls visit(row, col, cell) for the cells of a photo's raster.
  static void ForCells(int p, const std::function<void(int, int, std::size_t)>& visit) {
    std::size_t i = 0;
    for (int row = kWindows[p].minY; row < kWindows[p].maxY; ++row) {
      for (int col = kWindows[p].minX; col < kWindows[p].maxX; ++col) visit(row, col, i++);
    }
  }

  testing::TempDir dir;

 private:
  static void Save(const std::string& path, const PhotoInfo& image, int col, int row) {
    const double at[] = {kWest + col * kGsd, kGsd, 0, kNorth - row * kGsd, 0, -kGsd};
    const GeoCoefficients geo(at, image.width, image.height);
    ASSERT_TRUE(TqImage::QuickWriteImage(path, image, &geo, true));
  }
  void AddPhoto(int p, const tqfd::Rect2_T<int>& w) {
    tqorkit::tqExtOri::EXTORI record;
    record.photoName = std::string(1, static_cast<char>('a' + p)) + ".jpg";
    record.imageBlockId = p / 2;
    record.cameraId = 7;
    record.position[0] = kWest + (w.minX + w.maxX) * 0.5 * kGsd;
    record.position[1] = kNorth - (w.minY + w.maxY) * 0.5 * kGsd;
    record.position[2] = 150;
    record.geoRect = {kWest + w.minX * kGsd, kNorth - (w.maxY - 1) * kGsd,
                      kWest + (w.maxX - 1) * kGsd, kNorth - w.minY * kGsd};
    tqorkit::tqExtOri photo;
    photo.Set(record);
    photoBlocks[static_cast<std::size_t>(p / 2)].InsertPhoto(photo);
    auto ortho = Record(w.maxX - w.minX, w.maxY - w.minY, 3);
    auto mask = Record(w.maxX - w.minX, w.maxY - w.minY, 1);
    ForCells(p, [&](int row, int col, std::size_t i) {
      mask.data[i] = IsHidden(p, row, col) ? 255 : 0;
      for (int b = 0; b < 3; ++b) {
        const std::uint8_t empty = IsVoid(row, col) ? 0 : 1;
        // Hidden cells show what hides them.
        const std::uint8_t shown = mask.data[i] != 0 ? 250 : Colour(p, row, col, b);
        ortho.data[3 * i + b] = Covers(p, row, col) ? shown : empty;
      }
    });
    Save(Ortho(p), ortho, w.minX, w.minY);
    Save(ObscuredMaskName(Ortho(p)), mask, w.minX, w.minY);
  }

  std::vector<bool> hidden_[kPhotos];
};

TEST(FillTextureTest, EverySeenCellComesFromAPhotoThatSeesItOnTheMosaicsGrid) {
  Job job;
  Calls calls;
  ASSERT_TRUE(job.MakeTexture(&calls));
  EXPECT_DOUBLE_EQ(calls.percents.back(), 100);
  EXPECT_EQ(calls.messages.back(), ToGbk(message::kTexturing));
  GeoCoefficients geo;
  const PhotoInfo texture = Load(TexturePath(), &geo);
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
  const Bytes texture = Load(TexturePath()).data;
  const auto map = Job::Map();
  for (const auto& [width, height] : {std::pair{kCols, 40}, {97, 61}, {33, kRows}}) {
    for (int row = 0; row < kRows; row += height) {
      for (int col = 0; col < kCols; col += width) {
        const int endCol = std::min(col + width, kCols), endRow = std::min(row + height, kRows);
        Bytes colours;
        std::vector<std::uint16_t> numbers;
        ASSERT_TRUE(
            job.GenTextureByBlock(job.Prefix(), {col, row, endCol, endRow}, colours, numbers));
        for (std::size_t i = 0; i < numbers.size(); ++i) {
          const std::size_t at = Job::Index(row + static_cast<int>(i) / (endCol - col),
                                            col + static_cast<int>(i) % (endCol - col));
          ASSERT_EQ(numbers[i], map[at]) << width << ": " << at;
          for (int b = 0; b < 3; ++b) ASSERT_EQ(colours[3 * i + b], texture[3 * at + b]) << at;
        }
      }
    }
  }
  Bytes colours;
  std::vector<std::uint16_t> numbers;
  EXPECT_FALSE(job.GenTextureByBlock(job.Prefix(), {400, 0, kCols + 1, 9}, colours, numbers));
  EXPECT_FALSE(job.GenTextureByBlock(job.Prefix(), {9, 9, 9, 20}, colours, numbers));
}

TEST(FillTextureTest, WhatNobodySeesIsFilledFromItsOwnLevelAndNothingBeyondThePhotos) {
  for (const bool haveHeights : {true, false}) {
    Job job;
    if (!haveHeights) std::filesystem::remove(job.dir.File("dsm.tif"));
    ASSERT_TRUE(job.MakeTexture());
    const PhotoInfo texture = Load(TexturePath());
    const auto map = Job::Map();
    int bright = 0;
    for (int row = 0; row < kRows; ++row) {
      for (int col = 0; col < kCols; ++col) {
        const int colour = texture.data[3 * Job::Index(row, col)];
        const bool lane = Job::IsLane(row, col);
        if (lane || Job::IsVoid(row, col)) {
          ASSERT_EQ(map[Job::Index(row, col)], 0);
          ASSERT_GT(colour, 0) << row << " " << col;
        }
        if (lane && colour > 110) ++bright;
        if (row >= 280 && col >= 360) {
          ASSERT_EQ(colour, 0) << "beyond all rasters";
        }
      }
    }
    if (haveHeights) {
      EXPECT_EQ(bright, 0) << "the roof's colour on the ground";
    } else {
      EXPECT_GT(bright, 0) << "without heights the roof is as near as the ground";
    }
  }
}

TEST(FillTextureTest, PhotosWithoutMaskOrOfAnotherSizeSupplyNothing) {
  Job job;
  std::filesystem::remove(ObscuredMaskName(job.Ortho(0)));
  std::filesystem::copy_file(job.Ortho(0), job.Ortho(2),
                             std::filesystem::copy_options::overwrite_existing);
  ASSERT_TRUE(job.MakeTexture());
  const auto map = Job::Map();
  EXPECT_THAT(map, ::testing::Each(::testing::AnyOf(0, 2)));
  EXPECT_THAT(map, ::testing::Contains(2));
}

TEST(FillTextureTest, AStopOrAFailureLeavesTheEarlierFiles) {
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
  ASSERT_TRUE(job.MakeTexture());
  const Bytes before = Load(job.Ortho(1)).data;
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  calls = {};
  calls.answer = 0;
  EXPECT_FALSE(job.Update(&calls));
  omp_set_num_threads(threads);
  EXPECT_EQ(calls.percents.size(), 1U);
  EXPECT_EQ(Load(job.Ortho(1)).data, before);
  std::filesystem::remove(ParamFilePath());
  EXPECT_FALSE(job.MakeTexture());
  job.photoBlocks.clear();
  EXPECT_FALSE(job.MakeTexture());
}

TEST(FillUpdateTest, HiddenCellsAndHolesTakeTheTextureAndSeenCellsKeepTheirBytes) {
  Job job;
  ASSERT_TRUE(job.MakeTexture());
  const PhotoInfo texture = Load(TexturePath());
  const auto map = Job::Map();
  Bytes before[kPhotos];
  for (int p = 0; p < kPhotos; ++p) before[p] = Load(job.Ortho(p)).data;
  Calls calls;
  ASSERT_TRUE(job.Update(&calls));
  EXPECT_EQ(calls.percents.size(), 3U);
  EXPECT_NEAR(calls.percents.back(), 100, 1e-9);
  int othersColours = 0;
  for (int p = 0; p < kPhotos; ++p) {
    const Bytes after = Load(job.Ortho(p)).data;
    Job::ForCells(p, [&](int row, int col, std::size_t i) {
      const bool fill =
          (Job::Covers(p, row, col) && job.IsHidden(p, row, col)) || Job::IsVoid(row, col);
      const int number = map[Job::Index(row, col)];
      for (int b = 0; b < 3; ++b) {
        const int filled = texture.data[3 * Job::Index(row, col) + b];
        ASSERT_EQ(after[3 * i + b], fill ? filled : before[p][3 * i + b])
            << p << ": " << row << " " << col;
        if (fill && number != 0 && filled == Job::Colour(number - 1, row, col, b)) ++othersColours;
      }
    });
  }
  EXPECT_GT(othersColours, 10000);
  const Bytes once = Load(job.Ortho(0)).data;
  ASSERT_TRUE(job.Update());
  EXPECT_EQ(Load(job.Ortho(0)).data, once) << "a second update changes nothing";
  // The full update takes the same two files.
  ASSERT_TRUE(job.UpdateOrthoImages("none", job.Prefix(), nullptr, nullptr));
  const Bytes full = Load(job.Ortho(1)).data;
  Job::ForCells(1, [&](int row, int col, std::size_t i) {
    if (Job::Covers(1, row, col) && col > kWindows[1].minX) {
      ASSERT_EQ(full[3 * i], texture.data[3 * Job::Index(row, col)]) << row << " " << col;
    }
  });
}

TEST(FillUpdateTest, OnlyEnclosedCellsAreHolesAndCellsWithoutTextureStay) {
  // 0 and 1 are empty; 9 is data.
  auto ortho = Record(6, 5, 1);
  ortho.data = {0, 9, 9, 9, 9, 9,  //
                9, 0, 1, 9, 0, 9,  //
                9, 9, 9, 9, 9, 1,  //
                9, 1, 9, 9, 0, 0,  //
                9, 9, 9, 0, 9, 9};
  auto texture = Record(6, 5, 1);
  std::fill(texture.data.begin(), texture.data.end(), 70);
  texture.data[10] = 0;
  const Bytes holesFilled = {0, 9,  9,  9, 9, 9,  //
                             9, 70, 70, 9, 0, 9,  //
                             9, 9,  9,  9, 9, 1,  //
                             9, 70, 9,  9, 0, 0,  //
                             9, 9,  9,  0, 9, 9};
  auto holes = ortho;
  EXPECT_TRUE(Job::FillImgInvalidHoles(texture, holes));
  EXPECT_EQ(holes.data, holesFilled);
  auto hidden = Record(6, 5, 1);
  hidden.data[0] = hidden.data[1] = 255;
  hidden.data[2] = 254;
  auto seen = ortho;
  EXPECT_TRUE(Job::FillImgObscure(hidden, texture, seen));
  Bytes expected = ortho.data;
  expected[1] = 70;
  EXPECT_EQ(seen.data, expected);
  auto small = Record(6, 4, 1);
  EXPECT_FALSE(Job::FillImgObscure(small, texture, seen));
  EXPECT_FALSE(Job::FillImgObscure(hidden, small, seen));
  EXPECT_FALSE(Job::FillImgInvalidHoles(small, seen));
  EXPECT_EQ(seen.data, expected);
}

}  // namespace
}  // namespace tqtortho
