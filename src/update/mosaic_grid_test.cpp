// SPDX-License-Identifier: Apache-2.0
#include "update/mosaic_grid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

#include "stage/photo_files.h"
#include "testing/temp_dir.h"
#include "tqfd/Logger.h"
#include "tqfd/PathHelper.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

constexpr double kHuge = std::numeric_limits<double>::max();
const GroundRect kEmptyRect{kHuge, kHuge, -kHuge, -kHuge};

/// A job with the given footprints, two photos a block, and its parameter file.
class Job : public tqTORProc {
 public:
  using tqTORProc::CheckOverlaps;
  using tqTORProc::GetGeoCoeff;
  using tqTORProc::GetGlobalGeoInfoFromFile;
  using tqTORProc::GetGlobalHeight;
  using tqTORProc::GetGlobalWidth;
  using tqTORProc::globalRect;
  using tqTORProc::globalResX;
  using tqTORProc::globalResY;
  using tqTORProc::ImageRegionPartition;
  using tqTORProc::photoBlocks;
  using tqTORProc::photoList;
  using tqTORProc::photoOverlaps;
  using tqTORProc::PlaceMosaic;

  explicit Job(const std::vector<GroundRect>& rects, double resolution = 1) {
    tqfd::PathHelper::SetProgramDataDirectory(dir.Path());
    WriteParams("1.000000", std::to_string(resolution));
    for (std::size_t i = 0; i < rects.size(); ++i) {
      if (i % 2 == 0) photoBlocks.emplace_back();
      tqorkit::tqExtOri photo;
      photo.SetGeoRect(rects[i]);
      photoBlocks.back().InsertPhoto(photo);
    }
  }
  ~Job() override { tqfd::PathHelper::SetProgramDataDirectory(""); }
  void WriteParams(const std::string& scale, const std::string& resolution) const {
    dir.Write("ortho_data/orParam.txt",
              "1\n" + scale + "\n0\n0\n" + resolution + "\t50.000000\ndsm\nout\nblock1\n");
  }
  bool Strips() { return GetGlobalGeoInfoFromFile(rect, resolution, &stripPhotos, &stripRects); }

  testing::TempDir dir;
  GroundRect rect;
  double resolution = 0;
  std::vector<std::vector<PhotoRef>> stripPhotos;
  std::vector<GroundRect> stripRects;
};

// The grid's rows are rounded from its height: half a row more makes the next row.
TEST(MosaicGridTest, StripsRunFromSouthToNorthAndTheLastTakesTheRest) {
  for (const auto& [height, count] : {std::pair{9989.4, 1U}, {9989.6, 2U}}) {
    const GroundRect south{0, 0, 10, 4000};
    const GroundRect middle{2, 4200, 12, 5200};  // 80 % below 5,000
    const GroundRect north{0, 4400, 10, height};
    Job job({north, middle, south});
    ASSERT_TRUE(job.Strips());
    ASSERT_EQ(job.stripRects.size(), count);
    if (count == 1) continue;
    EXPECT_EQ(job.stripRects[0], (GroundRect{0, 0, 12, 5200})) << "as far as its photos reach";
    EXPECT_EQ(job.stripRects[1], north);
    EXPECT_THAT(job.stripPhotos[0], ElementsAre(PhotoRef{0, 1}, PhotoRef{1, 0}));
    EXPECT_THAT(job.stripPhotos[1], ElementsAre(PhotoRef{0, 0}));
  }
  // An evenly halved photo belongs to no strip, and an empty strip stays inverted.
  Job job({{0, 0, 10, 10}, {0, 4000, 10, 6000}, {0, 14980, 10, 14990}});
  ASSERT_TRUE(job.Strips());
  EXPECT_THAT(job.stripPhotos,
              ElementsAre(ElementsAre(PhotoRef{0, 0}), ElementsAre(), ElementsAre(PhotoRef{1, 0})));
  EXPECT_EQ(job.stripRects[1], kEmptyRect);
}

TEST(MosaicGridTest, PhotosWithoutFootprintTakeNoPart) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const GroundRect good{5000, 6000, 5010, 6010};
  Job job({{0, 0, 0, 0}, kEmptyRect, good, {nan, 0, 1, 1}, {0, 0, HUGE_VAL, 1}}, 0.5);
  ASSERT_TRUE(job.Strips());
  EXPECT_EQ(job.rect, good);
  EXPECT_EQ(job.resolution, 0.5);
  EXPECT_THAT(job.stripRects, ElementsAre(good));
  EXPECT_THAT(job.stripPhotos, ElementsAre(ElementsAre(PhotoRef{1, 0})));
  ASSERT_TRUE(job.PlaceMosaic(nullptr, nullptr));
  EXPECT_THAT(job.photoList, ElementsAre(PhotoRef{1, 0}));
  Job none({{0, 0, 0, 0}});
  EXPECT_TRUE(none.Strips());
  EXPECT_EQ(none.rect, kEmptyRect);
  EXPECT_THAT(none.stripRects, ElementsAre(kEmptyRect));
}

TEST(MosaicGridTest, DamagedParameterFilesFail) {
  Job job({{0, 0, 10, 10}});
  std::vector<GroundRect> regions;
  std::map<std::uint64_t, std::vector<PhotoRef>> byRegion;
  std::vector<std::string> logged;
  tqfd::Logger::SetSink([&](std::string_view text) { logged.emplace_back(text); });
  job.WriteParams("0.5", "1");
  EXPECT_FALSE(job.Strips());
  EXPECT_EQ(logged.size(), 1U);
  EXPECT_FALSE(job.ImageRegionPartition(regions, 0, byRegion));
  tqfd::Logger::SetSink({});
  for (const char* resolution : {"0.000000", "nan", "-1.0", "inf", "0.000009"}) {
    job.WriteParams("1.0", resolution);
    EXPECT_FALSE(job.Strips()) << resolution;
    EXPECT_TRUE(job.GetGlobalGeoInfoFromFile(job.rect, job.resolution, nullptr, &job.stripRects));
    EXPECT_FALSE(job.PlaceMosaic(nullptr, nullptr)) << resolution;
  }
  std::filesystem::remove(ParamFilePath());
  EXPECT_FALSE(job.Strips());
  EXPECT_FALSE(job.ImageRegionPartition(regions, 0, byRegion));
}

// 3,000 columns with the margin of ten, and 1,000,000 rows.
TEST(MosaicGridTest, EveryPhotoGoesToTheFirstRegionFromTheNorthThatItTouches) {
  const double top = 999'990;
  const auto at = [&](double firstRow, double lastRow) {
    return GroundRect{0, top - lastRow, 2990, top - firstRow};
  };
  const GroundRect south = at(999'900, 999'990), north = at(0, 50), ninth = at(888'888, 888'990),
                   border = at(111'000, 111'200), second = at(111'111, 111'120);
  Job job({south, north, ninth, border, second});
  std::vector<GroundRect> regions{kEmptyRect};
  std::map<std::uint64_t, std::vector<PhotoRef>> byRegion{{0, {{9, 9}}}, {77, {{9, 9}}}};
  ASSERT_TRUE(job.ImageRegionPartition(regions, 123.4, byRegion));
  ASSERT_EQ(regions.size(), 9U);
  EXPECT_EQ(byRegion.size(), 10U);
  EXPECT_THAT(byRegion[77], ElementsAre(PhotoRef{9, 9})) << "entries beyond the count stay";
  EXPECT_THAT(byRegion[0], ElementsAre(PhotoRef{0, 1}, PhotoRef{1, 1}));
  EXPECT_THAT(byRegion[1], ElementsAre(PhotoRef{2, 0})) << "a shared border is no overlap";
  EXPECT_THAT(byRegion[8], ElementsAre(PhotoRef{0, 0}, PhotoRef{1, 0}));
  EXPECT_EQ(regions[0], at(0, 111'200));
  EXPECT_EQ(regions[8], at(888'888, 999'990));
  EXPECT_EQ(regions[4], kEmptyRect);
}

TEST(MosaicGridTest, OverlapIsMeasuredAgainstTheOwnArea) {
  struct Case {
    const char* name;
    GroundRect a, b;
    bool aHasB, bHasA;
  };
  const Case cases[] = {
      {"small in big", {0, 0, 100, 100}, {10, 10, 20, 20}, false, true},
      {"large part of big", {0, 0, 100, 100}, {10, 10, 90, 90}, true, true},
      {"exactly 30 % inside", {0, 0, 100, 100}, {0, 0, 100, 30}, false, true},
      {"a shared edge", {0, 0, 10, 10}, {10, 0, 20, 10}, false, false},
      {"apart", {0, 0, 10, 10}, {30, 0, 40, 10}, false, false},
      {"same ground", {0, 0, 10, 10}, {0, 0, 10, 10}, true, true},
  };
  for (const Case& c : cases) {
    const auto table = OverlapTable({c.a, c.b});
    EXPECT_EQ(table.contains(0), c.aHasB) << c.name;
    EXPECT_EQ(table.contains(1), c.bHasA) << c.name;
  }
}

TEST(MosaicGridTest, OverlapsAreThoseOfTheListedPhotosInOrder) {
  const GroundRect away{900, 900, 910, 910};
  Job job({{0, 0, 0, 0}, {0, 0, 10, 10}, {1, 0, 11, 10}, away, {2, 0, 12, 10}});
  job.photoOverlaps[55] = {1};
  ASSERT_TRUE(job.PlaceMosaic(nullptr, nullptr));
  EXPECT_THAT(job.photoOverlaps, ElementsAre(Pair(0, ElementsAre(1, 3)), Pair(1, ElementsAre(0, 3)),
                                             Pair(3, ElementsAre(0, 1))));
  job.photoList = {{2, 0}, {0, 1}};
  job.CheckOverlaps();
  EXPECT_THAT(job.photoOverlaps, ElementsAre(Pair(0, ElementsAre(1)), Pair(1, ElementsAre(0))));
}

}  // namespace
}  // namespace tqtortho
