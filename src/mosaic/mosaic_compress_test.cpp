// SPDX-License-Identifier: Apache-2.0
// A second run that asks for another compression and nothing else.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>

#include "run/job_state.h"
#include "run/run_job.h"
#include "survey/survey_reader.h"
#include "testing/quiet_observer.h"
#include "testing/temp_dir.h"
#include "town/sample_town.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

using Watcher = tqtortho::testing::QuietObserver;

constexpr const char* kMosaic[] = {"mosaic.tif", "source.tif", "quality.tif"};

class MosaicCompressTest : public ::testing::Test {
 protected:
  MosaicCompressTest() {
    SampleOptions sample;
    sample.outDir = dir_.File("town");
    sample.sizeM = 30;
    sample.photoCount = 3;
    sample.photoGsdM = 0.2;
    sample.truthCellM = 0.5;
    std::string error;
    EXPECT_TRUE(WriteSampleTown(sample, error, {})) << error;
    std::vector<std::string> problems;
    survey_ = *ReadSurvey(dir_.File("town/cameras.txt"), dir_.File("town/photos.txt"), problems);
    // An area, so that the texture goes on beyond the mosaic.
    dir_.Write("area.geojson", AreaText());
  }
  [[nodiscard]] std::string AreaText() const {
    const SurveyPhoto& camera = survey_.blocks.at(0).photos.at(1);
    std::string ring;
    for (const auto& [x, y] : {std::pair{-9, -7}, {8, -6}, {9, 8}, {-8, 6}, {-9, -7}}) {
      ring += (ring.empty() ? "[" : ",[") + std::to_string(camera.x + x) + "," +
              std::to_string(camera.y + y) + "]";
    }
    return R"({"type":"Polygon","crs":{"type":"name","properties":{"name":"EPSG:32633"}},)"
           R"("coordinates":[[)" +
           ring + "]]}";
  }
  RunStatus Run(const std::string& out, const std::string& compression, int quality,
                Watcher& watcher) {
    RunOptions options;
    options.dsmPath = dir_.File("town/dsm.tif");
    options.outDir = dir_.File(out);
    options.gsd = 0.2;
    options.areaPath = dir_.File("area.geojson");
    options.format.compression = compression;
    options.format.jpegQuality = quality;
    RunReport report;
    std::string error;
    const RunStatus status = RunJob(survey_, options, watcher, report, error);
    EXPECT_EQ(status == RunStatus::kDone, error.empty()) << error;
    seen_ = report.mosaic.seen;
    return status;
  }
  /// Size and time of every file that compression has no part in.
  std::map<std::string, std::string> Kept(const std::string& out) const {
    std::map<std::string, std::string> stamps;
    for (const auto& entry : fs::recursive_directory_iterator(dir_.File(out))) {
      const std::string name = entry.path().lexically_relative(dir_.File(out)).string();
      const bool kept = name.rfind("ortho/", 0) == 0 || name == "seams.gpkg" ||
                        name.rfind("work/tmp/ot/", 0) == 0 ||
                        name.rfind("work/state/originals/", 0) == 0;
      if (kept && entry.is_regular_file()) stamps[name] = FileStamp(entry.path().string());
    }
    return stamps;
  }
  std::map<std::string, std::string> Bytes(const std::string& out) const {
    std::map<std::string, std::string> bytes;
    for (const char* name : kMosaic) bytes[name] = ReadText(dir_.File(out) + "/" + name);
    return bytes;
  }

  TempDir dir_;
  Survey survey_;
  std::int64_t seen_ = 0;
};

TEST_F(MosaicCompressTest, TheMosaicIsThatOfAFreshRunAndNothingElseIsMadeAgain) {
  struct Form {
    std::string compression;
    int quality;
  };
  // From a lossy form to a lossless one and to another lossy one: nothing is lost on the way.
  const Form forms[] = {{"jpeg", 40}, {"deflate", 90}, {"jpeg", 95}};
  std::map<std::string, std::string> kept;
  std::int64_t seen = 0;
  for (std::size_t i = 0; i < std::size(forms); ++i) {
    SCOPED_TRACE(forms[i].compression + std::to_string(forms[i].quality));
    Watcher watcher;
    ASSERT_EQ(Run("job", forms[i].compression, forms[i].quality, watcher), RunStatus::kDone);
    if (i == 0) {
      kept = Kept("job");
      seen = seen_;
      ASSERT_GT(kept.size(), 15U);
      EXPECT_EQ(watcher.stages.count("views"), 1U);
    } else {
      EXPECT_EQ(Kept("job"), kept);
      EXPECT_EQ(seen_, seen);
      EXPECT_EQ(watcher.stages.count("views"), 0U) << "no choice is made again";
      EXPECT_EQ(watcher.stages.count("compress"), 1U);
    }
    Watcher other;
    const std::string fresh = "fresh" + std::to_string(i);
    ASSERT_EQ(Run(fresh, forms[i].compression, forms[i].quality, other), RunStatus::kDone);
    const auto made = Bytes("job"), wanted = Bytes(fresh);
    for (const char* name : kMosaic) EXPECT_TRUE(made.at(name) == wanted.at(name)) << name;
  }
  Watcher again;
  ASSERT_EQ(Run("job", "jpeg", 95, again), RunStatus::kDone);
  EXPECT_EQ(again.stages.count("compress"), 0U);
}

TEST_F(MosaicCompressTest, TheOldMosaicStaysUntilTheNewOneIsWhole) {
  Watcher first;
  ASSERT_EQ(Run("job", "deflate", 90, first), RunStatus::kDone);
  const auto before = Bytes("job");
  Watcher stopped;
  stopped.stopAt = "compress";
  EXPECT_EQ(Run("job", "jpeg", 90, stopped), RunStatus::kInterrupted);
  EXPECT_TRUE(Bytes("job") == before);
  // What the texture file was is not known any more: the mosaic is made from the orthos.
  fs::remove(dir_.File("job/work/tmp/ot/textures.tif"));
  Watcher whole;
  ASSERT_EQ(Run("job", "jpeg", 90, whole), RunStatus::kDone);
  EXPECT_EQ(whole.stages.count("views"), 1U);
  EXPECT_FALSE(Bytes("job").at("mosaic.tif") == before.at("mosaic.tif"));
}

}  // namespace
}  // namespace tqtortho::host
