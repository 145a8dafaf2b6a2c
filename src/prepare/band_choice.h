// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "survey/survey.h"

namespace tqtortho::host {

/// Which bands of the photos a job uses, and which of their values become black and white.
struct BandChoice {
  std::vector<int> bands;  ///< counted from 1; one or three; empty: the photos as they are
  std::optional<std::pair<double, double>> range;  ///< of samples of more than 8 bits
};

/// Puts a virtual raster of the chosen bands in the place of every photo, in a folder per block
/// below `dir`, under the photo's own name: rasters are told by content. Files that are right
/// already stay untouched; they name their source's size and time, so that a photo that changed is
/// noticed.
///
/// Photos that cannot be read at all stay as they are and fail where all unreadable photos do.
/// @return false, with one line in `error`, when a photo lacks a band or needs a range, or a file
///         cannot be written; `survey` is then unchanged
[[nodiscard]] bool ChooseBands(const BandChoice& choice, const std::string& dir, Survey& survey,
                               std::string& error);

}  // namespace tqtortho::host
