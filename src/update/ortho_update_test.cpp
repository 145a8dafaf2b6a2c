// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "stage/messages.h"
#include "testing/threads.h"
#include "testing/update_job.h"
#include "tqorkit/tqBinaryData.h"
#include "update/feather_blend.h"
#include "update/ownership_mask.h"

namespace tqtortho {
namespace {

using testing::Calls;
using ::testing::DoubleEq;
using ::testing::Each;
using ::testing::ElementsAre;
using testing::Load;
using testing::LoadRecord;
using testing::UpdateJob;
using testing::Window;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;
using Bytes = std::vector<std::uint8_t>;
using Colour = std::array<std::uint8_t, 3>;
using Cells = std::function<bool(int row, int col)>;

const std::vector<Window> kTwo{{0, 0, 40, 50}, {20, 3, 40, 47}};
bool Everywhere(int, int) { return true; }
testing::CellValue Only(int value) {
  return [value](int, int, int) { return std::uint8_t(value); };
}

/// A finished job of one-coloured orthos with a texture whose colours tell the cell; hidden cells
/// are those of columns 10 to 14 of each photo.
class Job : public UpdateJob {
 public:
  explicit Job(const std::vector<Window>& windows = kTwo, int cols = 60, int rows = 50)
      : UpdateJob(windows), cols_(cols), rows_(rows) {
    for (int i = 0; i < static_cast<int>(windows.size()); ++i) {
      const Window& w = windows[static_cast<std::size_t>(i)];
      WriteRaster(Ortho(i), w, 3, Only(200 + i));
      WriteRaster(Hidden(i), w, 1,
                  [](int, int col, int) { return std::uint8_t(IsHidden(col) ? 255 : 7); });
    }
    WriteTexture(Everywhere);
    WriteMap([](int, int) { return 0; });
  }

  static bool IsHidden(int col) { return col >= 10 && col < 15; }
  static Colour TextureColour(int row, int col) {
    return {std::uint8_t(1 + col % 100), std::uint8_t(1 + row % 100), std::uint8_t(row / 100)};
  }
  void WriteTexture(const Cells& present) const {
    WriteRaster(TexturePath(), {0, 0, cols_, rows_}, 3, [&](int row, int col, int band) {
      return present(row, col) ? TextureColour(row, col)[static_cast<std::size_t>(band)]
                               : std::uint8_t{0};
    });
  }
  void WriteMap(const std::function<int(int row, int col)>& number) {
    map.clear();
    for (int i = 0; i < cols_ * rows_; ++i) {
      map.push_back(static_cast<std::uint16_t>(number(i / cols_, i % cols_)));
    }
    tqorkit::tqBinaryData file;
    ASSERT_TRUE(file.Create(PixMapPath(), cols_, rows_, 2));
    ASSERT_TRUE(file.SaveBlkData(0, 0, cols_, rows_, map.data()));
    ASSERT_TRUE(file.Close());
  }
  bool Update(Calls* calls = nullptr) { return Run(&Job::UpdateOrthoImages, calls); }
  bool Mark(Calls* calls = nullptr) { return Run(&Job::UpdateOrthoImagesMarkOcc, calls); }
  /// The ortho as it must look: the texture where it has a colour, else the photo.
  [[nodiscard]] Bytes Filled(int i, const Cells& present = Everywhere) const {
    const Window& w = windows[static_cast<std::size_t>(i)];
    Bytes cells;
    for (int k = 0; k < w.cols * w.rows; ++k) {
      const int row = w.row + k / w.cols, col = w.col + k % w.cols;
      const auto own = std::uint8_t(200 + i);
      const Colour c = present(row, col) ? TextureColour(row, col) : Colour{own, own, own};
      cells.insert(cells.end(), c.begin(), c.end());
    }
    return cells;
  }

  std::vector<std::uint16_t> map;

 private:
  int cols_, rows_;
};

// Blocks of the map and the texture then begin at columns and rows other than 0.
TEST(OrthoUpdateTest, EveryStripTakesItsOwnPartOfTheGrid) {
  Job job({{0, 11930, 1, 2}, {5, 11900, 20, 100}, {8, 0, 20, 60}, {0, 40, 20, 60}}, 30, 12000);
  job.WriteMap([](int row, int) { return row < 6000 ? 0 : 2; });
  CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(GetCapturedStdout(), "");
  for (const int i : {1, 2, 3}) EXPECT_EQ(Load(job.Ortho(i)), job.Filled(i)) << i;
  EXPECT_THAT(Load(job.Owned(1)), Each(255)) << "its own cells all over";
  EXPECT_THAT(Load(job.Owned(2)), Each(255)) << "nobody's cells all over";
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100, 125, 150));
}

TEST(OrthoUpdateTest, NarrowPhotosAndUnreadableFilesAreLeftOutAlone) {
  Job job({kTwo[0], kTwo[1], {4, 4, 1, 30}, {30, 10, 20, 20}});
  // A footprint narrower than a cell: of no area it would belong to no strip.
  tqorkit::tqExtOri& narrow = job.photoBlocks[1].GetPhotos()[0];
  tqfd::Rect2_T<double> rect = narrow.GetGeoRect();
  rect.maxX += 0.3 * Job::kGsd;
  narrow.SetGeoRect(rect);
  std::filesystem::remove(job.Hidden(1));
  Job::WriteRaster(job.Hidden(3), {30, 10, 20, 20}, 3, Only(0));
  const Bytes untouched = Load(job.Ortho(1));
  CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(GetCapturedStdout(), ToGbk("size error！\n"));
  EXPECT_EQ(Load(job.Ortho(1)), untouched);
  EXPECT_EQ(Load(job.Ortho(3)), Bytes(1200, 203));
  EXPECT_EQ(Load(job.Ortho(0)), job.Filled(0));
  EXPECT_FALSE(std::filesystem::exists(job.Owned(2)));
  EXPECT_TRUE(std::filesystem::exists(job.Owned(1)));
  // Three masks, two fills: the narrow photo is still filled.
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100, 125));
}

TEST(OrthoUpdateTest, AMissingMapIsToldAndLeavesThePhotosAlone) {
  Job job;
  std::filesystem::remove(PixMapPath());
  const Bytes before = Load(job.Ortho(0));
  CaptureStdout();
  Calls calls;
  EXPECT_TRUE(job.Update(&calls));
  EXPECT_EQ(GetCapturedStdout(),
            ToGbk("打开pix_map.bin文件出错！\n") + "readed error!\nparas1:0 0 60 50\n");
  EXPECT_THAT(job.logged, ElementsAre(ToGbk(message::kPixMapError)));
  EXPECT_TRUE(calls.percents.empty());
  EXPECT_EQ(Load(job.Ortho(0)), before);
  EXPECT_FALSE(std::filesystem::exists(job.Owned(0)));
  tqorkit::tqBinaryData file;  // a map of another size fails its strip only
  ASSERT_TRUE(file.Create(PixMapPath(), 60, 49, 2) && file.Close());
  CaptureStdout();
  EXPECT_TRUE(job.Update());
  EXPECT_EQ(GetCapturedStdout(), "readed error!\nparas1:0 0 60 50\n");
}

TEST(OrthoUpdateTest, WithoutPhotosParametersOrTextureNothingIsDone) {
  Job job;
  std::filesystem::remove(TexturePath());
  EXPECT_FALSE(job.Update());
  job.WriteTexture(Everywhere);
  {
    const testing::Threads one(1);
    Calls stop;
    stop.answer = 0;
    EXPECT_FALSE(job.Update(&stop));
    EXPECT_THAT(stop.percents, ElementsAre(50));
    for (const int i : {0, 1}) EXPECT_THAT(Load(job.Ortho(i)), Each(200 + i)) << "stopped";
  }
  std::filesystem::remove(ParamFilePath());
  EXPECT_FALSE(job.Update());
  EXPECT_FALSE(job.Mark());
  job.WriteParams("0.000000");
  EXPECT_FALSE(job.Update()) << "no resolution";
  EXPECT_FALSE(job.Mark());
  job.photoBlocks.clear();
  EXPECT_FALSE(job.Update());
  EXPECT_FALSE(job.Mark());
}

TEST(MarkUpdateTest, CellsOutsideTheMaskOrHiddenAreBlankedExactly) {
  Job job;
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
    for (std::size_t k = 0; k < cells.size(); ++k) {
      const bool blank = k / 120 < 5 || Job::IsHidden(static_cast<int>(k % 120 / 3));
      ASSERT_EQ(cells[k], blank ? 0 : 200 + i);
    }
  }
}

}  // namespace
}  // namespace tqtortho
