// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// A surface model read as a continuous surface with vertical walls.
///
/// The heights of a surface model are samples at cell centres. Between four neighbouring centres (a
/// quad) the surface is either smooth, and bilinear, or a wall passes through. A ramp in place of
/// the wall would lean by a whole cell and cast a shadow that is too short and too soft; a wall on
/// the middle line between centres would be a staircase along every edge that does not follow the
/// raster. Instead a quad with a step is divided into 4 x 4 sub-cells, each of which belongs to the
/// upper or to the lower side: the side that a cubic B-spline over the 4 x 4 centres around
/// favours, which straightens the edges of roofs far below the cell size. On its side, the surface
/// continues with the slope of the nearest centre of that side (never across the wall).
///
/// 1. The surface passes through every height that has a neighbour of its own side; a lone spike is
///    cut off at the size that the spline leaves of it.
/// 2. No data is no surface: sub-cells whose nearest centre has no height hold nothing. A quad
///    beside no data is not smoothed.
/// 3. Beyond the outermost centres there is no surface. Callers whose raster ends there pad it with
///    one cell of no data, then it ends half a cell further, at the cell borders.
///
/// Positions are (row, column) in cells, whole numbers at cell centres. The heights are viewed, not
/// copied; beside them it keeps four bytes per cell. Reading is thread-safe.
class StepSurface {
 public:
  /// Sub-cells of a quad along one side.
  static constexpr int kSub = 4;

  /// What is known of one quad.
  ///
  /// bits 0-15 side of each sub-cell (row-major), bits 16-19 side of each corner (NW, NE, SW, SE);
  /// 1 is the upper side, or in a ragged quad the side with heights.
  using Quad = std::uint32_t;
  enum Kind : std::uint32_t { kSmooth = 0, kSplit = 1, kRagged = 2, kVoid = 3 };
  static constexpr Kind KindOf(Quad quad) { return static_cast<Kind>(quad >> 20); }

  /// @param wallStep  height difference of neighbouring cells, in height units, from which on a
  ///                  wall and not a slope is assumed; see DefaultWallStep
  StepSurface(GridView<const float> heights, double noData, double wallStep);

  /// Half a height unit plus three times the cell size: roofs up to 70 degrees are slopes at any
  /// cell size, and the walls of a storey are walls at cells up to 0.8 m.
  [[nodiscard]] static double DefaultWallStep(double cellSize) { return 0.5 + 3 * cellSize; }

  [[nodiscard]] int QuadRows() const { return heights_.rows - 1; }
  [[nodiscard]] int QuadCols() const { return heights_.cols - 1; }
  [[nodiscard]] const Quad* Quads() const { return quads_.data(); }
  [[nodiscard]] const GridView<const float>& Heights() const { return heights_; }
  [[nodiscard]] double WallStep() const { return wallStep_; }
  /// Lowest and highest height; inverted (infinite) when there is none.
  [[nodiscard]] double Lowest() const { return lowest_; }
  [[nodiscard]] double Highest() const { return highest_; }

  /// Height at a position inside the sub-cell (subRow, subCol) of a split or ragged quad; NaN where
  /// there is no surface. (v, u) is the position in the quad, each 0 to 1.
  [[nodiscard]] double SubCellHeight(int quadRow, int quadCol, int subRow, int subCol, double v,
                                     double u) const;
  /// Nothing of a split or ragged quad is higher.
  [[nodiscard]] double UpperBound(int quadRow, int quadCol) const;
  /// Height at any position; NaN where there is no surface.
  [[nodiscard]] double HeightAt(double row, double col) const;
  /// HeightAt for many columns of one row.
  void HeightsAt(double row, const std::vector<double>& cols, float* heights) const;

 private:
  [[nodiscard]] bool IsHeight(float height) const;
  [[nodiscard]] Quad Classify(int row, int col) const;
  [[nodiscard]] Quad Split(int row, int col, float middle) const;
  [[nodiscard]] double SlopeAlong(int row, int col, int stepRow, int stepCol) const;

  GridView<const float> heights_;
  double noData_ = 0;
  double wallStep_ = 0;
  double lowest_ = 0;
  double highest_ = 0;
  std::vector<Quad> quads_;
};

}  // namespace tqtortho
