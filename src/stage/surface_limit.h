// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "core/limits.h"

namespace tqtortho::host {

/// Cells of the largest surface model that any command takes. A header of a few bytes can claim a
/// raster of 1e12 cells, which every pass over it would take hours for.
inline constexpr std::int64_t kMostSurfaceCells = limits::kSurfaceCells;

/// One line that names size and limit when a surface model of cols x rows cells, with `rim` cells
/// more on every side, is larger than that; empty when it is not. The one place of this rule.
[[nodiscard]] std::string SurfaceTooLarge(const std::string& path, std::int64_t cols,
                                          std::int64_t rows, int rim = 0);

}  // namespace tqtortho::host
