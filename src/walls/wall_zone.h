// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// What counts as a wall. Lengths are ground units.
struct WallZoneOptions {
  double cell = 1;             ///< of the surface model
  double noData = 0;           ///< of cells without a height
  double steepSlope = 1.2;     ///< rise over run from which on a cell may belong to a wall
  double leastWall = 1.5;      ///< upper and lower side differ by this at least
  double reach = 8;            ///< a wall drawn as a ramp is no longer than this
  double band = 0.6;           ///< ground beside steep cells that may belong to the other side
  double mostExtension = 1;    ///< a side's plane rises or falls by no more than this
  double leastLength = 3;      ///< steep pieces shorter than this are no walls
  double lowestCentre = 0.40;  ///< relative height of the steepest step; canopies lie below
};

/// The cells of a finer grid (see OnHalfCells) on which a wall may stand, and the two heights that
/// each may have.
struct WallZone {
  std::vector<float> upper;   ///< NaN outside the zone
  std::vector<float> lower;   ///< NaN outside the zone
  std::vector<float> level;   ///< relative height of the line that the offset is measured from
  std::vector<float> offset;  ///< distance from that line, positive on the lower side
};

/// Finds where surfaces step from one level to another.
///
/// From each steep cell the steepest way up and down leads to the first cells that are not steep;
/// planes fitted there, extended, are the two sides. A surface model from image matching draws a
/// wall as a ramp of one to three cells, or of several metres where no two photos saw its foot and
/// interpolation filled the strip. Slopes without a level above and below (terrain), tree tops
/// (their steepest step lies low, and no plane fits their top) and short pieces are left out.
///
/// @param heights  surface model on its own cells
/// @param fine     the same on half cells
///
/// Linear in the cells; some fifty bytes for each steep one, forty for each fine cell. No locks.
[[nodiscard]] WallZone FindWallZone(GridView<const float> heights, GridView<const float> fine,
                                    const WallZoneOptions& options);

/// The side of a cell by its height alone.
[[nodiscard]] inline bool IsUpperByHeight(float height, float upper, float lower, float level) {
  return height > lower + level * (upper - lower);
}

/// A cell's height on the given side. Heights that already belong to that side stay as measured.
[[nodiscard]] float HeightOnSide(float height, float upper, float lower, bool isUpper);

}  // namespace tqtortho
