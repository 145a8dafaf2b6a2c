// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "run/run_job.h"

namespace tqtortho::app {

/// "5 of 6 photos done, 1 left out: IMG_7.jpg", of all photos that the survey lists; at most ten
/// names.
[[nodiscard]] std::string PhotosLine(const host::RunReport& report);

/// What became of the mosaic's cells, and its seams: the same for `run` and `mosaic`. Shares are of
/// the cells in some photo's frame; the corners of the grid that lie in none would make every
/// survey look worse.
[[nodiscard]] std::vector<std::string> MosaicLines(const host::MosaicReport& report);

}  // namespace tqtortho::app
