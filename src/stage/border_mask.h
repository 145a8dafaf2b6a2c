// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"

namespace tqtortho {

/// Value of tall-building borders in the border mask.
inline constexpr std::uint8_t kTallBorder = 200;
/// Value of the very line of a step, in masks that use kTallBorder for the whole ground on which
/// rays shall be traced (the command's own do).
inline constexpr std::uint8_t kBorderLine = 255;

/// The part of the job's border mask under a ground rectangle.
struct BorderTile {
  int cols = 0;  ///< 0 when the rectangle does not meet the mask
  int rows = 0;
  std::vector<std::uint8_t> cells;
  tqimage::GeoCoefficients coefficients;  ///< of the whole mask file
  tqfd::Rect2_T<int> cellRect;            ///< inclusive cells of the mask that the tile covers
};

/// Reads it; nothing when there is no border mask (or it cannot be read). Parts of the rectangle
/// outside the mask read as 0. The only reader of that file.
[[nodiscard]] std::optional<BorderTile> ReadBorderTile(const tqfd::Rect2_T<double>& rect);

}  // namespace tqtortho
