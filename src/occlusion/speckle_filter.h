// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"
#include "core/stop_flag.h"

namespace tqtortho {

/// Regions of at most this many hidden cells are noise of the surface, not shadows.
inline constexpr int kMaxSpeckleCells = 500;
/// Neighbours that differ by no more than this belong to one region.
inline constexpr int kSpeckleDifference = 16;

/// Clears small regions of a mask and sets every other non-zero cell to 255, in place.
///
/// A region is 4-connected: two neighbours belong together when both are non-zero and differ by at
/// most `maxDifference`. Regions of at most `maxCells` cells become 0. Holes of 0 inside a region
/// stay as they are.
///
/// The answer is that of cv::filterSpeckles (new value 0) on the mask as 16-bit image. That
/// function keeps positions in 16 bits and nine bytes per cell; this one works on runs, takes
/// rasters of any size and needs memory for the runs only. May throw std::bad_alloc.
void RemoveSpeckles(GridView<std::uint8_t> mask, int maxCells = kMaxSpeckleCells,
                    int maxDifference = kSpeckleDifference, const StopFlag* stop = nullptr);

}  // namespace tqtortho
