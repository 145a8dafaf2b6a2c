// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"
#include "walls/wall_zone.h"

namespace tqtortho {

/// A plane through a surface's level part, in cells.
struct LevelPlane {
  float row = 0, col = 0;  ///< where it was fitted
  float height = 0;        ///< there
  float perRow = 0, perCol = 0;
  float roughness = 0;  ///< mean distance of the heights from it
};

/// The two sides of each steep cell, as indices of planes; -1 where there is no wall.
struct WallSides {
  std::vector<LevelPlane> planes;
  std::vector<std::int32_t> upper;
  std::vector<std::int32_t> lower;
  std::vector<float> level;  ///< relative height where the wall is looked for first
};

[[nodiscard]] WallSides FindWallSides(GridView<const float> heights,
                                      const WallZoneOptions& options);

/// The plane's height at a cell, no further from its own than the options allow.
[[nodiscard]] float PlaneHeight(const LevelPlane& plane, double row, double col,
                                const WallZoneOptions& options);

}  // namespace tqtortho
