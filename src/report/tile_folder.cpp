// SPDX-License-Identifier: Apache-2.0
#include "report/tile_folder.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "geo/WebTiles.h"
#include "internal/safe_file.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

bool WriteTileJson(const std::string& path, const geo::WebTileReport& report) {
  const nlohmann::json json = {
      {"tilejson", "3.0.0"},
      {"name", "true orthophoto"},
      {"tiles", {"{z}/{x}/{y}.png"}},  // relative to this file
      {"scheme", "xyz"},
      {"minzoom", report.minZoom},
      {"maxzoom", report.maxZoom},
      {"bounds", {report.west, report.south, report.east, report.north}},
      {"center",
       {(report.west + report.east) / 2, (report.south + report.north) / 2, report.minZoom}}};
  return WriteWholeFile(path, json.dump(2) + "\n");
}

}  // namespace

bool WriteTileFolder(const std::string& outDir, const std::function<bool(double)>& progress,
                     std::string& error) {
  const std::string dir = outDir + "/tiles";
  std::error_code failed;
  fs::remove_all(dir, failed);
  geo::WebTileReport report;
  if (!geo::WriteWebTiles(outDir + "/mosaic.tif", dir, progress, report, error)) return false;
  if (report.tiles > 0 && WriteTileJson(dir + "/tiles.json", report)) return true;
  error = dir + ": cannot be written; is the disk full?";
  return false;
}

}  // namespace tqtortho::host
