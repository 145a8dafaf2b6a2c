// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"

namespace geo {

/// Fills cells equal to `noData` from their surroundings (inverse distance, no smoothing), only
/// within `maxDistance` cells of a cell with data. In place, row-major.
bool FillNoData(std::vector<float>& heights, int cols, int rows, float noData, int maxDistance);

/// Writes a GDAL virtual raster over the given rasters (paths relative to the VRT when they lie
/// beside or below it); `noData` (when not negative) marks empty cells of the sources and the VRT.
bool BuildVrt(const std::string& vrtPath, const std::vector<std::string>& rasters, int noData);

/// Writes interleaved bytes (1, 3 or 4 bands) as PNG, without georeference.
bool WritePng(const std::string& path, const std::uint8_t* data, int width, int height, int bands);

/// Reads a raster of any size reduced to at most maxSize cells on its longer side: interleaved
/// bytes of its first one or three bands (floats are not scaled). False when it cannot be read.
bool ReadReduced(const std::string& path, int maxSize, std::vector<std::uint8_t>& data, int& width,
                 int& height, int& bands);

/// What a raster file says of itself; also for rasters that TqImage refuses.
struct RasterSummary {
  int width = 0;
  int height = 0;
  int bands = 0;
  std::string sampleType;  ///< GDAL's name: "Byte", "UInt16", "Float32" ...
  std::string format;      ///< GDAL's short driver name
  bool palette = false;
  bool hasGeoreference = false;
  bool rotated = false;  ///< the transform has rotation or shear terms, or is south-up
  std::string unit;      ///< of the first band's values, as the file names it; often empty
  double scale = 1;      ///< values stand for value * scale + offset; nobody here applies that
  double offset = 0;
  tqimage::GeoCoefficients coefficients;
};
/// False when the file is missing or no raster (then `error` says why, in one line).
bool DescribeRaster(const std::string& path, RasterSummary& summary, std::string& error);

}  // namespace geo
