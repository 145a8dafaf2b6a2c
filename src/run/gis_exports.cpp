// SPDX-License-Identifier: Apache-2.0
#include "run/gis_exports.h"

#include <nlohmann/json.hpp>

#include "core/fingerprint.h"
#include "report/seams_file.h"
#include "report/tile_folder.h"
#include "tqtortho/Version.h"

namespace tqtortho::host {
namespace {

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

void ExportMosaic(JobRun& run, const MosaicInput& input, const std::string& mosaicFingerprint) {
  const auto progress = [&](double percent) { return run.progress.Update(percent); };
  const auto make = [&](const char* stage, const std::string& file, const std::string& form,
                        const auto& write) {
    const std::string fingerprint =
        Fingerprint().Add(TQTORTHO_VERSION).Add(mosaicFingerprint).Add(form).Text();
    if (run.progress.Stopped() || run.state.Stage(stage, fingerprint)) return;
    run.progress.Begin(stage);
    std::string error;
    if (write(error)) {
      run.state.FinishStage(stage, fingerprint, {file}, nlohmann::json::object());
    } else if (!run.progress.Stopped()) {
      run.observer.Warn(error + " (the mosaic is complete)");
    }
    run.progress.End();
  };
  make("seams", run.paths.out + "/seams.gpkg", "", [&](std::string& error) {
    return WriteSeamsFile(input, run.paths.out, run.paths.work, StandingsOf(input, run.report),
                          progress, error);
  });
  if (!run.options.webTiles) return;
  // Tiles show what JPEG has left of the mosaic.
  const MosaicFormat& stored = run.options.format;
  const std::string lossy =
      stored.compression == "jpeg" ? "jpeg " + std::to_string(stored.jpegQuality) : std::string();
  make("tiles", run.paths.out + "/tiles/tiles.json", lossy, [&](std::string& error) {
    return WriteTileFolder(
        run.paths.out, [&](double share) { return progress(100 * share); }, error);
  });
}

}  // namespace tqtortho::host
