// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace geo {

/// Cells from all over a raster's first band.
struct CellSample {
  std::vector<float> heights;  ///< those that hold a value
  std::int64_t looked = 0;     ///< all that were looked at
};

/// Looks at evenly spread cells of a surface of any size: an overview where the file has one, else
/// some of its blocks; small files are read whole. A cell is empty when it is NaN, infinite, the
/// file's no-data value or -9999.
/// @return false when the raster cannot be read
[[nodiscard]] bool SampleCells(const std::string& path, CellSample& sample);

}  // namespace geo
