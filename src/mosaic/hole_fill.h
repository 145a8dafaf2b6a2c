// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

struct HoleFillOptions {
  /// Cells farther than this from every colour stay empty.
  int reach = 60;
  /// Cells whose heights differ by less belong to the same level, in height units.
  double levelTolerance = 1.0;
  /// Seen cells this near to a hole or a step give no colours: what hides the hole may leak into
  /// them, and a facade's colour would spread over the whole hole.
  int clearance = 4;
};

/// Fills cells that no photo sees from seen cells around them that lie at the same height: the
/// floor of a narrow courtyard continues as floor, not as the roof that stands around it.
///
/// Holes are filled from their rims inwards, each cell by the mean of the known cells near it that
/// belong to its level, and smoothed afterwards. What no cell of the same level can reach is filled
/// from any level.
///
/// @param wanted   1 where a cell is to be filled
/// @param seen     1 where a cell has a colour of its own; never changed
/// @param heights  NaN matches no level
/// @param pixels   three bands interleaved; written only where filled
/// @param filled   receives 1 where a cell has been filled, 0 elsewhere
///
/// Linear in cells. All views have the same rows and columns (`pixels` three times the columns).
void FillHoles(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
               GridView<const float> heights, const HoleFillOptions& options,
               GridView<std::uint8_t> pixels, GridView<std::uint8_t> filled);

}  // namespace tqtortho
