// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/grid_view.h"
#include "tqfd/Geometry.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Valid heights of a tile.
struct HeightStatistics {
  double minimum = 1e10;  ///< stays 1e10 when there is none
  double sum = 0;
  std::int64_t count = 0;
};

/// Cells equal to `noData` are left out.
[[nodiscard]] HeightStatistics SummariseHeights(GridView<const float> heights, float noData);

/// The part of the surface model under a work block.
struct DsmTile {
  tqorkit::PhotoInfo record;  ///< 32-bit float heights
  HeightStatistics statistics;
  std::string projection;  ///< CRS of the surface model, WKT; every output carries it
};

/// The box of all footprints of a work block. A photo without a footprint (no area, or a corner
/// that is not finite) is left out: it fails alone and must not drag the tile across the world.
[[nodiscard]] tqfd::Rect2_T<double> BlockRectangle(
    const std::vector<tqorkit::tqPhotoCategory>& photoBlocks);

/// Reads the tile under `rect`: trunc((maxX - minX) / resX + 1) columns, rows likewise, its
/// upper-left corner at the rectangle's.
///
/// The tile keeps that size where the rectangle reaches beyond the surface model: what was read
/// lies at its true place and the rest is no data.
/// @return nothing when the file cannot be read or the rectangle does not meet it.
[[nodiscard]] std::optional<DsmTile> ReadDsmTile(const std::string& dsmPath,
                                                 const tqfd::Rect2_T<double>& rect);

}  // namespace tqtortho
