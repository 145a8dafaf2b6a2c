// SPDX-License-Identifier: Apache-2.0
//
// Every raster that small jobs make, held to the checksums in tests/golden: what no other test
// thought of shows here as a changed file. Checksums are of decoded cells and of the georeference,
// so that they do not depend on the versions of libraries that compress; positions in the world are
// chosen so that no cell hangs on the last bit of a number. scripts/renew_golden writes them anew;
// the commit that does so says why the cells changed.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "run/run_job.h"
#include "stage/photo_files.h"
#include "survey/survey_reader.h"
#include "testing/box_world.h"
#include "testing/quiet_observer.h"
#include "testing/threads.h"
#include "tqfd/PathHelper.h"
#include "tqfd/StringConverter.h"
#include "tqorkit/tqBinaryData.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

namespace fs = std::filesystem;
using testing::BoxWorld;

std::string Sum(const void* data, std::size_t bytes) {  // 64-bit FNV-1a
  std::uint64_t hash = 14695981039346656037ULL;
  for (std::size_t i = 0; i < bytes; ++i) {
    hash = (hash ^ static_cast<const std::uint8_t*>(data)[i]) * 1099511628211ULL;
  }
  char text[20];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

/// "cols x rows x bands first centre, cell, checksum" of a raster, what a map holds, or the text of
/// a sidecar; empty for any other file.
std::string Described(const std::string& path) {
  const std::string ending = fs::path(path).extension();
  if (ending == ".plan" || ending == ".georef" || ending == ".tfw" || ending == ".pgw") {
    const std::string text = testing::ReadText(path);
    return "text " + Sum(text.data(), text.size());
  }
  if (ending == ".bin") {
    tqorkit::tqBinaryData map;
    if (!map.Open(tqfd::StringConverter::Convert(path))) return "";
    std::vector<std::uint16_t> cells(static_cast<std::size_t>(map.GetWidth()) * map.GetHeight());
    if (!map.ReadBlkData(0, 0, map.GetWidth(), map.GetHeight(), cells.data())) return "";
    return "map " + Sum(cells.data(), 2 * cells.size());
  }
  tqorkit::PhotoInfo image;
  tqimage::GeoCoefficients at;
  if (ending != ".tif" && ending != ".png" && ending != ".msk") return "";
  if (!tqimage::TqImage::QuickReadImage(path, image, &at)) return "";
  char text[200];
  std::snprintf(text, sizeof text, "%d x %d x %d at %.3f %.3f cell %.4f %.4f: ", image.width,
                image.height, image.bands, at.GetOrigin().x, at.GetOrigin().y, at.GetResolution().x,
                at.GetResolution().y);
  return text + Sum(image.data.data(), image.data.size());
}

/// Compares what lies below a directory with tests/golden/NAME.sums, or writes that file.
void ExpectGolden(const std::string& name, const std::string& dir) {
  std::map<std::string, std::string> found, golden;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    const std::string file = entry.path().lexically_relative(dir).string();
    const std::string what = entry.is_regular_file() ? Described(entry.path()) : "";
    if (!what.empty()) found[file] = what;
  }
  const std::string path = std::string(TQTORTHO_GOLDEN) + "/" + name + ".sums";
  if (std::getenv("TQTORTHO_RENEW_GOLDEN") != nullptr) {
    std::ofstream out(path);
    for (const auto& [file, what] : found) out << file << ": " << what << "\n";
    return;
  }
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    const std::size_t colon = line.find(": ");
    golden[line.substr(0, colon)] = line.substr(colon + 2);
  }
  ASSERT_FALSE(golden.empty()) << path;
  for (const auto& [file, what] : golden) EXPECT_EQ(found[file], what) << name << ": " << file;
  for (const auto& [file, what] : found) EXPECT_TRUE(golden.count(file)) << file << " is new";
}

/// The library's job with all that a host can ask of it afterwards.
class LibraryJob : public tqTORProc {
 public:
  using tqTORProc::ObscuredMskProc;
  using tqTORProc::photoBlocks;
  using tqTORProc::RefineOcclusion;
  using tqTORProc::WeightMskProc;

  bool Make(const BoxWorld& world, const std::string& out, double gsd) {
    double pair[2] = {gsd, 0};
    return TrueOrthoPhotoProc(world.Dsm().c_str(), world.Cameras().c_str(), world.Photos().c_str(),
                              pair, out.c_str(), nullptr, 1, true, false, nullptr, nullptr);
  }
};

void WriteBorders() {
  std::vector<std::uint8_t> cells(60 * 50, 0);
  for (int row = 9; row < 23; ++row) cells[row * 60 + 17] = cells[row * 60 + 31] = 200;
  for (int col = 41; col < 49; ++col) cells[7 * 60 + col] = cells[13 * 60 + col] = 200;
  fs::create_directories(fs::path(BorderMaskPath()).parent_path());
  EXPECT_TRUE(testing::WriteRaster(BorderMaskPath(), tqimage::kByte, cells.data(), 60, 50,
                                   {BoxWorld::kX0 - 1, BoxWorld::kY0 + 1.5, 0.75, ""}, nullptr));
}

TEST(GoldenTest, LibraryJobMasksWeightsTextureUpdatesAndTraces) {
  const testing::Threads two(2);  // the plan of work blocks follows their number
  for (const char* step : {"plain", "borders"}) {
    const BoxWorld world(-32767);
    tqfd::PathHelper::SetProgramDataDirectory(world.dir.File("state"));
    tqorkit::TqFSManager::SetOutputTmpFilePath(world.dir.File("tmp"));
    const std::string out = world.dir.File("out/");
    fs::create_directories(out);
    const bool borders = step == std::string("borders");
    if (borders) WriteBorders();
    LibraryJob job;
    ASSERT_TRUE(job.Make(world, out, borders ? 0.4 : 0.15));
    ASSERT_TRUE(job.WeightMskProc(out, "", nullptr, nullptr));
    tqRayTracer tracer;
    ASSERT_TRUE(borders ||
                tracer.DoRayTracing("ignored", out + "self_test_dsm.tif", out + "self_test.tif"));
    if (borders) {
      auto photos = job.photoBlocks[1].GetPhotos();
      for (std::size_t i = 0; i < 3; ++i) {
        const std::string name = world.dir.File("out/traced" + std::to_string(i));
        ASSERT_TRUE(
            tracer.DoRayTracingOnPyr(photos[i], world.Dsm(), name + "_p.tif", out + "e_1.tif"));
        ASSERT_TRUE(tracer.DoRayTracingOnThumbnail(photos[i], world.Dsm(), name + "_t.tif", ""));
        ASSERT_TRUE(job.RefineOcclusion(name + "_p.tif"));
      }
      ASSERT_TRUE(job.ObscuredMskProc(world.Dsm(), out, nullptr, nullptr));
    }
    ASSERT_TRUE(job.GennerateFillTexture(out, nullptr, nullptr));
    ASSERT_TRUE(borders ? job.UpdateOrthoImages("", out, nullptr, nullptr)
                        : job.UpdateOrthoImagesEx("", out, nullptr, nullptr));
    ASSERT_TRUE(!borders || job.UpdateOrthoImagesMarkOcc("", out, nullptr, nullptr));
    fs::rename(world.dir.File("tmp/ot"), out + "ot");
    if (fs::exists(world.dir.File("rs"))) fs::rename(world.dir.File("rs"), out + "rs");
    std::string params = testing::ReadText(ParamFilePath());
    for (std::size_t at = 0; (at = params.find(world.dir.Path())) != std::string::npos;) {
      params.replace(at, world.dir.Path().size(), "DIR");
    }
    world.dir.Write("out/orParam.plan", params);
    ExpectGolden(std::string("library_") + step, out);
    tqfd::PathHelper::SetProgramDataDirectory("");
    tqorkit::TqFSManager::SetOutputTmpFilePath("");
  }
}

TEST(GoldenTest, RunsOfTheCommand) {
  const BoxWorld world(-32767);
  world.dir.Write("area.geojson",
                  R"({"type":"Polygon","crs":{"type":"name","properties":{"name":"EPSG:32633"}},)"
                  R"("coordinates":[[[352009.1,5411998.2],[352038.4,5411995.3],[352030.2,)"
                  R"(5411976.9],[352012.6,5411979.8],[352009.1,5411998.2]]]})");
  struct Run {
    const char* name;
    void (*ask)(host::RunOptions&);
  };
  for (const Run& run : {Run{"fill", [](host::RunOptions& o) { o.webTiles = true; }},
                         Run{"texture",
                             [](host::RunOptions& o) {
                               o.finish = host::Finish::kTexture;
                               o.fill = host::HoleFilling::kAll;
                             }},
                         Run{"mark",
                             [](host::RunOptions& o) {
                               o.finish = host::Finish::kMark;
                               o.occlusion = host::Occlusion::kRays;
                               o.walls = host::Walls::kSurface;
                             }},
                         Run{"area", [](host::RunOptions& o) {
                               o.finish = host::Finish::kNone;
                               o.occlusion = host::Occlusion::kDepth;
                               o.resampling = 0;
                               o.walls = host::Walls::kPhotos;
                               o.bands.bands = {3, 1, 2};
                               o.areaPath = "area.geojson";
                             }}}) {
    SCOPED_TRACE(run.name);
    std::vector<std::string> problems;
    const auto survey = host::ReadSurvey(world.Cameras(), world.Photos(), problems);
    ASSERT_TRUE(survey) << problems.front();
    host::RunOptions options;
    options.dsmPath = world.Dsm();
    options.outDir = world.dir.File(run.name);
    options.gsd = 0.25;
    options.threads = 2;
    run.ask(options);
    if (!options.areaPath.empty()) options.areaPath = world.dir.File(options.areaPath);
    testing::QuietObserver observer;
    host::RunReport report;
    std::string error;
    ASSERT_EQ(host::RunJob(*survey, options, observer, report, error), host::RunStatus::kDone)
        << error;
    for (const auto& photo : report.photos) EXPECT_TRUE(photo.done) << photo.name << photo.reason;
    ExpectGolden(std::string("run_") + run.name, options.outDir);
  }
}

}  // namespace
}  // namespace tqtortho
