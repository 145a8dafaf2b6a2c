// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqimage/GeoCoefficients.h"
#include "tqimage/TqImage.h"

namespace tqtortho::testing {

/// Where a north-up raster of square cells lies: its first cell's centre, and a projection or none.
struct RasterPlace {
  double x = 0;
  double y = 0;
  double cell = 1;
  std::string projection;

  [[nodiscard]] tqimage::GeoCoefficients Coefficients(int cols, int rows) const {
    const double transform[6] = {x, cell, 0, y, 0, -cell};
    tqimage::GeoCoefficients coefficients(transform, cols, rows);
    if (!projection.empty()) coefficients.SetProjection(projection);
    return coefficients;
  }
};

/// Writes a one-band GeoTIFF; a null `noData` names none.
inline bool WriteRaster(const std::string& path, int type, const void* cells, int cols, int rows,
                        const RasterPlace& place, const double* noData) {
  tqimage::TqImage file;
  return file.Create(path, cols, rows, 1, type, tqimage::kGeoTiff, true) &&
         file.SetGeoCoefficients(place.Coefficients(cols, rows)) &&
         (noData == nullptr || file.SetNoDataValue(0, *noData)) &&
         file.WriteImage(0, {0, 0, cols, rows}, type, cells) && file.Close();
}

/// A surface file whose cells of -9999 have no height.
inline bool WriteHeights(const std::string& path, const float* heights, int cols, int rows,
                         const RasterPlace& place) {
  const double noData = -9999;
  return WriteRaster(path, tqimage::kFloat32, heights, cols, rows, place, &noData);
}

}  // namespace tqtortho::testing
