// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace geo {

/// A part of a raster, in its own (fractional) columns and rows counted from its upper-left corner,
/// and the number of cells it is to be read as.
struct ScaledWindow {
  double col = 0;
  double row = 0;
  double cols = 0;
  double rows = 0;
  int outCols = 0;
  int outRows = 0;
};

enum class Scaling {
  kNearest,  ///< the cell under the middle of each output cell: for numbers that mean things
  kSmooth,   ///< mean when cells get larger, bilinear when they get smaller
};

/// Reads one band (counted from 1, 0: see below) of a raster of any size at another scale. Takes
/// the file's overviews where they are fine enough, so that it costs what the output costs; without
/// them the file is read block by block and never held whole. Empty cells take no part in means;
/// where there is nothing else the file's no-data value comes back.
///
/// Band 0 is the raster's validity: 255 where there is something to see, by alpha, mask or no-data
/// value, whichever the file has.
///
/// @return false when the raster cannot be read, or the window reaches outside it
[[nodiscard]] bool ReadScaled(const std::string& path, int band, const ScaledWindow& window,
                              Scaling scaling, std::vector<std::uint8_t>& cells);
[[nodiscard]] bool ReadScaled(const std::string& path, int band, const ScaledWindow& window,
                              Scaling scaling, std::vector<std::uint16_t>& cells);
[[nodiscard]] bool ReadScaled(const std::string& path, int band, const ScaledWindow& window,
                              Scaling scaling, std::vector<float>& cells);

}  // namespace geo
