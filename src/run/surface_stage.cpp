// SPDX-License-Identifier: Apache-2.0
#include "run/surface_stage.h"

#include <cstdio>
#include <filesystem>

#include "core/fingerprint.h"
#include "prepare/border_mask_maker.h"
#include "prepare/dsm_prepare.h"
#include "run/stage_records.h"
#include "stage/file_stamp.h"
#include "stage/job_faults.h"
#include "tqfd/PathHelper.h"
#include "tqtortho/Version.h"
#include "walls/wall_stage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

/// Makes the walls of the working copy upright and delivers what came of it, or takes away what an
/// earlier run delivered.
/// @param files  gets the names of what was delivered
bool SharpenSurface(JobRun& run, std::vector<std::string>& files) {
  const std::string surface = run.paths.out + "/surface.tif";
  const std::string codes = run.paths.out + "/walls.tif";
  const Walls walls = run.options.walls;
  std::error_code ignored;
  fs::remove(surface, ignored);
  fs::remove(codes, ignored);
  run.report.walls = {};
  if (walls == Walls::kKeep) return true;
  run.progress.Begin("walls");
  const auto progress = [&](double share) { return run.progress.Update(100 * share); };
  if (!SharpenWalls(run.survey, run.paths.dsm, codes, walls, progress, run.report.walls,
                    run.error)) {
    return false;
  }
  if (walls == Walls::kPhotos && !run.report.walls.photosTell) return true;
  if (!tqfd::PathHelper::CopyFile2(run.paths.dsm, surface)) {
    run.error = surface + ": cannot be written; is the disk full?";
    return false;
  }
  files.insert(files.end(), {surface, codes});
  return true;
}

/// A word where the photos did not decide what they were asked.
void WarnOfWalls(const WallReport& walls, RunObserver& observer) {
  const double judged =
      100.0 * static_cast<double>(walls.judgedCells) / static_cast<double>(walls.wallCells);
  char text[200];
  if (!walls.photosTell) {
    observer.Warn(
        "walls: the photos cannot tell where walls stand; they are kept as the DSM has them "
        "(--walls surface stands them half way up)");
  } else if (judged < 50) {
    std::snprintf(text, sizeof text,
                  "walls: two photos see both sides on %.0f %% of the cells beside walls only; the "
                  "others (3 in walls.tif) follow these and the surface",
                  judged);
    observer.Warn(text);
  }
}

bool WriteSurfaceAndBorders(JobRun& run, std::vector<std::string>& files) {
  run.progress.Begin("prepare DSM");
  if (!PrepareDsm(run.options.dsmPath, run.paths.dsm, run.paths.origin, {}, run.report.dsm,
                  run.error)) {
    return false;
  }
  files = {run.paths.dsm, run.paths.origin, run.paths.border};
  if (!SharpenSurface(run, files)) return false;
  run.progress.Begin("border mask");
  BorderMaskOptions border;
  // Ray tracing finds more the more ground it is told to look at. Otherwise the borders only say
  // where the orthos are smoothed.
  border.code = run.options.occlusion == Occlusion::kRays ? BorderCode::kTraceEverywhere
                                                          : BorderCode::kSmoothOnly;
  const auto progress = [&](double share) { return run.progress.Update(100 * share); };
  return WriteBorderMask(run.paths.dsm, run.paths.border, border, run.error, nullptr, progress) &&
         AllDone(run.paths.work, run.error);
}

}  // namespace

RunStatus PrepareSurface(JobRun& run) {
  const std::string fingerprint = Fingerprint()
                                      .Add(TQTORTHO_VERSION)
                                      .Add(run.options.dsmPath)
                                      .Add(FileStamp(run.options.dsmPath))
                                      .Add(static_cast<int>(run.options.occlusion))
                                      .Add(static_cast<int>(run.options.walls))
                                      .Text();
  run.state.SetBase(fingerprint);
  const auto said = run.state.Stage("dsm", fingerprint);
  const bool made = said && said->contains("walls") &&
                    FromRecord(said->at("walls"), run.report.walls) &&
                    FromRecord(*said, run.report.dsm);
  if (!made) {
    std::vector<std::string> files;
    if (!WriteSurfaceAndBorders(run, files)) return run.EndEarly();
    nlohmann::json record = ToRecord(run.report.dsm);
    record["walls"] = ToRecord(run.report.walls);
    run.state.FinishStage("dsm", fingerprint, files, record);
  }
  if (run.progress.Stopped()) return run.EndEarly();
  if (run.options.walls == Walls::kPhotos && run.report.walls.wallCells > 0) {
    WarnOfWalls(run.report.walls, run.observer);
  }
  return RunStatus::kDone;
}

}  // namespace tqtortho::host
