// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// No photo supplies the cell.
inline constexpr std::uint16_t kNoView = 0;

struct PhotoChoiceOptions {
  /// Patches of fewer cells are given to a neighbour that sees them, cell by cell.
  int smallestPatch = 400;
  /// ... unless that makes a cell's view worse by more than this many ratings.
  int patchSlack = 70;
};

/// Gives each cell of a tile the view with the best rating. Every cell that some view sees is given
/// to one; ties go to the earlier view.
///
/// @param views  ratings of the views (see view_rating.h), each as large as `labels`
/// @param labels receives 1 + the index of the view, kNoView where none sees the cell
void ChooseBestViews(const std::vector<GridView<const std::uint8_t>>& views,
                     GridView<std::uint16_t> labels);

/// Gives patches that are too small to their neighbours. A cell is only ever given to a view that
/// sees it. Patches that touch the border of the tile stay: they may be large beyond it.
void MergePatches(const std::vector<GridView<const std::uint8_t>>& views,
                  const PhotoChoiceOptions& options, GridView<std::uint16_t> labels);

}  // namespace tqtortho
