// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

namespace tqfd {

/// A 2-D point; for rasters x is the column and y the row.
template <class T>
struct Point2_T {
  T x{};
  T y{};
  friend bool operator==(const Point2_T&, const Point2_T&) = default;
};

/// A 3-D point.
template <class T>
struct Point3_T {
  T x{};
  T y{};
  T z{};
  friend bool operator==(const Point3_T&, const Point3_T&) = default;
};

/// An axis-parallel rectangle in the order minX, minY, maxX, maxY.
///
/// Over double it is a ground rectangle (Y grows northwards); over int it holds inclusive raster
/// cells: minX/maxX first and last column, minY/maxY first (northern) and last row. The default is
/// the empty rectangle, inverted over the whole range of T, so that folding points into it works.
template <class T>
struct Rect2_T {
  T minX = std::numeric_limits<T>::max();
  T minY = std::numeric_limits<T>::max();
  T maxX = std::numeric_limits<T>::lowest();
  T maxY = std::numeric_limits<T>::lowest();
  friend bool operator==(const Rect2_T&, const Rect2_T&) = default;
};

}  // namespace tqfd
