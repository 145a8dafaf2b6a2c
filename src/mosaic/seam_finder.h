// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"
#include "mosaic/mosaic_blend.h"

namespace tqtortho {

struct SeamOptions {
  /// Cells on the side of a node: seams are found on this coarser grid.
  int nodeSide = 4;
  /// What a seam costs per node side, in ratings: always, per grey value of difference between the
  /// photos there, and on top where the surface steps.
  double length = 6;
  double perGrey = 1.5;
  double mostGreys = 60;
  double atStep = 40;
  /// Height difference within a node that counts as a step, in height units.
  double step = 1.0;
  /// What it costs to give a node to a photo that sees none of it, in ratings.
  double unseen = 400;
  /// A cell keeps its label where its node's photo shows it worse by more than this, in ratings,
  /// than both the cell's own photo and the best of the cells around: at the borders of what the
  /// photo sees.
  int slack = 12;
  int sweeps = 2;
};

/// Moves the seams of a labelling to where they show least.
///
/// A labelling costs the ratings of its views plus the seams: those are cheap where the two photos
/// look alike and dear across steps of the surface. Each photo in turn is offered all cells at once
/// and takes those that lower the whole (expansion moves by smallest cuts), so seams move as a
/// whole and do not stop in the first local minimum. Cells that their node's photo does not see
/// keep their labels.
///
/// @param views   views without pixels take no part
/// @param heights NaN where there is none
/// @param labels  in: 1 + index of the view with the best rating, 0 for none; out: the same
void MoveSeams(const std::vector<MosaicView>& views, GridView<const float> heights,
               const SeamOptions& options, GridView<std::uint16_t> labels);

}  // namespace tqtortho
