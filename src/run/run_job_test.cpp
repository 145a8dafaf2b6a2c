// SPDX-License-Identifier: Apache-2.0
// Whole jobs of the command on a world whose truth is known: what is delivered shows it, and what
// a second run keeps is what a fresh one would make.
#include "run/run_job.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>

#include "stage/photo_files.h"
#include "survey/survey_reader.h"
#include "testing/box_world.h"
#include "testing/quiet_observer.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using tqtortho::testing::BoxWorld;
using tqtortho::testing::QuietObserver;
using Ask = std::function<void(RunOptions&)>;

class RunJobTest : public ::testing::Test {
 protected:
  RunReport Run(const std::string& out, const Ask& ask = {}, QuietObserver* watcher = nullptr,
                RunStatus status = RunStatus::kDone) {
    std::vector<std::string> problems;
    const auto survey = ReadSurvey(world.Cameras(), world.Photos(), problems);
    RunOptions options;
    options.dsmPath = world.Dsm();
    options.outDir = world.dir.File(out);
    options.gsd = kGsd;
    options.threads = 2;
    options.format.compression = "deflate";
    if (ask) ask(options);
    QuietObserver quiet;
    RunReport report;
    std::string error;
    EXPECT_EQ(RunJob(*survey, options, watcher ? *watcher : quiet, report, error), status) << error;
    return report;
  }
  static tqorkit::PhotoInfo Load(const std::string& path, tqimage::GeoCoefficients* geo = nullptr) {
    tqorkit::PhotoInfo image;
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, geo)) << path;
    return image;
  }
  /// Decoded cells of all rasters of a job that somebody is handed.
  std::map<std::string, std::vector<std::uint8_t>> Products(const std::string& out) const {
    std::map<std::string, std::vector<std::uint8_t>> cells;
    for (const char* name : {"mosaic.tif", "source.tif", "quality.tif", "preview.png"}) {
      cells[name] = Load(world.dir.File(out + "/" + name)).data;
    }
    for (const auto& file : fs::directory_iterator(world.dir.File(out + "/ortho"))) {
      if (file.path().extension() != ".tif") continue;
      cells[file.path().filename()] = Load(file.path()).data;
    }
    return cells;
  }

  static constexpr double kGsd = 0.2;
  const BoxWorld world{-32767};
};

TEST_F(RunJobTest, MosaicMasksAndQualityShowTheWorld) {
  const RunReport report = Run("job");
  EXPECT_EQ(report.leftOut.size(), 0U);
  tqimage::GeoCoefficients geo;
  const std::string out = world.dir.File("job/");
  const auto mosaic = Load(out + "mosaic.tif", &geo), quality = Load(out + "quality.tif");
  const auto source = Load(out + "source.tif");
  int shown = 0, wrong = 0, facades = 0;
  for (int i = 0; i < mosaic.width * mosaic.height; ++i) {
    const auto at = geo.Raster2World(i % mosaic.width, i / mosaic.width);
    const double east = at.x - BoxWorld::kX0, south = BoxWorld::kY0 - at.y;
    const bool inside = east > 0 && south > 0 && east < 43 && south < 30;
    if (quality.data[i] != kQualitySeen || !inside || BoxWorld::FromWalls(east, south) < 0.5) {
      continue;
    }
    const std::uint8_t* pixel = &mosaic.data[4 * static_cast<std::size_t>(i)];
    const bool roof = BoxWorld::Height(east, south) > BoxWorld::Ground(east);
    ++shown;
    wrong += std::fabs(pixel[0] - 30 - 4.5 * east) > 3 || std::fabs(pixel[1] - 230 + 5 * south) > 3;
    facades += std::fabs(pixel[2] - 4 - (roof ? BoxWorld::kRoof : BoxWorld::kGround)) > 25;
  }
  EXPECT_GT(shown, 20000);
  EXPECT_LT(wrong, 0.01 * shown);
  EXPECT_LT(facades, 0.005 * shown);

  // The masks against what the photos can see, and quality and source against the masks.
  double both = 0, either = 0;
  std::vector<int> views(quality.data.size(), 0);
  const auto* supplier = reinterpret_cast<const std::uint16_t*>(source.data.data());
  std::map<int, int> supplied;
  for (const auto& photo : BoxWorld::kPhotos) {
    const std::string name = OrthoName(out + "ortho/", photo.name, photo.folder);
    tqimage::GeoCoefficients place;
    const auto mask = Load(ObscuredMaskName(name), &place);
    const auto ortho = Load(out + "work/state/originals/" + fs::path(name).filename().string());
    ASSERT_EQ(mask.data.size() * 3, ortho.data.size());
    for (int i = 0; i < mask.width * mask.height; ++i) {
      const std::uint8_t* pixel = &ortho.data[3 * static_cast<std::size_t>(i)];
      if (pixel[0] <= 1 && pixel[1] == pixel[0] && pixel[2] == pixel[0]) continue;
      const auto at = place.Raster2World(i % mask.width, i / mask.width);
      const auto cell = geo.World2Raster(at.x, at.y, -1, -1);
      const bool hidden = mask.data[i] == 255;
      if (!hidden) ++views[static_cast<std::size_t>(cell.y) * mosaic.width + cell.x];
      const double east = at.x - BoxWorld::kX0, south = BoxWorld::kY0 - at.y;
      if (BoxWorld::FromWalls(east, south) < 0.3 || east < 6) continue;
      const bool truth = !BoxWorld::Sees(photo, east, south);
      both += hidden && truth;
      either += hidden || truth;
    }
  }
  EXPECT_GT(both / either, 0.9);
  for (std::size_t i = 0; i < views.size(); ++i) {
    const int q = quality.data[i];
    ASSERT_EQ(q == kQualitySeen || q == kQualitySeenOnce, views[i] > 0) << i;
    ASSERT_EQ(q == kQualitySeenOnce, views[i] == 1) << i;
    ++supplied[supplier[i]];
  }
  for (int number = 1; number <= 7; ++number) EXPECT_GT(supplied[number], 500) << number;
}

// Lists that people write put the photos of all cameras into one folder.
TEST_F(RunJobTest, PhotosOfSeveralCamerasInOneFolderAreAllMade) {
  std::vector<std::string> problems;
  auto survey = ReadSurvey(world.Cameras(), world.Photos(), problems);
  SurveyBlock& west = survey->blocks[0];
  SurveyBlock& east = survey->blocks[1];
  for (const std::size_t i : {0, 2}) {  // c.tif and f.png
    fs::copy(east.path + "/" + east.photos[i].name, west.path);
    west.photos.insert(west.photos.begin() + 1, east.photos[i]);
  }
  east.photos = {east.photos[1]};
  RunOptions options;
  options.dsmPath = world.Dsm();
  options.outDir = world.dir.File("mixed");
  options.gsd = kGsd;
  QuietObserver quiet;
  RunReport report;
  std::string error;
  ASSERT_EQ(RunJob(*survey, options, quiet, report, error), RunStatus::kDone) << error;
  EXPECT_EQ(report.photos.size(), 7U);
  for (const auto& photo : report.photos) EXPECT_TRUE(photo.done) << photo.name << photo.reason;
  // Blocks that were there keep their numbers, the second camera's photos of the first come last.
  EXPECT_TRUE(fs::exists(options.outDir + "/ortho/e_0.tif"));
  EXPECT_TRUE(fs::exists(options.outDir + "/ortho/a_1.tif"));
  EXPECT_TRUE(fs::exists(options.outDir + "/ortho/c_2.tif"));
}

// Options and inputs that change a product make it anew; the rest is kept.
TEST_F(RunJobTest, ASecondRunGivesWhatAFreshOneWould) {
  Run("job");
  struct Change {
    const char* name;
    std::function<void(const BoxWorld&)> make;
    Ask ask;
  };
  const auto nothing = [](const BoxWorld&) {};
  for (const Change& change :
       {Change{"nothing", nothing, {}},
        Change{"a lossy mosaic", nothing,
               [](RunOptions& o) {
                 o.format.compression = "jpeg";
                 o.format.jpegQuality = 60;
               }},
        // A raster of the same size and name, written again.
        Change{"another surface", [](const BoxWorld& w) { w.WriteDsm(-32767, 0.5); }, {}},
        Change{"another photo",
               [](const BoxWorld& w) {
                 fs::copy_file(w.dir.File("west/a.tif"), w.dir.File("west/d.tif"),
                               fs::copy_options::overwrite_existing);
               },
               {}},
        Change{"another finish", nothing, [](RunOptions& o) { o.finish = Finish::kMark; }},
        Change{"other bands", nothing,
               [](RunOptions& o) {
                 o.bands.bands = {2, 3, 1};
               }},
        Change{"nearest neighbour", nothing, [](RunOptions& o) { o.resampling = 0; }},
        Change{"the z-buffer's masks", nothing,
               [](RunOptions& o) { o.occlusion = Occlusion::kDepth; }},
        Change{"upright walls", nothing, [](RunOptions& o) { o.walls = Walls::kSurface; }}}) {
    SCOPED_TRACE(change.name);
    change.make(world);
    QuietObserver watcher;
    Run("job", change.ask, &watcher);
    fs::remove_all(world.dir.File("fresh"));
    Run("fresh", change.ask);
    const auto found = Products("job"), wanted = Products("fresh");
    EXPECT_EQ(found.size(), wanted.size());
    for (const auto& [name, cells] : wanted) EXPECT_TRUE(found.at(name) == cells) << name;
    const bool lossy = change.name == std::string("a lossy mosaic");
    if (lossy || change.name == std::string("nothing")) {
      EXPECT_EQ(watcher.stages.count("views"), 0U) << "no choice is made again";
      EXPECT_EQ(watcher.stages.count("compress"), lossy ? 1U : 0U);
    }
  }
}

TEST_F(RunJobTest, TheOldMosaicStaysUntilTheNewOneIsWhole) {
  Run("job");
  const std::string path = world.dir.File("job/mosaic.tif");
  const std::string before = tqtortho::testing::ReadText(path);
  const Ask jpeg = [](RunOptions& options) { options.format.compression = "jpeg"; };
  QuietObserver stopped;
  stopped.stopAt = "compress";
  Run("job", jpeg, &stopped, RunStatus::kInterrupted);
  EXPECT_TRUE(tqtortho::testing::ReadText(path) == before);
  // What the texture file was is not known any more: the mosaic is made from the orthos.
  fs::remove(world.dir.File("job/work/tmp/ot/textures.tif"));
  QuietObserver whole;
  Run("job", jpeg, &whole);
  EXPECT_EQ(whole.stages.count("views"), 1U);
  EXPECT_FALSE(tqtortho::testing::ReadText(path) == before);
}

}  // namespace
}  // namespace tqtortho::host
