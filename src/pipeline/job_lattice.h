// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"

namespace tqtortho {

/// The value that a number has after "%lf" wrote it and somebody read it back.
[[nodiscard]] double RoundedToFile(double value);

/// The one lattice that all orthos of a job share: cell centres at anchor + i * step on both axes.
///
/// The step and the anchor are such that six decimals hold them: workers read both footprint and
/// resolution from the parameter file, and a step off by half a micrometre would drift by half a
/// centimetre over ten thousand cells. The anchor is the centre of the DSM's middle cell (moved by
/// at most half a micrometre onto six decimals), in the middle so that a DSM whose own cell size
/// needs more than six decimals drifts against the lattice by as little as possible.
class JobLattice {
 public:
  /// @param dsm   north-up georeference of the DSM, with its size
  /// @param step  cell size, positive, already RoundedToFile
  JobLattice(const tqimage::GeoCoefficients& dsm, double step);

  [[nodiscard]] double Step() const { return step_; }
  [[nodiscard]] double AnchorX() const { return anchorX_; }
  [[nodiscard]] double AnchorY() const { return anchorY_; }
  /// How far a footprint's height is short of a whole number of cells: a thousandth of a cell, not
  /// less than 2e-5 (the parameter file rounds to 1e-6), not more than a quarter of a cell.
  [[nodiscard]] double Hair() const { return hair_; }

  /// The footprint that makes rectification stay on the lattice, around `ground`.
  ///
  /// 1. It contains `ground`; no side moves in. Rectification crops to the cells with data anyway.
  /// 2. minX and maxY, the first column and row, are lattice positions, and among those just
  /// outside
  ///    `ground` the ones on (or nearest to) a DSM cell centre: a work block's DSM tile takes the
  ///    height of the nearest cell as the height AT that corner, so any other corner displaces
  ///    the whole surface by up to half a DSM cell.
  /// 3. The height is a hair short of n steps. Rectification scans trunc(height / step + 1) = n
  /// rows and
  ///    derives the output's upper edge as minY + n * step, which comes out a hair above the first
  ///    row's own Y. A height of exactly n steps would scan n + 1 rows and move it by a whole cell.
  /// 4. maxX is a hair beyond a lattice position, so that the column count does not hang on
  /// rounding.
  [[nodiscard]] tqfd::Rect2_T<double> SnapOutward(const tqfd::Rect2_T<double>& ground) const;

  /// Lattice column of an X and row (counted downward) of a Y, relative to the anchor.
  [[nodiscard]] int ColumnOf(double x) const;
  [[nodiscard]] int RowOf(double y) const;

 private:
  double step_;
  double hair_;
  double anchorX_ = 0;
  double anchorY_ = 0;
  double dsmX_ = 0, dsmY_ = 0;          // centre of a DSM cell
  double dsmCellX_ = 1, dsmCellY_ = 1;  // positive
};

}  // namespace tqtortho
