// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

/// Closes gaps and shaves notches up to about three cells wide in a mask, in place.
///
/// A ray that slips between two cells of the surface leaves one- and two-cell holes in a roof's
/// shadow. Left alone they reach the mosaic as pepper noise, because each hole takes its texture
/// from a photo that cannot see it.
///
/// A cell takes its neighbours' value when both direct neighbours on the line agree against it,
/// else when both neighbours at distance two do. The scan is sequential by design: the cell
/// rewritten at x is the neighbour that x + 1 and x + 2 compare with, and all rows finish before
/// the first column starts.
///
/// @param mask  cells are only compared for equality, so any values are allowed. An empty view is a
///              no-op. The two outermost cells at both ends of a line never change in that
///              line's direction, and lines of four or fewer cells are left alone.
///
/// Two passes, no allocation; safe on distinct masks from several threads.
void FillNarrowGaps(GridView<std::uint8_t> mask);

/// The cleaning of a fresh occlusion mask: 3 x 3 median (border cells replicated), then
/// FillNarrowGaps. May throw std::bad_alloc for the median's copy of the mask.
void CleanMask(GridView<std::uint8_t> mask);

}  // namespace tqtortho
