// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "occlusion/ray_surface.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

/// A digital surface model in memory, with its box in the ray tracer's local frame.
///
/// The loaders return false when a file cannot be read, a size is below 1 or beyond reason, or a
/// mask has the wrong size; the object is then partly filled and must not be used. Copyable.
class tqDSM {
 public:
  std::vector<float> heights;  ///< row-major; row 0 is the northern edge
  std::int32_t cols = 0;
  std::int32_t rows = 0;
  float noData = 0;  ///< no-data height of the source file, 0 when it names none
  float cellSizeX = 0;
  float cellSizeY = 0;  ///< negative for a north-up raster; the box relies on that sign
  double originX = 0;   ///< ground position of cell (row 0, column 0)
  double originY = 0;
  double minX = 0, minY = 0, minZ = 0;  ///< the box in the local frame
  double maxX = 0, maxY = 0, maxZ = 0;
  std::string projection;  ///< reference system of the file as WKT, handed on to outputs

  /// The whole raster.
  bool Load(const std::string& path);

  /// The part under a ground rectangle, at 1 / `scale` of the file's resolution (scale >= 1,
  /// smaller ones are refused): cells are resampled linearly, no data included. The origin is the
  /// rectangle's own corner, not snapped to the file's cells; parts outside the file hold no data.
  /// False when the rectangle does not meet the file. `ignoredPath` is not used.
  bool LoadRegion(const std::string& path, const std::string& ignoredPath,
                  const tqfd::Rect2_T<double>& geoRect, float scale);

  /// The part under a ground rectangle at full resolution, with no data where the mask is 0. The
  /// mask must have exactly the rectangle's number of cells.
  bool LoadMasked(const std::string& dsmPath, const std::string& maskPath,
                  const tqfd::Rect2_T<double>& geoRect);

  /// Resamples linearly to `factor` times the columns and rows.
  ///
  /// Kept: origin and box stay those of the old grid, so the box may reach past the last cell.
  bool Rescale(float factor);

  /// The point (x, y, z) of the ground in the local frame.
  [[nodiscard]] Point3 ToLocal(const Point3& ground) const;
  /// What the kernels need; refers to this object.
  [[nodiscard]] RaySurface Surface() const;

 private:
  /// Box from sizes and heights: products and extremes in single precision.
  void SetBox();
};

}  // namespace tqtortho
