// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace tqorkit {

/// The raster record that carries a photo, a DSM tile or an ortho through rectification.
struct PhotoInfo {
  std::int32_t width = 0;          ///< columns
  std::int32_t height = 0;         ///< rows
  std::int32_t bands = 0;          ///< samples per pixel
  std::int32_t dataType = 0;       ///< sample type code, see tqimage/TqImage.h; 1 = 8-bit unsigned
  std::vector<std::uint8_t> data;  ///< row-major, bands interleaved; a DSM holds floats in it
  double geoRect[4] = {0, 0, 0, 0};  ///< ground rectangle: minX, minY, maxX, maxY
  double resX = 0;                   ///< ground size of one column
  double resY = 0;                   ///< ground size of one row, negative on north-up rasters
  double noData = 0;                 ///< DSM: the no-data height
  double defaultZ = 0;               ///< DSM: the height to use where the DSM gives none
};

}  // namespace tqorkit
