// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "rectify/surface_tile.h"

namespace tqtortho {

/// An 8-bit photo raster, row-major with interleaved bands, that somebody else owns. The value 1
/// marks an invalid pixel, 0 is "no data" in what is made of it.
struct PhotoRaster {
  const std::uint8_t* pixels = nullptr;
  int width = 0;
  int height = 0;
  int bands = 0;

  [[nodiscard]] const std::uint8_t* At(int row, int col) const {
    return pixels + (static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(col)) *
                        static_cast<std::size_t>(bands);
  }
};

enum class Resampling { kNearest, kBilinear };

/// Value of a photo sample that lies outside the raster or among invalid pixels.
inline constexpr std::uint8_t kInvalidSample = 1;

/// Height of the nearest cell of a fractional position; the no-data height outside.
[[nodiscard]] double SurfaceNearest(const SurfaceTile& tile, double column, double row);

/// Height at a fractional position, blended over 2 x 2 cells from the second column and row to the
/// one before the last, of the nearest cell on the rim, the no-data height outside.
///
/// A block with one or two missing heights fills them with (sum of all four) / (valid ones), the
/// no-data value included in the sum; fewer than three valid heights give no data.
[[nodiscard]] double SurfaceBilinear(const SurfaceTile& tile, double column, double row);

/// Nearest pixel of a fractional position into `bands` bytes of `out`; every band 1 outside.
void PhotoNearest(const PhotoRaster& photo, double column, double row, std::uint8_t* out);

/// 2 x 2 blend into `bands` bytes of `out`, band by band; nearest on the rim and 1 outside as
/// PhotoNearest. A band with fewer than three valid values gives 1; a single invalid one counts
/// as (sum of all four) / 3, the invalid 1 included.
void PhotoBilinear(const PhotoRaster& photo, double column, double row, std::uint8_t* out);

void SamplePhoto(const PhotoRaster& photo, Resampling method, double column, double row,
                 std::uint8_t* out);

}  // namespace tqtortho
