// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mosaic/colour_balance.h"
#include "mosaic/mosaic_blend.h"
#include "mosaic/mosaic_layer.h"
#include "mosaic/mosaic_stage.h"

namespace tqtortho::host {

/// Sums over the cells of a tile.
struct TileStatistics {
  std::int64_t seen = 0;
  std::int64_t seenByOne = 0;
  std::int64_t filled = 0;
  std::int64_t neverCovered = 0;
  SeamStatistics seams;
  void Add(const TileStatistics& other);
};

/// A tile of the product, without gaps.
struct TileResult {
  std::vector<std::uint8_t> pixels;   ///< three bands interleaved, 0 where there is nothing
  std::vector<std::uint16_t> source;  ///< photo numbers, 0 where no photo supplies the cell
  std::vector<std::uint8_t> quality;  ///< see CellQuality
  TileStatistics statistics;
};

/// Makes the cells of `span`. Looks at the photos some way beyond it, so that neighbouring tiles
/// meet. False, with one line in `error`, when a file cannot be read or memory runs out.
bool MakeMosaicTile(const MosaicGrid& grid, const std::vector<MosaicPhoto>& photos,
                    const LayerStore& store, const ColourModel& colours,
                    const MosaicOptions& options, const CellSpan& span, TileResult& tile,
                    std::string& error);

/// 255 where the product has a cell: not empty and inside the area (everything, when it is empty).
[[nodiscard]] std::vector<std::uint8_t> AlphaOf(const MosaicGrid& grid,
                                                const std::vector<tqfd::Point2_T<double>>& area,
                                                const TileResult& tile, const CellSpan& span);

}  // namespace tqtortho::host
