// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace tqtortho::host {

/// How a survey's DSM is made ready for rectification.
struct DsmPrepareOptions {
  int rimCells = 4;         ///< heights continued outwards over this many cells
  int maxHoleCells = 4000;  ///< holes up to this many cells are filled, larger ones stay
};

/// Where the heights of a prepared DSM come from (values of the origin raster).
enum HeightOrigin : std::uint8_t {
  kHeightNone = 0,    ///< no height, or a height that only continues the rim: blank in the product
  kHeightTrue = 1,    ///< measured
  kHeightFilled = 2,  ///< interpolated over a small hole
};

struct DsmPrepareReport {
  std::int64_t cells = 0;
  std::int64_t trueCells = 0;
  std::int64_t filledCells = 0;
};

/// Writes the working copy of a DSM, and a byte raster of the same grid that tells where each
/// height comes from.
///
/// Rectification blends heights with no-data beside holes and past the raster's edge; the copy is
/// larger by the rim on every side, small holes are filled and the rim of everything else is
/// continued, so that no such blend reaches a cell with a true height. The copy's no-data value is
/// -9999, its cells lie on the same lattice and its CRS is the same.
///
/// Holds the DSM in memory (five bytes per cell, and as much again while filling).
/// @return false, with one line in `error`.
bool PrepareDsm(const std::string& dsmPath, const std::string& outPath,
                const std::string& originPath, const DsmPrepareOptions& options,
                DsmPrepareReport& report, std::string& error);

/// Blanks (0 in all bands) the cells of an ortho image that have no height of their own, through
/// the origin raster written above. Does nothing, fast, when `report` says that there are none.
bool BlankWithoutHeight(const std::string& orthoPath, const std::string& originPath,
                        std::string& error);

}  // namespace tqtortho::host
