// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// The cells that a photo owns, or that nobody does: 255 in `mask` (zeros before), row-major.
///
/// Kept: cell i of the mask takes cell i of the strip's map, counted from the map's start, whatever
/// the photo's place in it and the lengths of the rows. Mask and map agree only where the map holds
/// one value over the whole stretch; elsewhere the mask is that of other ground, and so is what is
/// marked by it later. Cells beyond the map stay 0.
void FillOwnership(const std::vector<std::uint16_t>& stripMap, int label,
                   std::vector<std::uint8_t>& mask);

/// The mask as it is saved: dilated by one cell, then stretched by one column and one row.
[[nodiscard]] std::vector<std::uint8_t> GrowOwnership(GridView<const std::uint8_t> mask);

}  // namespace tqtortho
