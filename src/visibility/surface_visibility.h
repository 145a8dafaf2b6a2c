// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "camera/camera_model.h"
#include "core/grid_view.h"
#include "core/stop_flag.h"
#include "visibility/step_surface.h"

namespace tqtortho {

/// Where a surface lies: north-up, positions of cell centres.
struct SurfacePlacement {
  double originX = 0;  ///< ground position of the centre of the first (north-western) cell
  double originY = 0;
  double cellX = 0;  ///< ground size of a column, positive
  double cellY = 0;  ///< ground size of a row, positive
};

/// The cells to judge: column c at firstX + c * step, row r at firstY - r * step.
struct VisibilityLattice {
  double firstX = 0;
  double firstY = 0;
  double step = 0;
  int rows = 0;
  int cols = 0;
};

/// Mask values, and what counts as hidden.
struct VisibilityOptions {
  std::uint8_t seen = 0;
  std::uint8_t hidden = 255;
  std::uint8_t outside = 128;  ///< not in the photo's frame, hidden or not
  std::uint8_t noHeight = 0;   ///< the surface has no height there, so nothing can be said
  /// A sight line may run this far below the surface, in height units. The surface follows slopes
  /// by itself; this is for what is left where it is not plane, and for noise. Negative: 0.15 of a
  /// surface cell, which costs little on clean surfaces and keeps the precision on noisy ones.
  double tolerance = -1;
  /// Distance of neighbouring planes at the farthest cell, in lattice cells, 0.01 to 10. A cell is
  /// judged up to half of it beside its centre; time grows with its inverse.
  double planeSpacing = 0.5;
  /// Polled once a row of blocks and a plane; null: nobody asks. A sweep that was asked to stop
  /// throws WorkStopped.
  const StopFlag* stop = nullptr;
};

/// Which ground cells a photo sees: the surface is projected into the photo from its centre.
///
/// Sight lines are straight whatever the lens, so hiding is a matter of the projection centre and
/// the surface alone. All sight lines of a vertical plane through the centre share one profile of
/// the surface, and on it a cell is hidden exactly when some nearer point of the profile stands
/// under a steeper angle: one running maximum serves the whole plane. Planes are taken so densely
/// that no cell is farther than a quarter of a lattice cell from one, every cell is judged on the
/// plane nearest to it, and the profile is followed exactly through the surface, from quad to quad
/// and along walls from sub-cell to sub-cell. Nothing is resampled, so there are no holes whatever
/// the ratio of lattice, surface and photo.
///
/// Most ground needs none of this: quads that face the camera and lie in no shadow (see
/// open_ground.h) are seen as a whole, and profiles begin where something can hide.
///
/// The frame test projects the cell's own height through camera and lens, with the tests that
/// rectification applies, so that "outside" is where an ortho image of the photo has no pixel.
///
/// @param lattice  at most 4e9 cells; positions need not coincide with the surface's cells
/// @param mask     lattice.rows x lattice.cols, every cell is written
/// @return false when sizes, cell sizes or the camera make no sense; the mask is then unchanged.
///
/// Time is linear in cells and quads, plus some steps of profile for each cell at or behind a wall
/// (about 33 ns per cell in all over a town, the lattice five times as fine as the surface). Beside
/// its arguments it needs six bytes per quad, and eight bytes for each of at most a million cells
/// at a time. Safe from several threads.
[[nodiscard]] bool ComputeVisibility(const StepSurface& surface, const SurfacePlacement& placement,
                                     const PhotoCamera& camera, const VisibilityLattice& lattice,
                                     const VisibilityOptions& options, GridView<std::uint8_t> mask);

}  // namespace tqtortho
