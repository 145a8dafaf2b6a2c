// SPDX-License-Identifier: Apache-2.0
#include "run/input_stage.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "check/input_check.h"
#include "check/job_estimate.h"
#include "check/job_needs.h"
#include "geo/Vector.h"
#include "prepare/photo_staging.h"
#include "stage/photo_files.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

double GsdOf(const RunOptions& options, const SurveyFacts& facts) {
  if (!options.gsd) return RoundUpTwoDigits(facts.photoResolution);
  return *options.gsd > 0 ? *options.gsd : facts.dsm.cell;
}

void WarnOfResolution(double gsd, double photos, RunObserver& observer) {
  char text[200];
  if (gsd < 0.8 * photos) {
    std::snprintf(text, sizeof text,
                  "--gsd %.3g is finer than the photos (%.3g): cells share photo pixels, and masks "
                  "made by depth alone hide nearly everything",
                  gsd, photos);
    observer.Warn(text);
  } else if (gsd > 1.5 * photos) {
    std::snprintf(text, sizeof text,
                  "--gsd %.3g is coarser than the photos (%.3g): detail is dropped, and masks made "
                  "by depth alone miss hidden cells",
                  gsd, photos);
    observer.Warn(text);
  }
}

bool ReadArea(const RunOptions& options, const SurveyFacts& facts,
              std::vector<tqfd::Point2_T<double>>& ring, std::string& error) {
  if (options.areaPath.empty()) return true;
  return geo::ReadPolygon(options.areaPath, facts.dsm.coefficients.GetProjection(), ring, error);
}

/// What the job will make and need; notes it, and finds fault with what is too much.
void Estimate(JobRun& run, CheckResult& check) {
  std::vector<tqfd::Point2_T<double>> ring;
  std::string toldLater;
  (void)ReadArea(run.options, check.facts, ring, toldLater);
  run.report.estimate = EstimateJob(run.survey, check.facts.dsm, GsdOf(run.options, check.facts),
                                    run.options.threads, ring);
  const std::int64_t room = FreeSpace(run.paths.work);
  for (const auto& line : DescribeDsm(run.options.dsmPath, check.facts.dsm)) {
    run.observer.Note(line);
  }
  for (const auto& line : DescribeJob(run.survey, check.facts, run.report.estimate, room)) {
    run.observer.Note(line);
  }
  // Free space is not asked for when a job goes on, since most of its files are there already, nor
  // when the file system reports none at all: some do although they can be written to.
  const bool askDisk = room > 0 && !fs::exists(run.paths.work + "/state");
  if (!run.options.sizingOnly) {
    CheckCost(run.report.estimate, check.facts.photoResolution, run.paths.work,
              {askDisk ? room : -1, MachineMemory()}, run.options.allowLargeJob, check.findings);
  }
}

}  // namespace

RunStatus CheckInputs(JobRun& run) {
  if (SplitBlocksByCamera(run.survey) > 0) {
    run.observer.Note(
        "photos of several cameras lie in one block; each camera gets a block of its own");
  }
  if (!ChooseBands(run.options.bands, run.paths.staged, run.survey, run.error)) {
    return RunStatus::kBadInput;
  }
  run.progress.Begin("check inputs");
  CheckResult check = CheckSurvey(run.survey, run.options.dsmPath);
  run.report.facts = check.facts;
  run.report.leftOut = run.survey.leftOut;
  if (check.Usable()) Estimate(run, check);
  for (const auto& finding : check.findings) {
    if (finding.level == Finding::Level::kWarning) run.observer.Warn(finding.text);
  }
  if (check.Usable()) return RunStatus::kDone;
  run.error = std::find_if(check.findings.begin(), check.findings.end(), [](const Finding& f) {
                return f.level == Finding::Level::kError;
              })->text;
  return RunStatus::kBadInput;
}

RunStatus JobDirectories::Take(JobRun& run) {
  const JobPaths& paths = run.paths;
  std::error_code ignored;
  const bool ours =
      CheckWritable(run.options.outDir, run.error) && CheckWritable(paths.work, run.error) &&
      out_.Take(paths.out, run.error) &&
      (fs::equivalent(paths.out, paths.work, ignored) || work_.Take(paths.work, run.error)) &&
      CheckWritable(paths.tmp + "/ot", run.error) &&
      CheckWritable(paths.data + "/ortho_data", run.error) && CheckWritable(paths.ortho, run.error);
  if (!ours) return RunStatus::kBadInput;
  RemoveUnfinishedFiles(paths.out);
  RemoveUnfinishedFiles(paths.work);
  return RunStatus::kDone;
}

RunStatus StageSurvey(JobRun& run) {
  if (run.options.fresh) run.state.Clear();
  if (run.options.sizingOnly && run.state.HasPhotos()) {
    run.error = run.paths.work +
                ": holds a job that has ortho images, and a sizing run would remove them; choose "
                "another --out, or start over with --fresh";
    return RunStatus::kBadInput;
  }
  for (auto& block : run.survey.blocks) {
    block.path = fs::absolute(block.path).lexically_normal().string();
  }
  if (!StagePhotos(run.survey, run.paths.staged, run.error)) return RunStatus::kFailed;
  if (WriteCameraFile(run.paths.cameras, run.survey) &&
      WritePhotoList(run.paths.photos, run.survey)) {
    return RunStatus::kDone;
  }
  run.error = run.paths.work + ": cannot be written to; choose another --work or free some space";
  return RunStatus::kFailed;
}

RunStatus ChooseAreaAndResolution(JobRun& run) {
  if (!ReadArea(run.options, run.report.facts, run.area, run.error)) return RunStatus::kBadInput;
  run.report.gsd = GsdOf(run.options, run.report.facts);
  WarnOfResolution(run.report.gsd, run.report.facts.photoResolution, run.observer);
  run.progress.End();
  return RunStatus::kDone;
}

}  // namespace tqtortho::host
