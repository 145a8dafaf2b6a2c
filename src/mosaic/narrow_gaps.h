// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

/// Takes back the wish to fill cells where what no photo sees is wider than `width` cells: there
/// colours from around would only pretend to know the ground.
///
/// A place is as wide as the largest disk that covers it and no seen cell; what lies outside all
/// photos, and outside the grid, counts as not seen, so that a strip at the rim is no gap inside.
///
/// @param seen    not 0 where a photo supplies the cell
/// @param width   in cells. Looks at most kGapReach cells around, so that tiles with such a margin
///                meet; a greater width counts as that
/// @param wanted  cleared where the place is wider
void KeepNarrowGaps(GridView<const std::uint8_t> seen, double width, GridView<std::uint8_t> wanted);

inline constexpr int kGapReach = 60;

}  // namespace tqtortho
