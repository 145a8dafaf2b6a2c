// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/grid_view.h"
#include "tqfd/Geometry.h"
#include "walls/wall_zone.h"

namespace tqtortho {

/// A part of a surface on half cells, and the whole surface on its own cells around it.
///
/// Positions are half cells of the whole surface: (2r, 2c) is cell (r, c).
struct WallGround {
  GridView<const float> whole;  ///< on whole cells
  GridView<const float> part;   ///< on half cells
  int firstRow = 0;             ///< of the part, in half cells
  int firstCol = 0;
  double originX = 0;  ///< ground position of the whole's first cell
  double originY = 0;
  double cell = 1;  ///< of the whole
  double noData = 0;
  double highest = 0;  ///< of the whole

  [[nodiscard]] double X(int col) const { return originX + 0.5 * cell * (firstCol + col); }
  [[nodiscard]] double Y(int row) const { return originY - 0.5 * cell * (firstRow + row); }
};

/// Whether a camera would see the cell (row, col) of the part at height `z`, if a wall stood just
/// inside it: cells of the zone whose offset is smaller by `margin` are roof, all others ground.
///
/// So a cell tried as ground is hidden by as much roof as there may be, and one tried as roof only
/// by what is taller. @param margin keeps the cell's own wall from deciding, ground units
[[nodiscard]] bool WouldSee(const WallGround& ground, const WallZone& zone,
                            const tqfd::Point3_T<double>& camera, int row, int col, double z,
                            double margin);

}  // namespace tqtortho
