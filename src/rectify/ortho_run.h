// SPDX-License-Identifier: Apache-2.0
#pragma once

// Shared by the implementations of the production loop; not for others.

#include "rectify/ortho_kernel.h"
#include "rectify/z_buffer.h"

namespace tqtortho {

/// Thousandths of a ground unit in one.
inline constexpr double kDistanceScale = 1000.0;

/// A pass under way.
struct OrthoRun {
  const OrthoTask& task;
  OrthoCells& out;
  ZBuffer* depth;  ///< null without the z-buffer

  [[nodiscard]] std::uint8_t* Cell(int row, int col) const {
    return out.pixels.data() + CellNumber(row, col) * static_cast<std::size_t>(task.photo.bands);
  }
  [[nodiscard]] std::size_t CellNumber(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(task.grid.cols) +
           static_cast<std::size_t>(col);
  }
};

/// Height of a cell, NaN where the tile has none.
[[nodiscard]] double CellHeight(const SurfaceTile& tile, double tileCol, double tileRow);

/// One cell from surface to z-buffer: the definition of the pass.
void RectifyCell(const OrthoRun& run, int row, int col);

/// Whether the batches cover this input: a frame of whole, moderate size and a tile with columns
/// from west to east. Everything else takes the scalar way.
[[nodiscard]] bool SuitsBatches(const OrthoTask& task);

[[nodiscard]] bool HasAvx2Kernel();
/// All rows of the grid in batches. Only with HasAvx2Kernel() and SuitsBatches().
void RectifyRowsAvx2(const OrthoRun& run);

}  // namespace tqtortho
