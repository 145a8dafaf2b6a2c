// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <utility>
#include <vector>

#include "run/job_run.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho::host {

using PhotoKey = std::pair<std::size_t, std::size_t>;  ///< block, photo

/// Photos whose footprint is empty: with estimated footprints, those that see nothing that could be
/// produced.
[[nodiscard]] std::set<PhotoKey> PhotosWithoutFootprint(
    const std::vector<tqorkit::tqPhotoCategory>& blocks);

/// Finds out what became of every photo, from the files it left.
void CollectOutcomes(JobRun& run, const std::set<PhotoKey>& withoutFootprint);

/// Puts the finished ortho images back as they were rectified, and blanks cells without a height of
/// their own: the state in which a mosaic is made. A photo where that fails counts as failed.
void PrepareOrthos(JobRun& run);

}  // namespace tqtortho::host
