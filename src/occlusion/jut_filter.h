// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

struct JutLimits {
  int longestJut = 0;    ///< hidden runs of at most this many cells become seen; 0 = none
  int longestNotch = 0;  ///< seen runs of at most this many cells become hidden; 0 = none
};

/// Flips short runs that are enclosed by the other value, along rows and then along columns, in
/// place.
///
/// @param mask  cells of 0 and 255 only
///
/// Within a line runs are judged from its start, each by its length before the pass; a run that
/// reaches an end of the line is not enclosed and stays. A flipped run joins the run before it and
/// no longer encloses the next one, so a comb of equal teeth loses every second run only.
/// @return whether any cell was flipped.
bool FlipShortRuns(GridView<std::uint8_t> mask, const JutLimits& limits);

}  // namespace tqtortho
