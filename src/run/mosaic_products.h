// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "run/job_run.h"

namespace tqtortho::host {

/// Makes the mosaic and its exports, and does to the ortho images what the options ask for; what an
/// earlier run finished of that is kept.
[[nodiscard]] RunStatus MakeProducts(JobRun& run);

}  // namespace tqtortho::host
