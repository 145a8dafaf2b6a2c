// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace tqtortho {

/// More border cells than this make a photo one with tall buildings.
inline constexpr int kTallBorderLimit = 5000;

/// True when the cells of a border mask hold more than kTallBorderLimit tall borders (value 200).
[[nodiscard]] bool HasTallBuilding(std::span<const std::uint8_t> borderCells);

}  // namespace tqtortho
