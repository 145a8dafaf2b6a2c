// SPDX-License-Identifier: Apache-2.0
#include "update/mark_occluded.h"

#include <algorithm>

namespace tqtortho {

void MarkOccluded(const std::vector<std::uint8_t>& mask, int maskCols,
                  const std::vector<std::uint8_t>& hidden, int rows, int cols, int bands,
                  std::uint8_t* ortho) {
  for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row) {
    const std::size_t maskStart = row * static_cast<std::size_t>(maskCols);
    const std::size_t start = row * static_cast<std::size_t>(cols);
    for (std::size_t col = 0; col < static_cast<std::size_t>(cols); ++col) {
      const bool outside = maskStart + col >= mask.size() || mask[maskStart + col] == 0;
      const bool unseen = start + col < hidden.size() && hidden[start + col] == 255;
      if (outside || unseen) {
        std::fill_n(ortho + (start + col) * static_cast<std::size_t>(bands), bands,
                    std::uint8_t{0});
      }
    }
  }
}

}  // namespace tqtortho
