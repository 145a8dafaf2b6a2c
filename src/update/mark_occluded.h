// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace tqtortho {

/// Sets to 0 the cells of an ortho image (rows x cols pixels of `bands` samples) that lie outside
/// the photo's mask or are hidden.
///
/// Kept: the mask is indexed by its own width and the hidden cells by the ortho's, whatever their
/// sizes: rows stay aligned at the left edge of a mask of another width, but columns beyond it take
/// the next row's cells. Beyond the end of its data a mask owns nothing and hides nothing.
///
/// @param maskCols  row length of `mask`
void MarkOccluded(const std::vector<std::uint8_t>& mask, int maskCols,
                  const std::vector<std::uint8_t>& hidden, int rows, int cols, int bands,
                  std::uint8_t* ortho);

}  // namespace tqtortho
