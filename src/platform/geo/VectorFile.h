// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tqfd/Geometry.h"

namespace geo {

enum class ShapeKind { kPolygon, kLine, kPoint };
enum class FieldKind { kText, kWhole, kReal };
/// The empty state is written as NULL.
using FieldValue = std::variant<std::monostate, std::string, std::int64_t, double>;

/// A GeoPackage in the making: written beside its name, which it gets from Finish; one destroyed
/// before leaves no file. One thread at a time.
class VectorFile {
 public:
  VectorFile();
  ~VectorFile();
  VectorFile(const VectorFile&) = delete;
  VectorFile& operator=(const VectorFile&) = delete;

  /// @param crs  WKT of all layers; empty: undefined
  bool Start(const std::string& target, const std::string& crs);
  /// Layers are filled one after the other or in turns, by the number that this returns; negative
  /// when it cannot be added. Points have three coordinates, other shapes two.
  int AddLayer(const std::string& name, ShapeKind shape,
               const std::vector<std::pair<std::string, FieldKind>>& fields);

  /// A point (the first of `points`), a line, or a polygon of one ring that is closed here. Values
  /// in the order of the layer's fields.
  bool Add(int layer, const std::vector<tqfd::Point3_T<double>>& points,
           const std::vector<FieldValue>& values);

  /// The values of a region from its number and its area on the ground.
  using RegionValues = std::function<std::vector<FieldValue>(int number, double area)>;
  /// Adds the regions of equal numbers (not 0) of a raster's first band as polygons with holes.
  /// Cells that only share a corner belong to different regions. Reads the raster line by line;
  /// memory grows with the outlines that cross a line, not with the raster.
  /// @param progress  called with 0 to 1, its false stops the work; may be empty
  bool AddRegions(int layer, const std::string& rasterPath, const RegionValues& values,
                  const std::function<bool(double)>& progress);

  bool Finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace geo
