// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "run/job_run.h"

namespace tqtortho::host {

/// Writes what geographic information systems and web maps take of the mosaic: OUT/seams.gpkg, and
/// OUT/tiles when the options ask for web tiles; what an earlier run finished is kept. The mosaic
/// is the product: what fails here is a warning.
/// @param mosaicFingerprint  of what the mosaic's cells were made from
void ExportMosaic(JobRun& run, const MosaicInput& input, const std::string& mosaicFingerprint);

}  // namespace tqtortho::host
