// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace geo {

/// What was written, for those who describe it.
struct WebTileReport {
  int minZoom = 0;
  int maxZoom = 0;
  std::int64_t tiles = 0;
  double west = 0, south = 0, east = 0, north = 0;  ///< degrees
};

/// Side of a web tile in pixels.
inline constexpr int kWebTileSide = 256;

/// Writes a raster of three bands and alpha (or a mask) as web tiles: PNG files
/// `dir`/zoom/column/row.png of 256 pixels in Web Mercator, rows counted from the north. From the
/// zoom at which the whole raster fits a tile or two to the one nearest to its own resolution.
/// Tiles without any content are left out. Uses OpenMP's thread number; each thread holds a few
/// megabytes.
///
/// @param progress  called with 0 to 1, one call at a time, its false stops the work; may be empty
/// @return false, with one line in `error`; tiles written so far stay
[[nodiscard]] bool WriteWebTiles(const std::string& rasterPath, const std::string& dir,
                                 const std::function<bool(double)>& progress, WebTileReport& report,
                                 std::string& error);

}  // namespace geo
