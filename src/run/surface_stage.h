// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "run/job_run.h"

namespace tqtortho::host {

/// Makes the working copy of the DSM, with its walls made upright where the options ask for it, and
/// its border mask, unless an earlier run has made them. Warns where the photos could not say where
/// walls stand.
[[nodiscard]] RunStatus PrepareSurface(JobRun& run);

}  // namespace tqtortho::host
