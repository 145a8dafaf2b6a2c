// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/grid_view.h"
#include "mosaic/tone_scale.h"

namespace tqtortho {

/// How a photo's colours are adjusted over a tile: a tone t becomes slope * t + offset, the offset
/// given on a coarse grid of nodes and blended between them. Node (i, j) lies at cell (i * step,
/// j * step); the nodes reach beyond the tile's last cell.
struct ToneField {
  const ToneScale* scale = nullptr;  ///< null: colours stay as they are
  std::array<float, 3> slope{1, 1, 1};
  GridView<const float> offsets;  ///< three bands interleaved
  int step = 1;
};

/// A colour of the photo at a cell, adjusted. What is neither black nor white stays so, and white
/// stays white, so that no highlights are made.
[[nodiscard]] std::array<float, 3> Adjusted(const ToneField& field, std::array<float, 3> colour,
                                            int row, int col);

/// One photo on the cells of a tile.
struct MosaicView {
  GridView<const std::uint8_t> rating;  ///< see view_rating.h
  GridView<const std::uint8_t> pixels;  ///< three bands interleaved (columns count samples)
  ToneField tones;
};

struct BlendOptions {
  /// Cells on each side of a seam over which the photos are mixed.
  int feather = 4;
  /// A photo takes part beyond its own cells only where its view is at most so much worse than the
  /// chosen one: not at the borders of what it sees.
  int slack = 40;
};

/// Cells of a tile: first row and column, exclusive ends.
struct CellSpan {
  int firstRow = 0;
  int firstCol = 0;
  int endRow = 0;
  int endCol = 0;
};

/// What a pass over seams found; sums, so that tiles add up.
struct SeamStatistics {
  double cells = 0;       ///< pairs of neighbouring cells of different photos
  double compared = 0;    ///< of these, pairs whose photos both see both cells
  double stepBefore = 0;  ///< summed difference of the two photos' colours there, mean of the bands
  double stepAfter = 0;   ///< the same after the adjustment
};

/// Mixes the photos' colours as the labels say, with a feather along the seams.
///
/// A cell away from seams takes its photo's colour. Near one, each photo counts by the share of
/// cells around (a square of 2 * feather + 1) that it supplies, if it sees the cell well. Colours
/// of different cells are never mixed, so nothing is blurred.
///
/// @param labels  1 + index of the view, 0 where there is none
/// @param area    cells to produce
/// @param out     three bands interleaved, as large as the area; covered cells get values of at
///                least 1 (0 is "no data"), others 0
void BlendViews(const std::vector<MosaicView>& views, GridView<const std::uint16_t> labels,
                const BlendOptions& options, const CellSpan& area, GridView<std::uint8_t> out);

/// Adds up the seams of an area: how long they are and how large the colour step across them is.
void MeasureSeams(const std::vector<MosaicView>& views, GridView<const std::uint16_t> labels,
                  const CellSpan& area, SeamStatistics& statistics);

}  // namespace tqtortho
