// SPDX-License-Identifier: Apache-2.0
// A whole job of the library on a world whose truth is known, and what hosts ask of it afterwards,
// each held to the world or to a literal twin. tests/golden_test.cpp holds the same job's bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "core/rect_ops.h"
#include "mosaic/mosaic_layer.h"
#include "pipeline/job_lattice.h"
#include "pipeline/param_file.h"
#include "rectify/sidecar.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "testing/box_world.h"
#include "testing/log_capture.h"
#include "testing/progress_calls.h"
#include "testing/threads.h"
#include "tqfd/PathHelper.h"
#include "tqraster/tqRasterTorMsk.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

namespace fs = std::filesystem;
using testing::BoxWorld;
using testing::Calls;
using ::testing::Each;
using ::testing::ElementsAre;
using testing::Threads;
using Bytes = std::vector<std::uint8_t>;
constexpr double kGsd = 0.125;  // shadows of less than 500 cells would count as speckles

class LibraryJobTest : public ::testing::Test, public tqTORProc {
 protected:
  LibraryJobTest() {
    tqfd::PathHelper::SetProgramDataDirectory(world.dir.File("state"));
    tqorkit::TqFSManager::SetOutputTmpFilePath(world.dir.File("tmp"));
    fs::create_directories(out);
  }
  ~LibraryJobTest() override {
    tqfd::PathHelper::SetProgramDataDirectory("");
    tqorkit::TqFSManager::SetOutputTmpFilePath("");
    TqRaster::tqRasterTorMsk::SetMaker(nullptr);
  }
  bool Make(Calls* calls = nullptr) {
    double pair[2] = {kGsd, 0};
    return TrueOrthoPhotoProc(world.Dsm().c_str(), world.Cameras().c_str(), world.Photos().c_str(),
                              pair, out.c_str(), nullptr, 1, false, false,
                              calls ? Calls::Callback : nullptr, calls);
  }
  static tqorkit::PhotoInfo Load(const std::string& path, tqimage::GeoCoefficients* geo = nullptr) {
    tqorkit::PhotoInfo image;
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, geo)) << path;
    return image;
  }
  struct Made {
    const BoxWorld::Photo* truth;
    tqorkit::tqExtOri* photo;
    std::string ortho;
  };
  /// The photos in the order of the job.
  std::vector<Made> Photos() {
    std::vector<Made> all;
    for (std::size_t b = 0; b < photoBlocks.size(); ++b) {
      auto photo = photoBlocks[b].GetPhotos().begin();
      for (const auto& truth : BoxWorld::kPhotos) {
        if (truth.folder != static_cast<int>(b)) continue;
        all.push_back({&truth, &*photo, OrthoName(out, truth.name, truth.folder)});
        ++photo;
      }
    }
    return all;
  }
  std::map<std::string, std::string> Outputs() const {
    std::map<std::string, std::string> files;
    for (const auto& file : fs::directory_iterator(out)) {
      files[file.path().filename()] = testing::ReadText(file.path());
    }
    return files;
  }

  const BoxWorld world{-32767};
  const std::string out = world.dir.File("out/");
};

TEST_F(LibraryJobTest, FootprintsOrthosAndMasksShowTheWorld) {
  const testing::LogCapture log;
  ASSERT_TRUE(Make());
  EXPECT_THAT(log.lines, ElementsAre(::testing::AllOf(
                             ::testing::HasSubstr(ToGbk(message::kRectifySeconds)),
                             ::testing::HasSubstr("\n" + ToGbk(message::kUpdateSeconds) + "0\n"))));
  const double transform[] = {BoxWorld::kX0, 0.5, 0, BoxWorld::kY0, 0, -0.5};
  const JobLattice lattice({transform, BoxWorld::kCols, BoxWorld::kRows}, kGsd);
  int hidden = 0, found = 0, seen = 0, wrong = 0;
  for (const auto& [truth, photo, name] : Photos()) {
    SCOPED_TRACE(name);
    Sidecar s;
    ASSERT_TRUE(ReadSidecar(OrthoSidecarName(name), s));
    const auto& rect = photo->GetGeoRect();
    EXPECT_DOUBLE_EQ(rect.minX, s.c + 0.5 * s.a);
    EXPECT_DOUBLE_EQ(rect.maxY, s.f + 0.5 * s.e);
    EXPECT_NEAR(rect.maxX, rect.minX + (s.cols - 1) * kGsd, 1e-9);
    EXPECT_NEAR(rect.minY, rect.maxY - (s.rows - 1) * kGsd, 1e-9);
    // All ground that the photo shows without its walls is in its footprint, and not much more.
    const PhotoCamera camera = CameraOf(BoxWorld::Camera(truth->camera), BoxWorld::Pose(*truth));
    tqfd::Rect2_T<double> shown;
    for (int i = 0; i < BoxWorld::kCols * BoxWorld::kRows; ++i) {
      const double east = 0.5 * (i % BoxWorld::kCols), south = 0.5 * (i / BoxWorld::kCols);
      const double x = BoxWorld::kX0 + east, y = BoxWorld::kY0 - south;
      double col = 0, row = 0;
      if (!host::PhotoPosition(camera, x, y, BoxWorld::Height(east, south), col, row)) continue;
      if (south > 2.5 || east > 5) FoldInto(shown, tqfd::Rect2_T<double>{x, y, x, y});
    }
    EXPECT_LE(rect.minX, shown.minX + 3 * kGsd);
    EXPECT_LE(rect.minY, shown.minY + 3 * kGsd);
    EXPECT_GE(rect.maxX, shown.maxX - 3 * kGsd);
    EXPECT_GE(rect.maxY, shown.maxY - 3 * kGsd);
    EXPECT_LT(rect.maxX - rect.minX, shown.maxX - shown.minX + 1.5);
    EXPECT_LT(rect.maxY - rect.minY, shown.maxY - shown.minY + 1.5);
    const double columns = (rect.minX - lattice.AnchorX()) / kGsd;
    const double rows = (rect.maxY - lattice.Hair() - lattice.AnchorY()) / kGsd;
    EXPECT_NEAR(columns, std::round(columns), 1e-5);
    EXPECT_NEAR(rows, std::round(rows), 1e-5) << "a hair above the lattice, all photos alike";

    tqimage::GeoCoefficients geo;
    const auto ortho = Load(name, &geo);
    const auto mask = Load(ObscuredMaskName(name)), data = Load(OwnershipMaskName(name));
    ASSERT_EQ(ortho.width, s.cols);
    ASSERT_EQ(mask.data.size() * 3, ortho.data.size());
    for (int i = 0; i < s.cols * s.rows; ++i) {
      const auto at = geo.Raster2World(i % s.cols, i / s.cols);
      const double east = at.x - BoxWorld::kX0, south = BoxWorld::kY0 - at.y;
      const std::uint8_t* pixel = &ortho.data[3 * static_cast<std::size_t>(i)];
      const bool empty = pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0;
      ASSERT_EQ(data.data[i], empty ? 0 : 255);
      // Near walls, rims of shadows and the hole of the surface it hangs on a fraction of a cell.
      if (empty || pixel[0] == 1 || BoxWorld::FromWalls(east, south) < 0.8 || east < 6) continue;
      int views = 0;
      for (const double d : {-0.7, 0.7}) {
        views += BoxWorld::Sees(*truth, east + d, south + d) ? 1 : 0;
        views += BoxWorld::Sees(*truth, east + d, south - d) ? 1 : 0;
      }
      if (views == 4) {
        ++seen;
        wrong += mask.data[i] == 255 ? 1 : 0;
        EXPECT_NEAR(pixel[0], 30 + 4.5 * east, 3) << east << " " << south;
        EXPECT_NEAR(pixel[1], 230 - 5 * south, 3) << east << " " << south;
      } else if (views == 0) {
        ++hidden;
        found += mask.data[i] == 255 ? 1 : 0;
      }
    }
  }
  EXPECT_GT(seen, 80000);
  EXPECT_GT(hidden, 1500);
  EXPECT_GT(found, 0.2 * hidden) << "the rest is taken for speckles";
  EXPECT_LT(wrong, 0.002 * seen);
}

TEST_F(LibraryJobTest, BytesDoNotDependOnTheThreadsForOneParameterFile) {
  {
    const Threads two(2);
    ASSERT_TRUE(Make());
  }
  std::map<std::string, std::string> first;
  for (const int count : {1, 3, 5}) {
    fs::remove_all(out);
    fs::create_directories(out);
    const Threads threads(count);
    tqTORectify rectify;
    Calls calls;
    const int blocks = 4;  // of at most three photos; the last ones may hold none
    EXPECT_TRUE(rectify.ShellOrthoRectify(nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
                                          blocks, false, false, Calls::Callback, &calls));
    EXPECT_THAT(calls.percents, ElementsAre(25, 50, 75, 100));
    if (first.empty()) first = Outputs();
    EXPECT_GT(first.size(), 30U);
    for (const auto& [name, bytes] : Outputs()) EXPECT_TRUE(first.at(name) == bytes) << name;
  }
}

// A photo whose trace fails keeps its mask, one without a mask gets no weights; both stages stop.
TEST_F(LibraryJobTest, RetracedMasksAreThoseOfTheTracerAndWeightsLeaveOutWhatIsNotShown) {
  ASSERT_TRUE(Make());
  auto photos = Photos();
  const Bytes kept = Load(ObscuredMaskName(photos[2].ortho)).data;
  photos[2].photo->SetGSD(0, 0);
  Calls calls;
  ASSERT_TRUE(ObscuredMskProc(world.Dsm(), out, Calls::Callback, &calls));
  EXPECT_THAT(calls.messages, Each(ToGbk(message::kObscuring)));
  EXPECT_EQ(calls.percents.size(), photos.size()) << "failed photos count as done";
  for (std::size_t i = 0; i < photos.size(); ++i) {
    const std::string alone = world.dir.File("alone.tif");
    tqRayTracer tracer;
    EXPECT_EQ(tracer.DoRayTracingOnPyr(*photos[i].photo, world.Dsm(), alone,
                                       OwnershipMaskName(photos[i].ortho)),
              i != 2);
    EXPECT_EQ(Load(ObscuredMaskName(photos[i].ortho)).data, i == 2 ? kept : Load(alone).data) << i;
  }
  fs::remove(ObscuredMaskName(photos[4].ortho));
  calls = {};
  EXPECT_TRUE(WeightMskProc(out, "no such directory", Calls::Callback, &calls));
  EXPECT_EQ(calls.percents.size(), photos.size() - 1);
  for (std::size_t i = 0; i < photos.size(); ++i) {
    ASSERT_EQ(fs::exists(WeightMaskName(photos[i].ortho)), i != 4);
    if (i == 4) continue;
    const Bytes weights = Load(WeightMaskName(photos[i].ortho)).data;
    const Bytes mask = Load(ObscuredMaskName(photos[i].ortho)).data;
    const Bytes data = Load(OwnershipMaskName(photos[i].ortho)).data;
    for (std::size_t k = 0; k < weights.size(); ++k) {
      ASSERT_EQ(weights[k] == 0, mask[k] == 255 || data[k] == 0) << i << " " << k;
    }
  }
  const Threads one(1);
  for (const bool weighing : {false, true}) {
    Calls stop;
    stop.answer = 0;
    EXPECT_EQ(weighing ? WeightMskProc(out, "", Calls::Callback, &stop)
                       : ObscuredMskProc(world.Dsm(), out, Calls::Callback, &stop),
              !weighing);
    EXPECT_EQ(stop.percents.size(), 1U);
  }
  photoBlocks.clear();
  EXPECT_FALSE(WeightMskProc(out, "", nullptr, nullptr));
  EXPECT_TRUE(ObscuredMskProc(world.Dsm(), out, nullptr, nullptr));
}

TEST_F(LibraryJobTest, QuickMasksOfABlockAreTracedOnceAndOldOnesGo) {
  ASSERT_TRUE(Make());
  world.dir.Write("out/far.tif_obs.tif", "yesterday");
  world.dir.Write("out/far.tif_obs.tif_thumb.png", "yesterday");
  std::string params = testing::ReadText(ParamFilePath());
  const std::size_t name = params.find("b.png\t");
  params.replace(name, 6, "far.tif\t9e9\t");  // its numbers move by one field
  const std::string path = world.dir.Write("params.txt", params);
  EXPECT_TRUE(BlockObs(path.c_str(), 1));
  EXPECT_FALSE(fs::exists(out + "far.tif_obs.tif"));
  EXPECT_FALSE(fs::exists(out + "far.tif_obs.tif_thumb.png"));
  const std::string alone = world.dir.File("alone.tif");
  tqRayTracer tracer;
  ASSERT_TRUE(tracer.DoRayTracingOnThumbnail(*Photos()[0].photo, world.Dsm(), alone, ""));
  EXPECT_EQ(Load(out + "a.tif_obs.tif").data, Load(alone).data) << "under its whole name";
  EXPECT_EQ(Load(out + "a.tif_obs.tif_thumb.png").bands, 1);
  const testing::LogCapture log;
  EXPECT_FALSE(BlockObs(nullptr, 1));
  EXPECT_FALSE(BlockObs(path.c_str(), 99));
  tqTORectify rectify;
  for (const int block : {0, 99}) EXPECT_FALSE(rectify.BlockOR(path.c_str(), block));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_FALSE(RefineOcclusion(out + "a.tif_obs.tif")) << "no border mask";
  const std::string scale = world.dir.Write("scale.txt", "1\n0.5\n0\n0\n0\t0\nd\no\nblock1\n");
  EXPECT_FALSE(BlockObs(scale.c_str(), 1));
  EXPECT_FALSE(rectify.BlockOR(scale.c_str(), 1));
  EXPECT_EQ(log.lines.size(), 2U);
}

TEST_F(LibraryJobTest, StopsAndFailuresLogTheirStageAndAHostsOwnMakerDecidesTheLast) {
  const struct {
    std::string_view stopAt;
    bool blockParamFile;
    std::string_view text;
  } cases[] = {{message::kEstimating, false, message::kExtentError},
               {"", true, message::kParamFileError},
               {message::kRectifying, false, message::kRectifyError}};
  for (const auto& c : cases) {
    fs::remove_all(world.dir.File("state"));
    photoBlocks.clear();
    if (c.blockParamFile) world.dir.Write("state", "a file where the directory should be");
    const testing::LogCapture log;
    struct Stop : Calls {
      std::string at;
      static int Answer(double, const char* text, void* user) {
        return text == static_cast<Stop*>(user)->at ? 0 : 1;
      }
    } stop;
    stop.at = ToGbk(c.stopAt);
    double pair[2] = {kGsd, 0};
    EXPECT_FALSE(TrueOrthoPhotoProc(world.Dsm().c_str(), world.Cameras().c_str(),
                                    world.Photos().c_str(), pair, out.c_str(), nullptr, 1, false,
                                    false, Stop::Answer, &stop));
    EXPECT_THAT(log.lines, ElementsAre(ToGbk(c.text)));
    EXPECT_EQ(photoBlocks.size(), 2U) << "what was read stays";
  }
  fs::remove_all(world.dir.File("state"));
  for (const bool answer : {true, false}) {
    photoBlocks.clear();
    TqRaster::tqRasterTorMsk::SetMaker([&](auto& blocks, auto, void*) {
      EXPECT_EQ(blocks.size(), 2U);
      return answer;
    });
    EXPECT_EQ(Make(), answer);
  }
}

}  // namespace
}  // namespace tqtortho
