// SPDX-License-Identifier: Apache-2.0
#include "run/take_along.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "core/fingerprint.h"
#include "geo/WebTiles.h"
#include "internal/safe_file.h"
#include "report/seams_file.h"
#include "tqtortho/Version.h"

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

/// How each photo stands, in the order of their numbers.
std::vector<PhotoStanding> StandingsOf(const MosaicInput& input, const RunReport& report) {
  std::map<std::pair<int, std::string>, const PhotoOutcome*> outcomes;
  for (const auto& outcome : report.photos) outcomes[{outcome.block, outcome.name}] = &outcome;
  std::vector<PhotoStanding> standings;
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      PhotoStanding standing;
      const auto found = outcomes.find({photo.GetImgBlkId(), photo.GetPhotoName()});
      if (found != outcomes.end() && found->second->done) {
        standing = {true, found->second->hiddenShare};
      }
      standings.push_back(standing);
    }
  }
  return standings;
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

void WriteTakeAlong(const MosaicInput& input, const JobPaths& paths, const RunOptions& options,
                    const std::string& mosaicFingerprint, JobState& state, StageRelay& relay,
                    const RunReport& report, RunObserver& observer) {
  const auto progress = [&](double percent) { return relay.Progress(percent); };
  const auto make = [&](const char* stage, const std::string& file, const std::string& form,
                        const auto& write) {
    const std::string fingerprint =
        Fingerprint().Add(TQTORTHO_VERSION).Add(mosaicFingerprint).Add(form).Text();
    if (relay.Stopped() || state.Stage(stage, fingerprint)) return;
    relay.Begin(stage);
    std::string error;
    if (write(error)) {
      state.FinishStage(stage, fingerprint, {file}, nlohmann::json::object());
    } else if (!relay.Stopped()) {
      observer.Warn(error + " (the mosaic is complete)");
    }
    relay.End();
  };
  make("seams", paths.out + "/seams.gpkg", "", [&](std::string& error) {
    return WriteSeamsFile(input, paths.out, paths.work, StandingsOf(input, report), progress,
                          error);
  });
  if (!options.webTiles) return;
  // Tiles show what JPEG has left of the mosaic.
  const MosaicFormat& stored = options.format;
  const std::string lossy =
      stored.compression == "jpeg" ? "jpeg " + std::to_string(stored.jpegQuality) : std::string();
  make("tiles", paths.out + "/tiles/tiles.json", lossy, [&](std::string& error) {
    return WriteTileFolder(
        paths.out, [&](double share) { return progress(100 * share); }, error);
  });
}

}  // namespace tqtortho::host
