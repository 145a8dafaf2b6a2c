// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "run/directory_lock.h"
#include "run/job_run.h"

namespace tqtortho::host {

/// Looks at all inputs before hours of work start: chooses the photos' bands, takes unusable photos
/// out of the survey, notes what the job will make and need, and refuses what cannot be done.
[[nodiscard]] RunStatus CheckInputs(JobRun& run);

/// The directories of a job while it runs: they can be written to, no other job works in them, and
/// what a killed job left half written is gone.
class JobDirectories {
 public:
  [[nodiscard]] RunStatus Take(JobRun& run);

 private:
  DirectoryLock out_, work_;
};

/// Puts the survey into WORK as the library reads it: links to the photos under safe names, the
/// list of photos, the cameras.
[[nodiscard]] RunStatus StageSurvey(JobRun& run);

/// Reads the area to produce and fixes the job's ground resolution, with a warning where it does
/// not suit the photos.
[[nodiscard]] RunStatus ChooseAreaAndResolution(JobRun& run);

}  // namespace tqtortho::host
