// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

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

}  // namespace tqtortho::host
