// SPDX-License-Identifier: Apache-2.0
#include "tqimage/GeoCoefficients.h"

#include <algorithm>

#include "core/numeric.h"

namespace tqimage {
namespace {

int NearestCell(double position, double origin, double cell) {
  if (cell == 0) return 0;
  return tqtortho::FloorToInt((position - origin) / cell + 0.5);
}

int Clamped(int cell, int count) { return std::clamp(cell, 0, count - 1); }

/// Rectangles saturate earlier than points: last - first + 1 of any span still fits an int.
int LimitedCorner(int cell) {
  constexpr int kLimit = (1 << 30) - 1;
  return std::clamp(cell, -kLimit, kLimit);
}

constexpr tqfd::Rect2_T<int> kEmptySpan{0, 0, -1, -1};

}  // namespace

GeoCoefficients::GeoCoefficients(const double transform[6], int cols, int rows)
    : originX_(transform[0]),
      originY_(transform[3]),
      cellX_(transform[1]),
      cellY_(transform[5]),
      cols_(cols),
      rows_(rows) {}

void GeoCoefficients::SetOrigin(double x, double y) {
  originX_ = x;
  originY_ = y;
}

void GeoCoefficients::SetResolution(double cellX, double cellY) {
  cellX_ = cellX;
  cellY_ = cellY;
}

tqfd::Point2_T<int> GeoCoefficients::World2Raster(double x, double y, int clampCols,
                                                  int clampRows) const {
  tqfd::Point2_T<int> cell{NearestCell(x, originX_, cellX_), NearestCell(y, originY_, cellY_)};
  if (clampCols > 0 && clampRows > 0) {
    cell.x = Clamped(cell.x, clampCols);
    cell.y = Clamped(cell.y, clampRows);
  }
  return cell;
}

tqfd::Rect2_T<int> GeoCoefficients::World2Raster(const tqfd::Rect2_T<double>& rect, int clampCols,
                                                 int clampRows) const {
  // Written so that a NaN corner counts as inverted.
  if (!(rect.minX <= rect.maxX && rect.minY <= rect.maxY)) return kEmptySpan;
  const auto first = World2Raster(rect.minX, rect.maxY, -1, -1);
  const auto last = World2Raster(rect.maxX, rect.minY, -1, -1);
  tqfd::Rect2_T<int> span{LimitedCorner(first.x), LimitedCorner(first.y), LimitedCorner(last.x),
                          LimitedCorner(last.y)};
  if (span.maxX < span.minX || span.maxY < span.minY) return kEmptySpan;
  const bool sized = cols_ > 0 && rows_ > 0;
  if (sized && (span.maxX < 0 || span.maxY < 0 || span.minX >= cols_ || span.minY >= rows_)) {
    return kEmptySpan;
  }
  if (clampCols > 0 && clampRows > 0) {
    span = {Clamped(span.minX, clampCols), Clamped(span.minY, clampRows),
            Clamped(span.maxX, clampCols), Clamped(span.maxY, clampRows)};
  }
  return span;
}

tqfd::Point2_T<double> GeoCoefficients::Raster2World(double col, double row) const {
  return {originX_ + col * cellX_, originY_ + row * cellY_};
}

}  // namespace tqimage
