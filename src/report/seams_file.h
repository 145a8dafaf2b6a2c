// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mosaic/mosaic_stage.h"

namespace tqtortho::host {

/// What is known of a photo beside its orientation.
struct PhotoStanding {
  bool done = false;
  std::optional<double> hiddenShare;  ///< of its ortho's cells, 0 to 1
};

/// Writes OUT/seams.gpkg of the mosaic in OUT: who supplied what, for a geographic information
/// system. Layers, all in the DSM's coordinate system:
///   regions     polygons of cells that one photo supplied, cell edges exact: photo, number, area
///               in square metres, share of all supplied cells in per cent
///   seams       lines between regions: both photos, length. Cut every kSeamStrip rows of cells
///   footprints  what each photo shows of the plane at the mean height below it: photo, block,
///               done, hidden and supplied share in per cent
///   cameras     projection centres in space: photo, height above the surface
///
/// Reads OUT/source.tif and WORK/dsm.tif in strips; memory grows with a strip, not with the mosaic.
/// Appears under its name when complete.
///
/// @param standings  by photo number from 1, the first entry is number 1; may be empty
/// @param progress   called with 0 to 100, its false stops the work; may be empty
/// @return false, with one line in `error`
[[nodiscard]] bool WriteSeamsFile(const MosaicInput& input, const std::string& outDir,
                                  const std::string& workDir,
                                  const std::vector<PhotoStanding>& standings,
                                  const std::function<bool(double)>& progress, std::string& error);

/// Rows of cells that seams are traced in at a time.
inline constexpr int kSeamStrip = 1024;

}  // namespace tqtortho::host
