// SPDX-License-Identifier: Apache-2.0
#include "occlusion/block_maxima.h"

#include <algorithm>
#include <limits>

namespace tqtortho {
namespace {

constexpr float kNothing = -std::numeric_limits<float>::infinity();

/// Keeps the larger, and `largest` beside a NaN; element by element, so compilers use vectors.
void FoldRow(const float* row, int cols, std::vector<float>& largest) {
  for (int c = 0; c < cols; ++c) largest[c] = largest[c] < row[c] ? row[c] : largest[c];
}

}  // namespace

float LargestHeight(GridView<const float> heights) {
  if (heights.Empty()) return kNothing;
  std::vector<float> columns(heights.cols, kNothing);
  for (int r = 0; r < heights.rows; ++r) FoldRow(heights.Row(r), heights.cols, columns);
  return *std::max_element(columns.begin(), columns.end());
}

BlockMaxima::BlockMaxima(GridView<const float> heights, int blockSize)
    : blockSize_(blockSize),
      rows_((heights.rows + blockSize - 1) / blockSize),
      cols_((heights.cols + blockSize - 1) / blockSize),
      maxima_(static_cast<std::size_t>(rows_) * static_cast<std::size_t>(cols_), kNothing) {
  std::vector<float> columns(heights.cols);
  for (int blockRow = 0; blockRow < rows_; ++blockRow) {
    std::fill(columns.begin(), columns.end(), kNothing);
    const int end = std::min(heights.rows, (blockRow + 1) * blockSize);
    for (int r = blockRow * blockSize; r < end; ++r) FoldRow(heights.Row(r), heights.cols, columns);
    for (int blockCol = 0; blockCol < cols_; ++blockCol) {
      const auto first = columns.begin() + static_cast<std::ptrdiff_t>(blockCol) * blockSize;
      const auto last = columns.begin() + std::min(heights.cols, (blockCol + 1) * blockSize);
      maxima_[static_cast<std::size_t>(blockRow) * cols_ + blockCol] =
          *std::max_element(first, last);
    }
  }
}

}  // namespace tqtortho
