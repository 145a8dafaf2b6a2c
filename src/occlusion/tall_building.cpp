// SPDX-License-Identifier: Apache-2.0
#include "occlusion/tall_building.h"

#include <algorithm>

#include "stage/border_mask.h"

namespace tqtortho {

bool HasTallBuilding(std::span<const std::uint8_t> borderCells) {
  return std::count(borderCells.begin(), borderCells.end(), kTallBorder) > kTallBorderLimit;
}

}  // namespace tqtortho
