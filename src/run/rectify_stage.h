// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rectify/sight_masks.h"
#include "run/job_run.h"

namespace tqtortho::host {

/// The library's process-wide settings for a job, taken back when this goes out of scope.
class JobSettings {
 public:
  explicit JobSettings(JobRun& run);
  ~JobSettings();
  JobSettings(const JobSettings&) = delete;
  JobSettings& operator=(const JobSettings&) = delete;

 private:
  SightMasks sightMasks_;
  bool ownMaker_ = false;
};

/// Rectifies every photo that no earlier run has finished, and finds out what became of all.
[[nodiscard]] RunStatus RectifyPhotos(JobRun& run);

}  // namespace tqtortho::host
