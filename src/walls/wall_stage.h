// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "survey/survey.h"
#include "walls/walls_choice.h"

namespace tqtortho::host {

/// What was done to the walls of a surface.
struct WallReport {
  std::int64_t wallCells = 0;     ///< half cells on which a wall may stand
  std::int64_t changedCells = 0;  ///< of them, whose height was changed
  std::int64_t judgedCells = 0;   ///< of them, on which at least two photos judged both sides
  double displacement = 0;        ///< where walls stand outside the line half way up, ground units
  bool photosTell = false;        ///< photos were sure on enough cells, and of one place
};

/// What became of a half cell (values of the raster of walls).
enum WallCode : std::uint8_t {
  kNoWall = 0,          ///< no wall may stand here; the height is as prepared
  kWallKept = 1,        ///< beside a wall, height unchanged
  kWallMoved = 2,       ///< height changed
  kWallMovedAlone = 3,  ///< height changed where fewer than two photos see one of the sides
  kWallDoubtful = 4,    ///< photos disagree at the height that was chosen
};

/// Writes the working copy of a surface anew, on cells of half the size, with its walls where they
/// stand (see walls/wall_zone.h), by the surface alone or by what the photos show. The file keeps
/// its name, no-data value and coordinate system, and its first cell's centre.
///
/// Where the photos cannot tell where walls stand (too few see both sides, or they find roofs far
/// outside every wall), `kPhotos` leaves the file as it is and writes no codes.
///
/// Holds the heights once (four bytes a cell), a row of tiles on half cells, a few dozen bytes for
/// each cell beside walls, and of the photos a few at a time. Uses OpenMP's thread number; the
/// result does not depend on it.
///
/// @param codesPath  gets a raster of WallCode on the same half cells
/// @param survey  photos, as staged; their positions in the surface's coordinate system
/// @param progress  gets the share done, 0 to 1; false stops
/// @return false with one line in `error`
[[nodiscard]] bool SharpenWalls(const Survey& survey, const std::string& dsmPath,
                                const std::string& codesPath, Walls walls,
                                const std::function<bool(double)>& progress, WallReport& report,
                                std::string& error);

}  // namespace tqtortho::host
