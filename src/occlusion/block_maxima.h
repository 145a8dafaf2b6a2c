// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// The largest number of a grid, NaN left out; minus infinity when there is none.
[[nodiscard]] float LargestHeight(GridView<const float> heights);

/// The largest height of every square block of a grid, NaN left out. The last blocks of a row or
/// column hold what is left.
class BlockMaxima {
 public:
  BlockMaxima(GridView<const float> heights, int blockSize);

  [[nodiscard]] int BlockSize() const { return blockSize_; }
  [[nodiscard]] int Rows() const { return rows_; }
  [[nodiscard]] int Cols() const { return cols_; }
  [[nodiscard]] float At(int blockRow, int blockCol) const {
    return maxima_[static_cast<std::size_t>(blockRow) * cols_ + blockCol];
  }
  [[nodiscard]] const float* Row(int blockRow) const {
    return maxima_.data() + static_cast<std::size_t>(blockRow) * cols_;
  }

 private:
  int blockSize_;
  int rows_;
  int cols_;
  std::vector<float> maxima_;
};

}  // namespace tqtortho
