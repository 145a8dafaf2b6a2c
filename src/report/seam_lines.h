// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// Corners of cells: x = 0 is the left edge of column 0, y = 0 the upper edge of row 0.
using SeamLine = std::vector<tqfd::Point2_T<int>>;

/// The lines along which two photos meet in a map of photo numbers (0: no photo; its border is no
/// seam). Every cell edge between two numbers lies on exactly one line; lines end where a seam
/// ends or meets another, a closed one repeats its first corner.
[[nodiscard]] std::vector<SeamLine> TraceSeams(GridView<const std::uint16_t> numbers);

/// The line with the fewest of its corners that stays within `tolerance` cells of all of them
/// (Douglas and Peucker, 1973). The ends stay.
[[nodiscard]] SeamLine Simplified(const SeamLine& line, double tolerance);

}  // namespace tqtortho::host
