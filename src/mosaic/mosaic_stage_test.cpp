// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_stage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <vector>

#include "run/job_state.h"
#include "run/run_job.h"
#include "stage/photo_files.h"
#include "survey/survey_reader.h"
#include "testing/box_world.h"
#include "testing/full_disk.h"
#include "testing/quiet_observer.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqBinaryData.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using tqtortho::testing::FullDisk;

/// A finished job on the world of three buildings, shared by all tests.
class MosaicStageTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    world_ = new tqtortho::testing::BoxWorld;
    dir_ = &world_->dir;
    std::string error;
    std::vector<std::string> problems;
    const auto survey = ReadSurvey(world_->Cameras(), world_->Photos(), problems);
    ASSERT_TRUE(survey.has_value());
    RunOptions options;
    options.dsmPath = world_->Dsm();
    options.outDir = dir_->File("job");
    options.gsd = 0.2;
    tqtortho::testing::QuietObserver silent;
    RunReport report;
    ASSERT_EQ(RunJob(*survey, options, silent, report, error), RunStatus::kDone) << error;
  }
  static void TearDownTestSuite() {
    delete world_;
    world_ = nullptr;
  }

  static MosaicOptions Options(const std::string& out) {
    MosaicOptions options;
    options.workDir = dir_->File("job/work");
    options.outDir = dir_->File(out);
    return options;
  }
  static MosaicReport Make(const MosaicOptions& options) {
    MosaicInput input;
    MosaicReport report;
    std::string error;
    EXPECT_TRUE(LoadMosaicInput(options.workDir, input, error)) << error;
    EXPECT_TRUE(MakeMosaic(input, options, {}, report, error)) << error;
    EXPECT_THAT(report.leftOut, ::testing::IsEmpty());
    return report;
  }
  static PhotoInfo Read(const std::string& path) {
    PhotoInfo image;
    EXPECT_TRUE(TqImage::QuickReadImage(path, image, nullptr)) << path;
    return image;
  }

  static tqtortho::testing::BoxWorld* world_;
  static tqtortho::testing::TempDir* dir_;
};
tqtortho::testing::BoxWorld* MosaicStageTest::world_ = nullptr;
tqtortho::testing::TempDir* MosaicStageTest::dir_ = nullptr;

TEST_F(MosaicStageTest, SourceQualityMapAndTextureAgree) {
  const MosaicReport report = Make(Options("s"));
  const PhotoInfo mosaic = Read(dir_->File("s/mosaic.tif"));
  const PhotoInfo source = Read(dir_->File("s/source.tif"));
  const PhotoInfo quality = Read(dir_->File("s/quality.tif"));
  const PhotoInfo texture = Read(dir_->File("job/work") + "/tmp/ot/textures.tif");
  tqorkit::tqBinaryData map;
  const std::string mapPath = dir_->File("job/work") + "/tmp/ot/pix_map.bin";
  ASSERT_TRUE(map.Open(std::wstring(mapPath.begin(), mapPath.end())));
  const std::size_t cells = static_cast<std::size_t>(mosaic.width) * mosaic.height;
  ASSERT_EQ(static_cast<std::int64_t>(cells), report.cells);
  std::vector<std::uint16_t> numbers(cells);
  ASSERT_TRUE(map.ReadBlkData(0, 0, mosaic.width, mosaic.height, numbers.data()));
  ASSERT_EQ(source.data.size(), 2 * cells);
  ASSERT_EQ(quality.data.size(), cells);
  const auto* photo = reinterpret_cast<const std::uint16_t*>(source.data.data());
  std::int64_t seen = 0;
  std::vector<std::int64_t> supplied(8, 0);
  for (std::size_t i = 0; i < cells; ++i) {
    const int q = quality.data[i];
    ASSERT_LE(photo[i], 7);
    ASSERT_EQ(photo[i], numbers[i]);
    ASSERT_EQ(q == kQualitySeen || q == kQualitySeenOnce, photo[i] != 0);
    ASSERT_EQ(q != kQualityNone, mosaic.data[4 * i + 3] == 255);
    ASSERT_EQ(q != kQualityNone, mosaic.data[4 * i] != 0);
    for (std::size_t b = 0; b < 3; ++b) ASSERT_EQ(mosaic.data[4 * i + b], texture.data[3 * i + b]);
    seen += photo[i] != 0 ? 1 : 0;
    ++supplied[photo[i]];
  }
  EXPECT_EQ(seen, report.seen);
  EXPECT_EQ(supplied, report.supplied);
  EXPECT_FALSE(fs::exists(dir_->File("job/work") + "/tmp/ot/layers")) << "working files are gone";
}

// Seams may differ where tiles meet; what is seen and covered may not.
TEST_F(MosaicStageTest, SmallTilesCoverTheSameCells) {
  const MosaicReport large = Make(Options("l"));
  MosaicOptions options = Options("t");
  options.tileSide = 64;
  const MosaicReport small = Make(options);
  EXPECT_EQ(small.seen, large.seen);
  EXPECT_EQ(small.seenByOne, large.seenByOne);
  const PhotoInfo a = Read(dir_->File("l/mosaic.tif"));
  const PhotoInfo b = Read(dir_->File("t/mosaic.tif"));
  int different = 0;
  for (std::size_t i = 0; i < a.data.size(); ++i) different += std::abs(a.data[i] - b.data[i]) > 20;
  EXPECT_LT(different, 0.01 * a.data.size());
}

// Layers in memory, in files, and with the orthos read again give the same cells.
TEST_F(MosaicStageTest, WithoutMemoryForLayersTheMosaicIsTheSame) {
  Make(Options("full"));
  MosaicOptions options = Options("lean");
  options.layerMemory = 0;
  Make(options);
  for (const char* name : {"/mosaic.tif", "/source.tif", "/quality.tif"}) {
    EXPECT_EQ(Read(dir_->File("full") + name).data, Read(dir_->File("lean") + name).data) << name;
  }
}

/// What goes wrong with a photo or the disk, and what comes of it.
struct Trouble {
  const char* name;
  std::function<void(MosaicInput&, MosaicOptions&)> make;
  rlim_t fileBytes;
  bool made;            ///< the mosaic
  const char* says;     ///< in the error, or in the line of the photo left out
  std::int64_t ofTwin;  ///< cells that the last photo supplies; -1: not looked at
};

TEST_F(MosaicStageTest, TroubleIsSaidInOneLineAndLosesNothing) {
  const auto ortho = [](const MosaicInput& input, std::size_t photo) {
    const auto& record = input.blocks[0].GetPhotos()[photo];
    return OrthoName(input.orthoPrefix, record.GetPhotoName(), record.GetImgBlkId());
  };
  const auto nothing = [](MosaicInput&, MosaicOptions&) {};
  const Trouble cases[] = {
      {"damaged ortho",
       [&](MosaicInput& input, MosaicOptions&) { fs::resize_file(ortho(input, 2), 100); },
       RLIM_INFINITY, true, "cannot be read; the photo is left out", -1},
      {"missing ortho", [&](MosaicInput& input, MosaicOptions&) { fs::remove(ortho(input, 0)); },
       RLIM_INFINITY, true, "cannot be read; the photo is left out", -1},
      {"missing mask",
       [&](MosaicInput& input, MosaicOptions&) {
         EXPECT_TRUE(fs::remove(ortho(input, 1) + "_obs.tif"));
       },
       RLIM_INFINITY, true, "_obs.tif: cannot be read; the photo is left out", -1},
      {"mask of another size",
       [&](MosaicInput& input, MosaicOptions&) {
         fs::copy_file(ortho(input, 0) + "_obs.tif", ortho(input, 1) + "_obs.tif",
                       fs::copy_options::overwrite_existing);
       },
       RLIM_INFINITY, true, "is no mask of the size of its ortho image", -1},
      {"a photo without cells of its own",
       [](MosaicInput& input, MosaicOptions&) {
         const auto twin = input.blocks[1].GetPhotos().front();
         input.blocks[1].InsertPhoto(twin);
       },
       RLIM_INFINITY, true, nullptr, 0},
      {"no surface", [](MosaicInput&, MosaicOptions& options) { options.workDir += "/none"; },
       RLIM_INFINITY, false, "dsm.tif", -1},
      {"disk full while the photos are judged",
       [](MosaicInput&, MosaicOptions& options) { options.layerMemory = 0; }, 1000, false,
       "disk full", -1},
      {"disk full while tiles are written", nothing, 20'000, false, "disk full", -1},
  };
  for (const Trouble& trouble : cases) {
    SCOPED_TRACE(trouble.name);
    const tqtortho::testing::TempDir out;
    MosaicOptions options;
    options.workDir = out.File("work");
    options.outDir = out.Path();
    fs::copy(dir_->File("job/work"), options.workDir, fs::copy_options::recursive);
    fs::remove_all(options.workDir + "/state");  // with the orthos as they were rectified
    MosaicInput input;
    MosaicReport report;
    std::string error;
    ASSERT_TRUE(LoadMosaicInput(options.workDir, input, error));
    const std::string copy = out.File("orthos/");
    fs::copy(input.orthoPrefix, copy, fs::copy_options::recursive);
    input.orthoPrefix = copy;
    trouble.make(input, options);
    out.Write("mosaic.tif", "older");
    bool made = false;
    {
      const FullDisk disk(trouble.fileBytes);
      made = MakeMosaic(input, options, {}, report, error);
    }
    EXPECT_EQ(made, trouble.made) << error;
    EXPECT_EQ(tqtortho::testing::ReadText(out.File("mosaic.tif")) == "older", !trouble.made);
    const bool leavesOut = trouble.made && trouble.says != nullptr;
    EXPECT_EQ(report.leftOut.size(), leavesOut ? 1U : report.leftOut.size());
    if (!leavesOut && trouble.made) {
      EXPECT_THAT(report.leftOut, ::testing::IsEmpty());
    }
    const std::string line = leavesOut && !report.leftOut.empty() ? report.leftOut[0] : error;
    EXPECT_THAT(line, HasSubstr(trouble.says == nullptr ? "" : trouble.says));
    EXPECT_EQ(line.find('\n'), std::string::npos);
    if (trouble.ofTwin >= 0) {
      EXPECT_EQ(report.supplied.back(), trouble.ofTwin);
    }
    for (const std::string& dir : {out.Path(), out.File("work/tmp/ot")}) {
      for (const auto& entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename();
        EXPECT_TRUE(name[0] != '.' && name != "layers") << "left behind: " << name;
      }
    }
  }
}

}  // namespace
}  // namespace tqtortho::host
