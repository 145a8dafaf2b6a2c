// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "run/job_run.h"

namespace tqtortho::host {

/// Writes OUT/report.html, unless an earlier run has written it of the same products. A page that
/// cannot be made is a warning: the products are complete.
void WriteReport(JobRun& run);

}  // namespace tqtortho::host
