// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <vector>

#include "apps/tqtortho/commands.h"
#include "fuzz/require.h"
#include "geo/InputPolicy.h"
#include "survey/number_text.h"
#include "testing/temp_dir.h"
#include "town/sample_town.h"

namespace {

using namespace tqtortho;
using namespace tqtortho::fuzz;

/// A town of 20 m and what a job on it is told in any case.
struct Site {
  Site() {
    geo::UseLocalFilesOnly();
    host::SampleOptions town;
    town.outDir = dir.File("town");
    town.sizeM = 20;
    town.photoCount = 3;
    town.photoGsdM = 0.25;
    town.dsmCellM = 0.5;
    town.truthCellM = 1;
    std::string error;
    Require(host::WriteSampleTown(town, error, [](double) { return true; }));
    dir.Write("inside.geojson", kInside);
    dir.Write("broken.geojson", "{\"type\":");
    for (const char* option : {"--dsm", "--cameras", "--photos"}) {
      given.insert(given.end(),
                   {option, dir.File(std::string("town/") + (option + 2) +
                                     (option == std::string("--dsm") ? ".tif" : ".txt"))});
    }
    given.insert(given.end(), {"--out", dir.File("out"), "--quiet"});
  }
  static constexpr const char* kInside =
      R"({"type":"FeatureCollection","crs":{"type":"name","properties":{"name":"EPSG:32633"}},)"
      R"("features":[{"type":"Feature","properties":{},"geometry":{"type":"Polygon","coordinates":)"
      R"([[[500002,5400002],[500015,5400002],[500009,5400015],[500002,5400002]]]}}]})";
  testing::TempDir dir;
  std::vector<std::string> given;
};

/// Names of files are chosen among few, so that nothing is read or written elsewhere.
std::string Place(const Site& site, const std::string& option, const std::string& value) {
  static const char* const kPlaces[] = {"inside.geojson", "broken.geojson", "none", "town",
                                        "out/w"};
  const std::size_t i = value.size() % std::size(kPlaces);
  return site.dir.File(option == "--work" ? (i % 2 == 0 ? "w" : "out/w") : kPlaces[i]);
}

/// Cells so fine, or photos so many threads, only take time. Numbers that are none stay.
bool TakesLong(const std::string& option, const std::string& value) {
  const auto number = host::ReadDouble(value);
  if (!number || !std::isfinite(*number)) return false;
  return (option == "--gsd" && *number > 0 && *number < 0.1) ||
         (option == "--threads" && *number > 4);
}

/// The arguments of an option file: a line holds an option and its value. Nothing when it would not
/// be a job of a moment on the town.
std::vector<std::string> Arguments(const Site& site, std::string_view text) {
  static const char* const kFree[] = {
      "--gsd",     "--start-height", "--resampling", "--occlusion", "--walls",       "--finish",
      "--format",  "--bands",        "--compress",   "--range",     "--sizing-only", "--fresh",
      "--threads", "--crs",          "--reduced",    "--json",      "--frame",       "--offset"};
  std::vector<std::string> arguments = site.given;
  while (!text.empty() && arguments.size() < 60) {
    const std::string line(text.substr(0, text.find('\n')));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const std::size_t blank = line.find(' ');
    const std::string option = line.substr(0, blank);
    std::string value = blank == std::string::npos ? std::string() : line.substr(blank + 1);
    // What has no business here would name files.
    const bool isPlace = option == "--area" || option == "--work" || option == "--images" ||
                         option == "--camera-file";
    if (!isPlace && std::find(std::begin(kFree), std::end(kFree), option) == std::end(kFree)) {
      continue;
    }
    if (isPlace) value = Place(site, option, value);
    if (TakesLong(option, value)) return {};
    arguments.push_back(option);
    if (blank != std::string::npos) arguments.push_back(value);
  }
  return arguments;
}

}  // namespace

// The whole of `run` on three photos with any options: a status that is one, and after a good
// status the products.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Site site;
  std::vector<std::string> arguments = Arguments(site, Text(data, size));
  if (arguments.empty()) return 0;
  std::error_code ignored;
  std::filesystem::remove_all(site.dir.File("out"), ignored);
  std::filesystem::remove_all(site.dir.File("w"), ignored);
  // The parser empties the vector.
  const bool sizing = std::count(arguments.begin(), arguments.end(), "--sizing-only") > 0;
  CLI::App app;
  int status = app::kDone;
  app::AddRun(app, status);
  arguments.insert(arguments.begin(), "run");
  std::reverse(arguments.begin(), arguments.end());  // as the parser wants a vector
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    Require(error.get_exit_code() != 0);
    return 0;
  }
  Require(status == app::kDone || status == app::kFailed || status == app::kBadInput);
  const bool hasMosaic = std::filesystem::exists(site.dir.File("out/mosaic.tif"));
  Require(status != app::kDone || hasMosaic || sizing);
  return 0;
}
