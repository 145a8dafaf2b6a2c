// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "camera/camera_model.h"
#include "core/grid_view.h"
#include "core/stop_flag.h"
#include "visibility/surface_visibility.h"

namespace tqtortho {

/// How well a photo shows a cell, in one byte: smaller is better. The unit is about a third of a
/// degree of nadir angle; the other reasons to avoid a view are expressed in it.
inline constexpr std::uint8_t kWorstView = 253;    ///< ratings of seen cells end here
inline constexpr std::uint8_t kHiddenView = 254;   ///< in the frame, but hidden from the photo
inline constexpr std::uint8_t kOutsideView = 255;  ///< not in the frame, or no data there
inline constexpr double kRatingsPerDegree = 2.8;

[[nodiscard]] inline bool IsSeen(std::uint8_t rating) { return rating <= kWorstView; }

struct ViewRatingOptions {
  /// Views this near to a hidden cell, in cells, are avoided: the edge that hides is known to about
  /// a surface cell only, and what leaks over it is a facade or the wrong side of it.
  double hiddenMargin = 4;
  double hiddenPenalty = 60;
  /// Views this near to the end of the photo's data, in cells, are avoided: seams there would have
  /// no room for a feather, and lenses are worst there.
  double frameMargin = 24;
  double framePenalty = 50;
  /// Ground resolution of the product; a photo coarser than that loses this for every doubling.
  double cellSize = 0;
  double coarsePenalty = 50;
  /// Polled once a row; null: nobody asks. A rating that was asked to stop throws WorkStopped.
  const StopFlag* stop = nullptr;
};

/// Rates the view of one photo on its ortho's cells.
///
/// @param heights  height of each cell, NaN where there is none (rated as if below the camera)
/// @param rating   in: 0 seen, kHiddenView, kOutsideView; out: ratings of the seen cells
///
/// About 13 ns per cell, two floats of memory per cell. Safe from several threads.
void RateView(const PhotoCamera& camera, const VisibilityLattice& lattice,
              GridView<const float> heights, const ViewRatingOptions& options,
              GridView<std::uint8_t> rating);

}  // namespace tqtortho
