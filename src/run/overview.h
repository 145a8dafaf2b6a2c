// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "run/job_run.h"

namespace tqtortho::host {

/// Lets a person look at once: gives the ortho images names that programs open, and writes
/// OUT/preview.png, a picture of the mosaic, and OUT/orthos.vrt over all ortho images. A picture or
/// virtual raster that cannot be made is a warning, since the ortho images are complete.
[[nodiscard]] RunStatus WriteOverview(JobRun& run);

}  // namespace tqtortho::host
