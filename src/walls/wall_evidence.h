// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/stop_flag.h"
#include "walls/photo_window.h"
#include "walls/wall_sight.h"

namespace tqtortho {

/// What photos say of one cell on one side.
struct SideEvidence {
  float spread = 0;         ///< how much the photos' colours differ there, grey values
  std::uint8_t photos = 0;  ///< that would see the cell; fewer than two say nothing
  std::uint8_t across = 0;  ///< of them, that look over the wall from its upper side
  std::uint8_t colour[3] = {0, 0, 0};
};

/// What photos say of one cell of a wall zone.
struct WallCell {
  std::int32_t row = 0;  ///< in the part
  std::int32_t col = 0;
  float height = 0;
  float upper = 0;
  float lower = 0;
  float level = 0.5F;
  float offset = 0;
  SideEvidence onUpper;
  SideEvidence onLower;
};

/// All cells of a zone, row by row, without evidence.
[[nodiscard]] std::vector<WallCell> ListWallCells(GridView<const float> part, const WallZone& zone);

/// Factors that bring the photos to one brightness, from level ground and roofs outside the zone.
[[nodiscard]] std::vector<float> BrightnessGains(const WallGround& ground, const WallZone& zone,
                                                 const std::vector<PhotoWindow>& photos);

/// Asks the photos about each cell: at the height where a cell truly lies, all photos that see it
/// show one colour; at a wrong height each shows another place.
///
/// A cell's spread is the least of its own and its four neighbours', since the pixels of an edge
/// are mixed. About five microseconds a cell and side with a dozen photos.
void AskPhotos(const WallGround& ground, const WallZone& zone,
               const std::vector<PhotoWindow>& photos, const std::vector<float>& gains,
               const StopFlag* stop, std::vector<WallCell>& cells);

}  // namespace tqtortho
