// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "stage/messages.h"
#include "stage/photo_files.h"
#include "testing/photo_records.h"
#include "testing/progress_calls.h"
#include "testing/raster_file.h"
#include "testing/threads.h"
#include "testing/tiny_job.h"
#include "tqraster/tqSelectWgt.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

using ::testing::DoubleEq;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::TinyJob;
using Bytes = std::vector<std::uint8_t>;

using testing::Calls;

/// Two blocks of three photos and one over a DSM with a wall, all 40 units up, 0.25 units a cell.
class Job : public tqTORProc {
 public:
  using tqTORProc::ObscuredMskProc;
  using tqTORProc::photoBlocks;
  using tqTORProc::WeightMskProc;
  static constexpr double kGsd = 0.25;
  static constexpr int kCols = 73;
  static constexpr int kRows = 57;

  Job() {
    EXPECT_TRUE(files.WriteDsm([](int, int col) { return col / 8 == 3 ? 25.0F : 0.0F; }));
    for (int i = 0; i < 4; ++i) {
      if (i % 3 == 0) photoBlocks.emplace_back();
      const double left = TinyJob::kX0 + 2 + 3 * i;
      const double top = TinyJob::kY0 - 5;
      tqorkit::tqExtOri photo = testing::PhotoAt(
          TinyJob::kX0 + 6, TinyJob::kY0 - 12, TinyJob::kFlight,  // the wall is at 12 to 16
          {left, top - (kRows - 1) * kGsd, left + (kCols - 1) * kGsd, top},
          std::string(1, static_cast<char>('a' + i)) + ".tif", 1, i / 3);
      photo.SetGSD(kGsd, -kGsd);
      photoBlocks.back().InsertPhoto(photo);
    }
    // 160 pixels of focal length: 0.25 units a pixel from 40 units up, the whole frame in the
    // ortho.
    cameras[1] = testing::PlainCamera(1, kCols, kRows, 0.64, 0.004);
  }

  tqorkit::tqExtOri& Photo(int i) { return photoBlocks[i / 3].GetPhotos()[i % 3]; }
  std::string Ortho(int i) {
    return files.Out() + static_cast<char>('a' + i) + "_" + std::to_string(i / 3) + ".tif";
  }
  std::string Mask(int i) { return Ortho(i) + "_obs.tif"; }
  std::string Weight(int i) { return Ortho(i) + "_wgt.tif"; }
  bool Obscure(Calls* calls = nullptr) {
    return ObscuredMskProc(files.Dsm(), files.Out(), calls ? Calls::Callback : nullptr, calls);
  }
  bool Weigh(Calls* calls = nullptr) {
    return WeightMskProc(files.Out(), "no such directory", calls ? Calls::Callback : nullptr,
                         calls);
  }
  void WriteBytes(const std::string& path, const Bytes& cells) {
    ASSERT_TRUE(testing::WriteRaster(path, tqimage::kByte, cells.data(), kCols, kRows,
                                     {TinyJob::kX0, TinyJob::kY0, kGsd, ""}, nullptr));
  }

  TinyJob files;
};

Bytes Load(const std::string& path, tqimage::GeoCoefficients* geo = nullptr) {
  tqorkit::PhotoInfo image;
  EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, geo)) << path;
  return image.data;
}

Bytes AllShown() { return Bytes(static_cast<std::size_t>(Job::kCols) * Job::kRows, 0); }

TEST(MaskStageTest, EveryPhotoIsTracedAgainOntoItsOwnMask) {
  Job job;
  // The valid mask of photo b blanks its left half; a's is missing.
  Bytes valid(AllShown().size(), 255);
  for (int row = 0; row < Job::kRows; ++row) {
    for (int col = 0; col < 40; ++col) valid[static_cast<std::size_t>(row * Job::kCols + col)] = 0;
  }
  job.WriteBytes(job.files.Out() + "b_0.msk", valid);
  Calls calls;
  ASSERT_TRUE(job.Obscure(&calls));
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100));
  EXPECT_THAT(calls.messages, ::testing::Each(ToGbk(message::kObscuring)));
  for (int i = 0; i < 4; ++i) {
    const std::string alone = job.files.dir.File("alone.tif");
    tqRayTracer tracer;
    ASSERT_TRUE(tracer.DoRayTracingOnPyr(job.Photo(i), job.files.Dsm(), alone,
                                         i == 1 ? job.files.Out() + "b_0.msk" : ""));
    const Bytes mask = Load(job.Mask(i));
    EXPECT_EQ(mask, Load(alone)) << i;
    EXPECT_THAT(mask, ::testing::Contains(255)) << i;
  }
  for (const auto& entry : std::filesystem::directory_iterator(job.files.Out())) {
    EXPECT_NE(entry.path().extension(), ".new") << entry.path();
  }
}

TEST(MaskStageTest, AFailedTraceKeepsTheMaskThatWasThere) {
  Job job;
  Bytes earlier = AllShown();
  earlier[1234] = 255;
  job.WriteBytes(job.Mask(2), earlier);
  job.Photo(2).SetGSD(0, 0);
  job.Photo(3).SetGeoRect({0, 0, 0, 0});  // as a photo that failed has it
  Calls calls;
  ASSERT_TRUE(job.Obscure(&calls));
  EXPECT_EQ(calls.percents.size(), 4U) << "failed photos count as done";
  EXPECT_EQ(Load(job.Mask(2)), earlier);
  EXPECT_FALSE(std::filesystem::exists(job.Mask(3)));
}

TEST(MaskStageTest, AStopEndsBothStagesButFailsOnlyTheWeighing) {
  Job job;
  const testing::Threads one(1);
  for (const bool weighing : {false, true}) {
    for (int i = 0; weighing && i < 4; ++i) job.WriteBytes(job.Mask(i), AllShown());
    Calls calls;
    calls.answer = 0;
    EXPECT_EQ(weighing ? job.Weigh(&calls) : job.Obscure(&calls), !weighing);
    EXPECT_EQ(calls.percents.size(), 1U);
    for (int i = 0; i < 4; ++i) {
      const std::string product = weighing ? job.Weight(i) : job.Mask(i);
      EXPECT_EQ(std::filesystem::exists(product), i == 0) << product;
    }
  }
}

TEST(MaskStageTest, PhotosWithoutAMaskGetNoWeightsAndNoProgress) {
  Job job;
  for (const int i : {0, 2, 3}) job.WriteBytes(job.Mask(i), AllShown());
  job.WriteBytes(job.Weight(1), AllShown());  // of an earlier run
  Calls calls;
  EXPECT_TRUE(job.Weigh(&calls));
  EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75));
  EXPECT_THAT(calls.messages, ::testing::Each(ToGbk(message::kWeighting)));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(std::filesystem::exists(job.Weight(i)), i != 1) << i;
  EXPECT_TRUE(job.Weigh()) << "without a callback";
}

TEST(MaskStageTest, AJobWithoutPhotosHasNothingToWeigh) {
  Job job;
  Calls calls;
  for (auto& block : job.photoBlocks) block.GetPhotos().clear();
  for (int round = 0; round < 2; ++round) {  // blocks without photos, then no blocks
    EXPECT_FALSE(job.Weigh(&calls));
    EXPECT_TRUE(job.Obscure(&calls));
    job.photoBlocks.clear();
  }
  EXPECT_THAT(calls.percents, IsEmpty());
}

TEST(MaskStageTest, WeightsLieOnTheMasksGridAndLeaveOutHiddenAndEmptyCells) {
  Job job;
  Bytes hidden = AllShown();
  Bytes valid(hidden.size(), 255);
  for (int row = 0; row < Job::kRows; ++row) {
    hidden[static_cast<std::size_t>(row * Job::kCols + 60)] = 255;
    valid[static_cast<std::size_t>(row * Job::kCols + 9)] = 0;
  }
  for (int i = 0; i < 4; ++i) job.WriteBytes(job.Mask(i), hidden);
  job.WriteBytes(OwnershipMaskName(job.Ortho(0)), valid);
  ASSERT_TRUE(job.Weigh());
  tqimage::GeoCoefficients geo;
  const Bytes weights = Load(job.Weight(0), &geo);
  EXPECT_THAT(geo.GetOrigin().x, DoubleEq(TinyJob::kX0));
  EXPECT_THAT(geo.GetOrigin().y, DoubleEq(TinyJob::kY0));
  for (std::size_t i = 0; i < weights.size(); ++i) {
    ASSERT_EQ(weights[i] == 0, hidden[i] == 255 || valid[i] == 0) << i;
  }
  EXPECT_EQ(Load(job.Mask(0)), hidden) << "the mask file stays";
  const Bytes other = Load(job.Weight(1));  // no valid mask: only the hidden column is left out
  EXPECT_EQ(std::count(other.begin(), other.end(), 0), Job::kRows);
}

// The camera's scale tells the flying height, so angles come out right over ground at any level.
TEST(MaskStageTest, NadirAnglesRestOnTheHeightAboveTheGroundOfThePhoto) {
  for (const double level : {0.0, 900.0}) {
    Job job;
    for (int i = 0; i < 4; ++i) {
      job.WriteBytes(job.Mask(i), AllShown());
      auto record = job.Photo(i).Get();
      record.position[0] = TinyJob::kX0 + 8 * Job::kGsd;
      record.position[1] = TinyJob::kY0 - 28 * Job::kGsd;
      record.position[2] = level + 40;
      if (i == 3) record.cameraId = 77;  // unknown
      job.Photo(i).Set(record);
    }
    ASSERT_TRUE(job.Weigh());
    const Bytes weights = Load(job.Weight(0));
    const Bytes plain = Load(job.Weight(3));
    for (const int col : {8, 40, 56, 64}) {
      const double away = (col - 8) * Job::kGsd;
      const std::size_t cell = static_cast<std::size_t>(28 * Job::kCols + col);
      EXPECT_NEAR(weights[cell], plain[cell] * 1600 / (1600 + away * away), 1.0)
          << col << " above " << level;
    }
  }
}

}  // namespace
}  // namespace tqtortho
