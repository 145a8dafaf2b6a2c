// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqimage/GeoCoefficients.h"

namespace tqimage {

/// A raster in memory that somebody else owns: rows without gaps, bands interleaved.
struct InterleavedRaster {
  const void* data = nullptr;
  int width = 0;
  int height = 0;
  int bands = 0;
  int dataType = 1;  ///< DataType code
  bool hasNoData = false;
  double noData = 0;
  const char* description = nullptr;  ///< what the cells mean, for whoever opens the file
};

/// Writes a whole raster as a GeoTIFF, complete or not at all. With null `coefficients` the file
/// has no georeference; coefficients without a usable cell size are a failure.
bool WriteInterleaved(const std::string& path, const InterleavedRaster& raster,
                      const GeoCoefficients* coefficients, bool overwrite);

}  // namespace tqimage
