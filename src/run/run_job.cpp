// SPDX-License-Identifier: Apache-2.0
#include "run/run_job.h"

#include <algorithm>
#include <utility>

#include "run/input_stage.h"
#include "run/mosaic_products.h"
#include "run/overview.h"
#include "run/rectify_stage.h"
#include "run/report_stage.h"
#include "run/surface_stage.h"
#include "stage/job_faults.h"
#include "tqfd/Timer.h"

namespace tqtortho::host {
namespace {

RunStatus MakeMosaicAndReport(JobRun& run) {
  RunStatus status = MakeProducts(run);
  if (status == RunStatus::kDone) status = WriteOverview(run);
  if (status == RunStatus::kDone) WriteReport(run);
  return status;
}

RunStatus RunStages(JobRun& run) {
  JobDirectories directories;
  RunStatus status = CheckInputs(run);
  if (status == RunStatus::kDone) status = directories.Take(run);
  if (status != RunStatus::kDone) return status;

  ForgetFaults();
  const JobSettings settings(run);
  for (const auto stage : {StageSurvey, PrepareSurface, ChooseAreaAndResolution, RectifyPhotos}) {
    status = stage(run);
    if (status != RunStatus::kDone) return status;
  }
  if (run.OrthoPaths().empty()) {
    const PhotoOutcome& first = run.report.photos.front();
    run.error = "no photo could be rectified; the first: photo " + first.name + ": " + first.reason;
    return RunStatus::kFailed;
  }
  return run.options.sizingOnly ? RunStatus::kDone : MakeMosaicAndReport(run);
}

}  // namespace

RunStatus RunJob(Survey survey, const RunOptions& options, RunObserver& observer, RunReport& report,
                 std::string& error) {
  tqfd::Timer timer;
  timer.Start();
  JobRun run(std::move(survey), options, observer, report);
  const RunStatus status = RunStages(run);
  timer.Stop();
  report.seconds = timer.ElapsedSeconds();
  report.peakMemoryBytes = PeakMemory();
  error = run.error;
  return status;
}

}  // namespace tqtortho::host
