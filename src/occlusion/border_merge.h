// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

/// Cells around a photo's own shadows in which borders of tall objects add nothing.
inline constexpr int kShadowReach = 15;

/// Hides the borders of tall objects that lie far from every shadow of a photo, and closes the
/// result with a 3 x 3 rectangle.
///
/// Near a shadow the tracer has looked at the cells one by one and knows better than the border
/// mask; elsewhere a tall border is a place where it may have missed one.
///
/// The three grids have the same size; an empty one is a no-op.
///
/// @param hidden  0 = seen, any other value hidden; receives the result. Border cells become 255,
///                other values stay, but for what the closing changes.
/// @param border  above 0 on borders; receives only those farther than kShadowReach cells (in rows
///                or columns, whichever is more) from what was hidden
/// @param reach   receives the hidden cells widened by kShadowReach
void MergeFarBorders(GridView<std::uint8_t> hidden, GridView<std::uint8_t> border,
                     GridView<std::uint8_t> reach);

}  // namespace tqtortho
