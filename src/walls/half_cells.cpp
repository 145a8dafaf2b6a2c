// SPDX-License-Identifier: Apache-2.0
#include "walls/half_cells.h"

#include <cmath>
#include <cstddef>

#include "core/numeric.h"
#include "visibility/step_surface.h"

namespace tqtortho {

std::vector<float> OnHalfCells(GridView<const float> heights, double noData, double wallStep) {
  const int rows = HalfCells(heights.rows);
  const int cols = HalfCells(heights.cols);
  std::vector<float> fine(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols),
                          NarrowToFloat(noData));
  const StepSurface surface(heights, noData, wallStep);
  for (int row = 0; row < rows; ++row) {
    float* out = fine.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(cols);
    for (int col = 0; col < cols; ++col) {
      if (row % 2 == 0 && col % 2 == 0) {
        out[col] = heights.At(row / 2, col / 2);
        continue;
      }
      const double height = surface.HeightAt(0.5 * row, 0.5 * col);
      if (!std::isnan(height)) out[col] = NarrowToFloat(height);
    }
  }
  return fine;
}

}  // namespace tqtortho
