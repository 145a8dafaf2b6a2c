// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"

namespace tqimage {

/// North-up georeference of a raster, centre-registered: the origin is the ground position of the
/// CENTRE of the first cell (column 0, row 0). Only TqImage converts from and to the corner-based
/// transform of files. A plain value; thread-safe to read.
class TQTORTHO_API GeoCoefficients {
 public:
  GeoCoefficients() = default;
  /// `transform` = (originX, cellX, 0, originY, 0, cellY), cellY negative for north-up.
  GeoCoefficients(const double transform[6], int cols, int rows);

  [[nodiscard]] tqfd::Point2_T<double> GetOrigin() const { return {originX_, originY_}; }
  [[nodiscard]] tqfd::Point2_T<double> GetResolution() const { return {cellX_, cellY_}; }
  [[nodiscard]] int GetWidth() const { return cols_; }
  [[nodiscard]] int GetHeight() const { return rows_; }
  void SetOrigin(double x, double y);
  void SetResolution(double cellX, double cellY);

  /// Coordinate reference system as WKT, empty when unknown; travels with the georeference so that
  /// every output carries the CRS of the DSM it was made from.
  [[nodiscard]] const std::string& GetProjection() const { return projection_; }
  void SetProjection(const std::string& wkt) { projection_ = wkt; }

  /// Nearest cell of a ground point: floor((x - originX) / cellX + 0.5), likewise for rows; not
  /// clamped. The last two arguments clamp to that many columns and rows when both are positive;
  /// -1, -1 clamps nothing. NaN and out-of-range positions saturate to the int range, a zero
  /// cell size gives cell 0.
  [[nodiscard]] tqfd::Point2_T<int> World2Raster(double x, double y, int clampCols,
                                                 int clampRows) const;
  /// Inclusive cells of the corners (minX, maxY) and (maxX, minY); not clamped for -1, -1. When the
  /// raster has a size and the rectangle does not meet it (or is itself inverted), the span is
  /// empty: (0, 0, -1, -1).
  [[nodiscard]] tqfd::Rect2_T<int> World2Raster(const tqfd::Rect2_T<double>& rect, int clampCols,
                                                int clampRows) const;
  /// Ground position of a (fractional) column and row; whole numbers are cell centres.
  [[nodiscard]] tqfd::Point2_T<double> Raster2World(double col, double row) const;

 private:
  double originX_ = 0;
  double originY_ = 0;
  double cellX_ = 0;
  double cellY_ = 0;
  int cols_ = 0;
  int rows_ = 0;
  std::string projection_;
};

}  // namespace tqimage
