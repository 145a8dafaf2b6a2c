// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "core/grid_view.h"
#include "core/numeric.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

using Point3 = tqfd::Point3_T<double>;

/// An axis-parallel box of the ray tracer's local frame.
struct LocalBox {
  double minX = 0, minY = 0, minZ = 0;
  double maxX = 0, maxY = 0, maxZ = 0;
};

/// Valid heights differ from the no-data value by more than 1e-6: difference in single precision,
/// comparison in double. NaN is never valid.
[[nodiscard]] inline bool IsValidHeight(float height, float noData) {
  return static_cast<double>(std::fabs(height - noData)) > kTraceNoDataTolerance;
}

/// What the ray kernels see of a surface model.
///
/// Local frame: the origin is the centre of the bottom-left cell (row rows-1, column 0), x grows
/// with the columns, y against the rows (cellSizeY is negative), z is the height. Cell (r, c) lies
/// at x = c * cellSizeX, y = (r - (rows - 1)) * cellSizeY. A point takes the height of the cell it
/// truncates to; nothing is interpolated.
struct RaySurface {
  GridView<const float> heights;
  float noData = 0;
  float cellSizeX = 0;
  float cellSizeY = 0;
  LocalBox box;

  /// Column and row of a local point, truncated toward zero: a point a fraction of a cell before
  /// the first column or above the first row still belongs to it.
  [[nodiscard]] int ColumnAt(double x) const {
    return TruncToInt(x / static_cast<double>(cellSizeX));
  }
  [[nodiscard]] int RowAt(double y) const {
    return TruncToInt(y / static_cast<double>(cellSizeY) + (heights.rows - 1));
  }
  [[nodiscard]] Point3 CellPoint(int row, int col) const {
    return {col * static_cast<double>(cellSizeX),
            (row - (heights.rows - 1)) * static_cast<double>(cellSizeY),
            static_cast<double>(heights.At(row, col))};
  }
};

/// A ray from a cell's surface point towards the camera, and on beyond it.
struct Ray {
  Point3 origin;
  Point3 direction;  ///< unit length
};

/// The ray from `origin` to `camera`. A camera at the point itself, or one that is not finite, has
/// no direction: the result is false and the cell counts as seen.
[[nodiscard]] inline bool MakeRay(const Point3& origin, const Point3& camera, Ray& ray) {
  const double x = camera.x - origin.x;
  const double y = camera.y - origin.y;
  const double z = camera.z - origin.z;
  const double length = std::sqrt(x * x + y * y + z * z);
  ray.origin = origin;
  ray.direction = {x / length, y / length, z / length};
  return std::isfinite(ray.direction.x) && std::isfinite(ray.direction.y) &&
         std::isfinite(ray.direction.z);
}

}  // namespace tqtortho
