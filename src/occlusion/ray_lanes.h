// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// A block of cells that may block rays of a tile.
struct Blocker {
  /// Positions that truncate to its cells; near and far as the tile's rays pass them.
  double nearCol, farCol, nearRow, farRow;
  double top;              ///< the largest height
  int leafCol0, leafCol1;  ///< leaves whose marches may test its cells (upper-right case only)
  int leafRow0, leafRow1;
};

/// What the lanes of one quadrant share, in columns, rows and steps.
struct LaneScene {
  GridView<const float> heights;
  double cellSizeX, cellSizeY;
  double cameraX, cameraY, cameraZ;
  double leafTop;
  double colMargin, rowMargin;
  double boxCol0, boxCol1;  ///< the box, which may end a hair before the last column ...
  double boxRow0, boxRow1;  ///< ... or below the first row
  bool toRight, up;         ///< where the rays go
  /// Where marches that start at the cell end, besides the box: the border to leaves whose case is
  /// against the ray, which test the first step only.
  bool endsAtCol, endsAtRow;
  double endCol, endRow;
  const double* leafCols;  ///< borders of the leaves in columns, ascending
  const double* leafRows;  ///< ... in rows, descending
  /// Leaves whose case is against the ray (upper-right case): one step each. -1: none.
  int shortLeafCol, shortLeafRow;

  /// With the camera right of and above the cells marches start at the leaves' entries, else at the
  /// cells.
  [[nodiscard]] bool UpperRight() const { return toRight && up; }
};

/// One row of up to eight neighbouring cells.
struct LaneGroup {
  int row, firstCol;
  unsigned wanted;     ///< bit per cell to decide
  unsigned hidden;     ///< result: certainly hidden
  unsigned undecided;  ///< result: neither certain
};

/// Eight parts of a tile: middle and half size in cells, and the lowest cell to decide (plus
/// infinity when there is none).
struct TileParts {
  static constexpr int kCount = 8;
  double col[kCount], row[kCount];
  double halfCols[kCount], halfRows[kCount];
  double lowest[kCount];
};

/// The vector code of one instruction set.
struct LaneKernel {
  /// Decides the wanted cells of a group against `blockers`, several rays at once. All of the
  /// group's rays must lie in the same quadrant of the camera.
  void (*decide)(const LaneScene& scene, const std::vector<Blocker>& blockers, LaneGroup& group);
  /// Writes one byte per blocker: a bit per part with a ray that it may block.
  void (*sieve)(const LaneScene& scene, const TileParts& parts,
                const std::vector<Blocker>& blockers, std::uint8_t* meets);
};

/// The kernel of an instruction set: "avx512", "avx2" or "baseline"; null when the machine lacks
/// it.
[[nodiscard]] const LaneKernel* LaneKernelOf(std::string_view name);

/// The one named by the environment variable TQTORTHO_KERNEL when the machine has it, else the
/// widest.
[[nodiscard]] const LaneKernel& ChooseLaneKernel();

}  // namespace tqtortho
