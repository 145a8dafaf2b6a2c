// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "mosaic/mosaic_stage.h"
#include "report/run_report.h"
#include "run/job_paths.h"
#include "run/job_progress.h"
#include "run/job_state.h"
#include "run/rectified_job.h"
#include "run/run_observer.h"
#include "run/run_options.h"
#include "survey/survey.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

enum class RunStatus { kDone, kFailed, kBadInput, kInterrupted };

/// One job on its way through its stages: what was asked for, where its files lie, and what the
/// stages so far have found. Each stage is a function that takes it and leaves its results in it.
/// Belongs to one thread; only `state`, `progress` and `observer` may be used by the threads of a
/// stage, the last two one thread at a time.
struct JobRun {
  /// `options`, `watcher` and `report` outlive the run. Touches no file.
  JobRun(Survey photos, const RunOptions& asked, RunObserver& watcher, RunReport& found);

  /// How a stage ends that could not go on: interrupted when that was asked for, else failed for
  /// the reason that stands in `error`. Ends the open stage of `progress`.
  [[nodiscard]] RunStatus EndEarly();
  /// The ortho images as the mosaic, the exports and the report take them.
  [[nodiscard]] MosaicInput Orthos() const;
  /// Names of the ortho images that were made, in the survey's order.
  [[nodiscard]] std::vector<std::string> OrthoPaths() const;

  const RunOptions& options;
  const JobPaths paths;
  Survey survey;
  NotingObserver observer;
  RunReport& report;
  JobProgress progress;
  JobState state;
  std::vector<tqfd::Point2_T<double>> area;  ///< ring on the ground; empty: everything
  RectifiedJob job;
  std::string productsFingerprint;  ///< of what the report shows
  std::string error;                ///< one line, set by the stage that failed
};

}  // namespace tqtortho::host
