// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tqfd/Geometry.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {

/// The cell size at which a job's surface was measured, in ground units.
///
/// A surface whose walls were made upright lies on half cells, but how well its edges are known
/// goes by the measured ones. The raster beside it that says where its heights come from keeps
/// them.
///
/// @param dsmPath  working copy of the surface
/// @param cell     its own cell size, given back where nothing coarser lies beside it
[[nodiscard]] double MeasuredCell(const std::string& dsmPath, double cell);

/// Reads where the heights of a part of a surface come from (see HeightOrigin), whose raster lies
/// on the measured cells also where the surface lies on half of them.
///
/// @param rect  cells of the surface, last column and row exclusive; may reach outside
/// @param codes receives one code for each cell of `rect`, 0 outside
[[nodiscard]] bool ReadOriginOnCells(const tqimage::TqImage& origin, double surfaceCell,
                                     const tqfd::Rect2_T<int>& rect,
                                     std::vector<std::uint8_t>& codes);

}  // namespace tqtortho::host
