// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "mosaic/mosaic_stage.h"
#include "run/job_paths.h"
#include "run/job_state.h"
#include "run/run_job.h"
#include "run/stage_relay.h"

namespace tqtortho::host {

/// Writes OUT/mosaic.tif as web tiles OUT/tiles/{zoom}/{column}/{row}.png with OUT/tiles/tiles.json
/// (TileJSON), which is written last: a folder without it is not complete. An earlier OUT/tiles is
/// removed first.
/// @return false, with one line in `error`
[[nodiscard]] bool WriteTileFolder(const std::string& outDir,
                                   const std::function<bool(double)>& progress, std::string& error);

/// What a job makes of its mosaic for other programs: OUT/seams.gpkg, and web tiles when the
/// options ask for them; what an earlier run finished is kept. The mosaic is the product: what
/// fails here is a warning.
void WriteTakeAlong(const MosaicInput& input, const JobPaths& paths, const RunOptions& options,
                    const std::string& mosaicFingerprint, JobState& state, StageRelay& relay,
                    const RunReport& report, RunObserver& observer);

}  // namespace tqtortho::host
