// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_veto.h"

#include <cstddef>

namespace tqtortho {

std::int64_t TakeBackUnsupported(GridView<const float> part, const std::vector<WallCell>& cells,
                                 const WallPrior& prior, float agreement,
                                 std::vector<std::uint8_t>& isUpper) {
  constexpr double kSupport = 0.25;
  std::vector<std::int32_t> moved(part.CellCount(), -1);
  const auto index = [&](int row, int col) {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(part.cols) +
           static_cast<std::size_t>(col);
  };
  for (std::size_t k = 0; k < cells.size(); ++k) {
    const bool expected = prior.Upper(cells[k].offset) > 0.5F;
    if ((isUpper[k] != 0) != expected) {
      moved[index(cells[k].row, cells[k].col)] = static_cast<std::int32_t>(k);
    }
  }
  std::int64_t back = 0;
  std::vector<std::int32_t> piece;
  for (std::size_t first = 0; first < cells.size(); ++first) {
    std::int32_t& start = moved[index(cells[first].row, cells[first].col)];
    if (start < 0) continue;
    piece.assign(1, start);
    start = -1;
    const std::uint8_t side = isUpper[first];
    double support = 0;
    for (std::size_t k = 0; k < piece.size(); ++k) {
      const WallCell& cell = cells[static_cast<std::size_t>(piece[k])];
      support += PhotosFavourUpper(cell, agreement) * (side != 0 ? 1 : -1);
      for (int row = cell.row - 1; row <= cell.row + 1; ++row) {
        for (int col = cell.col - 1; col <= cell.col + 1; ++col) {
          if (!part.Contains(row, col)) continue;
          std::int32_t& next = moved[index(row, col)];
          if (next < 0 || isUpper[static_cast<std::size_t>(next)] != side) continue;
          piece.push_back(next);
          next = -1;
        }
      }
    }
    if (support >= kSupport * static_cast<double>(piece.size())) continue;
    back += static_cast<std::int64_t>(piece.size());
    for (const std::int32_t k : piece) isUpper[static_cast<std::size_t>(k)] = side != 0 ? 0 : 1;
  }
  return back;
}

}  // namespace tqtortho
