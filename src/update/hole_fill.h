// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"
#include "update/mosaic_blend.h"

namespace tqtortho {

struct HoleFillOptions {
  /// Farthest cell that a colour is taken from.
  int reach = 60;
  /// Cells whose heights differ by less belong to the same level, in height units.
  double levelTolerance = 1.0;
};

/// Fills cells that no photo sees from seen cells around them that lie at the same height: the
/// floor of a narrow courtyard continues as floor, not as the roof that stands around it.
///
/// Sixteen directions are followed to the first seen cell of the same level; their colours are
/// mixed by the inverse square of the distance. Where no direction finds one, the nearest seen
/// cells of any level serve; where there is none within reach the cell stays empty.
///
/// @param wanted   1 where a cell is to be filled, on the whole tile
/// @param seen     1 where a cell has a colour of its own, on the whole tile
/// @param heights  on the whole tile; NaN matches no level
/// @param area     the tile's cells that `pixels` and `filled` cover
/// @param pixels   three bands interleaved, on the whole tile; written only where filled
/// @return how many cells were filled; `filled` gets 1 there, and 0 elsewhere
int FillHoles(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
              GridView<const float> heights, const HoleFillOptions& options, const CellSpan& area,
              GridView<std::uint8_t> pixels, GridView<std::uint8_t> filled);

}  // namespace tqtortho
