// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include "job/messages.h"
#include "job/photo_files.h"
#include "testing/progress_calls.h"
#include "testing/temp_dir.h"
#include "tqfd/Logger.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqorkit/tqBinaryData.h"
#include "tqtortho/tqTORProc.h"
#include "update/feather_blend.h"
#include "update/ownership_mask.h"

namespace tqtortho {
namespace {

using ::testing::DoubleEq;
using ::testing::Each;
using ::testing::ElementsAre;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using tqorkit::TqFSManager;
using Bytes = std::vector<std::uint8_t>;
using Colour = std::array<std::uint8_t, 3>;

using testing::Calls;

/// Cells of a photo on the mosaic grid.
struct Window {
  int col, row, cols, rows;
};

constexpr double kX0 = 352345.25, kY0 = 5412345.75, kGsd = 0.25;

/// A finished job of one-coloured orthos, block by block of two photos, with a texture whose
/// colours tell the cell; hidden cells are those of columns 10 to 14 of each photo.
class Job : public tqTORProc {
 public:
  using tqTORProc::photoBlocks;
  using tqTORProc::photoList;

  Job(int cols, int rows, const std::vector<Window>& windows)
      : cols_(cols), rows_(rows), windows_(windows) {
    tqfd::PathHelper::SetProgramDataDirectory(dir.File("data"));
    TqFSManager::SetOutputTmpFilePath(dir.File("tmp"));
    std::filesystem::create_directories(dir.File("out"));
    dir.Write("data/ortho_data/orParam.txt", "1\n1.0\n0\n0\n0.250000\t0.000000\ndsm\nout\n");
    tqfd::Logger::SetSink([this](std::string_view text) { logged.emplace_back(text); });
    for (int i = 0; i < static_cast<int>(windows.size()); ++i) {
      const Window& w = windows[static_cast<std::size_t>(i)];
      if (i % 2 == 0) photoBlocks.emplace_back();
      tqorkit::tqExtOri::EXTORI record;
      record.photoName = std::string(1, static_cast<char>('a' + i)) + ".jpg";
      record.imageBlockId = i / 2;
      record.geoRect = {kX0 + w.col * kGsd, kY0 - (w.row + w.rows - 1) * kGsd,
                        kX0 + (w.col + w.cols - 1) * kGsd, kY0 - w.row * kGsd};
      tqorkit::tqExtOri photo;
      photo.Set(record);
      photo.SetGSD(kGsd, -kGsd);
      photoBlocks.back().InsertPhoto(photo);
      WriteRaster(Ortho(i), w, 3, [&](int, int, int) { return std::uint8_t(200 + i); });
      WriteRaster(Hidden(i), w, 1,
                  [](int, int col, int) { return std::uint8_t(IsHidden(col) ? 255 : 7); });
    }
    WriteTexture([](int, int) { return true; });
    WriteMap([](int, int) { return 0; });
  }
  ~Job() override {
    tqfd::Logger::SetSink({});
    tqfd::PathHelper::SetProgramDataDirectory("");
    TqFSManager::SetOutputTmpFilePath("");
  }

  static bool IsHidden(int col) { return col >= 10 && col < 15; }
  static Colour TextureColour(int row, int col) {
    return {std::uint8_t(1 + col % 100), std::uint8_t(1 + row % 100), std::uint8_t(row / 100)};
  }
  static void WriteRaster(const std::string& path, const Window& w, int bands,
                          const std::function<std::uint8_t(int row, int col, int band)>& value) {
    PhotoInfo image;
    image.width = w.cols;
    image.height = w.rows;
    image.bands = bands;
    image.dataType = tqimage::kByte;
    for (int row = 0; row < w.rows; ++row) {
      for (int col = 0; col < w.cols; ++col) {
        for (int band = 0; band < bands; ++band) image.data.push_back(value(row, col, band));
      }
    }
    const double transform[] = {kX0 + w.col * kGsd, kGsd, 0, kY0 - w.row * kGsd, 0, -kGsd};
    const tqimage::GeoCoefficients geo(transform, w.cols, w.rows);
    ASSERT_TRUE(TqImage::QuickWriteImage(path, image, &geo, true)) << path;
  }
  void WriteTexture(const std::function<bool(int row, int col)>& present) const {
    WriteRaster(TexturePath(), {0, 0, cols_, rows_}, 3, [&](int row, int col, int band) {
      return present(row, col) ? TextureColour(row, col)[static_cast<std::size_t>(band)]
                               : std::uint8_t{0};
    });
  }
  void WriteMap(const std::function<int(int row, int col)>& number) {
    map.clear();
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        map.push_back(static_cast<std::uint16_t>(number(row, col)));
      }
    }
    tqorkit::tqBinaryData file;
    ASSERT_TRUE(file.Create(PixMapPath(), cols_, rows_, 2));
    ASSERT_TRUE(file.SaveBlkData(0, 0, cols_, rows_, map.data()));
    ASSERT_TRUE(file.Close());
  }
  [[nodiscard]] std::string Ortho(int i) const {
    return dir.File("out") + "/" + static_cast<char>('a' + i) + "_" + std::to_string(i / 2) +
           ".jpg";
  }
  [[nodiscard]] std::string Hidden(int i) const { return Ortho(i) + "_obs.tif"; }
  [[nodiscard]] std::string Owned(int i) const {
    return dir.File("out") + "/" + static_cast<char>('a' + i) + "_" + std::to_string(i / 2) +
           ".msk";
  }
  bool Update(Calls* calls = nullptr) {
    return UpdateOrthoImages("none", dir.File("out") + "/", calls ? Calls::Callback : nullptr,
                             calls);
  }
  bool Mark(Calls* calls = nullptr) {
    return UpdateOrthoImagesMarkOcc("none", dir.File("out") + "/",
                                    calls ? Calls::Callback : nullptr, calls);
  }
  /// The ortho as it must look: the texture where it has a colour, else the photo.
  [[nodiscard]] Bytes Filled(int i, const std::function<bool(int row, int col)>& present) const {
    const Window& w = windows_[static_cast<std::size_t>(i)];
    Bytes cells;
    for (int row = w.row; row < w.row + w.rows; ++row) {
      for (int col = w.col; col < w.col + w.cols; ++col) {
        const auto own = std::uint8_t(200 + i);
        const Colour c = present(row, col) ? TextureColour(row, col) : Colour{own, own, own};
        cells.insert(cells.end(), c.begin(), c.end());
      }
    }
    return cells;
  }

  testing::TempDir dir;
  std::vector<std::string> logged;
  std::vector<std::uint16_t> map;

 private:
  int cols_, rows_;
  std::vector<Window> windows_;
};

Bytes Load(const std::string& path, PhotoInfo* record = nullptr) {
  PhotoInfo image;
  EXPECT_TRUE(TqImage::QuickReadImage(path, image, nullptr)) << path;
  if (record != nullptr) *record = image;
  return image.data;
}

const std::vector<Window> kTwo{{0, 0, 40, 50}, {20, 3, 40, 47}};

TEST(OrthoUpdateTest, TextureReplacesWhatItHasAndThePhotoStaysElsewhere) {
  Job job(60, 50, kTwo);
  const auto present = [](int row, int col) { return (row / 7 + col / 5) % 3 != 0; };
  job.WriteTexture(present);
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  for (const int i : {0, 1}) EXPECT_EQ(Load(job.Ortho(i)), job.Filled(i, present)) << i;
  EXPECT_THAT(calls.percents, ElementsAre(50, 100, 150, 200));
  EXPECT_THAT(calls.messages, Each(ToGbk(message::kUpdating)));
  const Bytes once = Load(job.Ortho(0));
  EXPECT_TRUE(job.Update()) << "without a callback";
  EXPECT_EQ(Load(job.Ortho(0)), once) << "a second update changes nothing";
}

TEST(OrthoUpdateTest, OwnershipMasksComeFromTheStartOfTheStripsMapAndLieOnTheOrtho) {
  Job job(60, 50, kTwo);
  job.WriteMap([](int row, int col) { return col < 30 ? 1 : row < 8 ? 0 : 3; });
  EXPECT_TRUE(job.Update());
  for (const int i : {0, 1}) {
    const int cols = kTwo[static_cast<std::size_t>(i)].cols;
    const int rows = kTwo[static_cast<std::size_t>(i)].rows;
    Bytes plain;
    for (int k = 0; k < (cols - 1) * (rows - 1); ++k) {
      const int number = job.map[static_cast<std::size_t>(k)];
      plain.push_back(number == 0 || number == i + 1 ? 255 : 0);
    }
    PhotoInfo mask;
    EXPECT_EQ(Load(job.Owned(i), &mask), GrowOwnership({plain.data(), rows - 1, cols - 1})) << i;
    EXPECT_EQ(mask.width, cols);
    EXPECT_EQ(mask.height, rows);
    EXPECT_THAT(mask.geoRect[0], DoubleEq(kX0 + kTwo[static_cast<std::size_t>(i)].col * kGsd));
    EXPECT_THAT(mask.geoRect[3], DoubleEq(kY0 - kTwo[static_cast<std::size_t>(i)].row * kGsd));
    EXPECT_THAT(mask.resY, DoubleEq(-kGsd));
  }
}

// Blocks of the map and the texture then begin at columns and rows other than 0.
TEST(OrthoUpdateTest, EveryStripTakesItsOwnPartOfTheGrid) {
  Job job(30, 12000, {{0, 11930, 1, 2}, {5, 11900, 20, 100}, {8, 0, 20, 60}, {0, 40, 20, 60}});
  job.WriteMap([](int row, int) { return row < 6000 ? 0 : 2; });
  ::testing::internal::CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  const auto all = [](int, int) { return true; };
  for (const int i : {1, 2, 3}) EXPECT_EQ(Load(job.Ortho(i)), job.Filled(i, all)) << i;
  EXPECT_THAT(Load(job.Owned(1)), Each(255)) << "its own cells all over";
  EXPECT_THAT(Load(job.Owned(2)), Each(255)) << "nobody's cells all over";
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100, 125, 150));
}

TEST(OrthoUpdateTest, NarrowPhotosAndUnreadableFilesAreLeftOutAlone) {
  Job job(60, 50, {{0, 0, 40, 50}, {20, 3, 40, 47}, {4, 4, 2, 30}, {30, 10, 20, 20}});
  std::filesystem::remove(job.Hidden(1));
  Job::WriteRaster(job.Hidden(3), {30, 10, 20, 20}, 3, [](int, int, int) { return 0; });
  const Bytes untouched = Load(job.Ortho(1));
  ::testing::internal::CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), ToGbk("size error！\n"));
  EXPECT_EQ(Load(job.Ortho(1)), untouched);
  EXPECT_EQ(Load(job.Ortho(3)), Bytes(1200, 203));
  EXPECT_EQ(Load(job.Ortho(0)), job.Filled(0, [](int, int) { return true; }));
  EXPECT_FALSE(std::filesystem::exists(job.Owned(2)));
  EXPECT_TRUE(std::filesystem::exists(job.Owned(1)));
  // Three masks, two fills: the narrow photo is still filled.
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100, 125));
}

TEST(OrthoUpdateTest, AMissingMapIsToldAndLeavesThePhotosAlone) {
  Job job(60, 50, {{0, 0, 40, 50}, {20, 3, 40, 47}});
  std::filesystem::remove(PixMapPath());
  const Bytes before = Load(job.Ortho(0));
  ::testing::internal::CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            ToGbk("打开pix_map.bin文件出错！\n") + "readed error!\nparas1:0 0 60 50\n");
  EXPECT_THAT(job.logged, ElementsAre(ToGbk(message::kPixMapError)));
  EXPECT_TRUE(calls.percents.empty());
  EXPECT_EQ(Load(job.Ortho(0)), before);
  EXPECT_FALSE(std::filesystem::exists(job.Owned(0)));
}

TEST(OrthoUpdateTest, AMapOfAnotherSizeOrWidthFailsItsStripOnly) {
  for (const int bytesPerCell : {2, 4}) {
    Job job(60, 50, kTwo);
    tqorkit::tqBinaryData file;
    ASSERT_TRUE(file.Create(PixMapPath(), 60, bytesPerCell == 2 ? 49 : 50, bytesPerCell));
    ASSERT_TRUE(file.Close());
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(job.Update());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "readed error!\nparas1:0 0 60 50\n");
    EXPECT_TRUE(job.logged.empty());
  }
}

TEST(OrthoUpdateTest, WithoutPhotosParametersOrTextureNothingIsDone) {
  Job job(60, 50, kTwo);
  std::filesystem::remove(TexturePath());
  EXPECT_FALSE(job.Update());
  job.WriteTexture([](int, int) { return true; });
  std::filesystem::remove(ParamFilePath());
  EXPECT_FALSE(job.Update());
  EXPECT_FALSE(job.Mark());
  job.dir.Write("data/ortho_data/orParam.txt", "1\n1.0\n0\n0\n0.000000\t0.0\ndsm\nout\n");
  EXPECT_FALSE(job.Update()) << "no resolution";
  EXPECT_FALSE(job.Mark());
  job.photoBlocks.clear();
  EXPECT_FALSE(job.Update());
  EXPECT_FALSE(job.Mark());
}

TEST(OrthoUpdateTest, AStopFailsTheUpdateBeforeAnyOrthoChanges) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  Job job(60, 50, kTwo);
  Calls calls;
  calls.answer = 0;
  EXPECT_FALSE(job.Update(&calls));
  omp_set_num_threads(threads);
  EXPECT_THAT(calls.percents, ElementsAre(50));
  for (const int i : {0, 1}) EXPECT_THAT(Load(job.Ortho(i)), Each(200 + i));
}

TEST(MarkUpdateTest, CellsOutsideTheMaskOrHiddenAreBlankedExactly) {
  Job job(60, 50, kTwo);
  // As rectification leaves it, without an update in between.
  for (const int i : {0, 1}) {
    Job::WriteRaster(job.Owned(i), kTwo[static_cast<std::size_t>(i)], 1,
                     [](int row, int, int) { return std::uint8_t(row < 5 ? 0 : 1); });
  }
  Calls calls;
  calls.answer = 0;
  EXPECT_TRUE(job.Mark(&calls));
  EXPECT_THAT(calls.percents, ElementsAre(50, 100)) << "a stop is not acted on";
  EXPECT_THAT(calls.messages, Each(ToGbk(message::kUpdating)));
  for (const int i : {0, 1}) {
    const Bytes cells = Load(job.Ortho(i));
    for (int k = 0; k < static_cast<int>(cells.size()); ++k) {
      const int row = k / 120, col = k % 120 / 3;
      ASSERT_EQ(cells[static_cast<std::size_t>(k)], row < 5 || Job::IsHidden(col) ? 0 : 200 + i);
    }
  }
}

TEST(MarkUpdateTest, PhotosThatCannotBeReadAreSkippedInSilence) {
  Job job(60, 50, {kTwo[0], kTwo[1], kTwo[0], kTwo[1], kTwo[0]});
  for (const int i : {0, 1, 3, 4}) {
    Job::WriteRaster(job.Owned(i), kTwo[static_cast<std::size_t>(i % 2)], 1,
                     [](int, int, int) { return std::uint8_t(255); });
  }
  std::filesystem::remove(job.Hidden(0));
  std::filesystem::remove(job.Ortho(1));
  Job::WriteRaster(job.Hidden(3), kTwo[1], 1, [](int, int, int) { return std::uint8_t(255); });
  job.photoBlocks[2].GetPhotos()[0].SetGeoRect({0, 0, 0, 0});  // a photo that failed
  ::testing::internal::CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Mark(&calls));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(calls.percents, ElementsAre(20));
  for (const int i : {0, 2, 4}) EXPECT_THAT(Load(job.Ortho(i)), Each(200 + i)) << i;
  EXPECT_THAT(Load(job.Ortho(3)), Each(0)) << "all hidden";
  EXPECT_EQ(job.photoList.size(), 4U);
}

}  // namespace
}  // namespace tqtortho
