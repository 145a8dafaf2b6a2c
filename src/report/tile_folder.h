// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace tqtortho::host {

/// Writes OUT/mosaic.tif as web tiles OUT/tiles/{zoom}/{column}/{row}.png with OUT/tiles/tiles.json
/// (TileJSON), which is written last: a folder without it is not complete. An earlier OUT/tiles is
/// removed first.
/// @param progress  called with the share done, 0 to 1; its false stops the work
/// @return false, with one line in `error`
[[nodiscard]] bool WriteTileFolder(const std::string& outDir,
                                   const std::function<bool(double)>& progress, std::string& error);

}  // namespace tqtortho::host
