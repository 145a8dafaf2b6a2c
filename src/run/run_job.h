// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "report/run_report.h"
#include "run/job_run.h"
#include "run/run_observer.h"
#include "run/run_options.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// Runs a whole job on a survey, going on where an earlier run in the same directories stopped:
/// work whose inputs and options are unchanged is kept (see JobState). `error` gets one line when
/// the status is not kDone. Uses the process-wide directory setters and OpenMP's thread number, so
/// one job at a time in a process.
[[nodiscard]] RunStatus RunJob(Survey survey, const RunOptions& options, RunObserver& observer,
                               RunReport& report, std::string& error);

}  // namespace tqtortho::host
