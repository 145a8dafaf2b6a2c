// SPDX-License-Identifier: Apache-2.0
#include "update/fill_cells.h"

#include <algorithm>
#include <vector>

namespace tqtortho {
namespace {

bool HoldsOnly(const std::uint8_t* samples, int bands, std::uint8_t value) {
  return std::all_of(samples, samples + bands, [value](std::uint8_t s) { return s == value; });
}

}  // namespace

bool IsEmptyCell(const std::uint8_t* samples, int bands) {
  return HoldsOnly(samples, bands, 0) || HoldsOnly(samples, bands, 1);
}

void FindHoles(GridView<const std::uint8_t> ortho, int bands, GridView<std::uint8_t> holes) {
  struct Cell {
    int row;
    int col;
  };
  std::vector<Cell> open;
  for (int row = 0; row < holes.rows; ++row) {
    for (int col = 0; col < holes.cols; ++col) {
      const std::uint8_t* samples = ortho.Row(row) + static_cast<std::ptrdiff_t>(bands) * col;
      holes.At(row, col) = IsEmptyCell(samples, bands) ? 1 : 0;
    }
  }
  // What empty cells of the rim are connected with lies outside.
  const auto drop = [&](int row, int col) {
    if (!holes.Contains(row, col) || holes.At(row, col) == 0) return;
    holes.At(row, col) = 0;
    open.push_back({row, col});
  };
  for (int row = 0; row < holes.rows; ++row) {
    drop(row, 0);
    drop(row, holes.cols - 1);
  }
  for (int col = 0; col < holes.cols; ++col) {
    drop(0, col);
    drop(holes.rows - 1, col);
  }
  while (!open.empty()) {
    const auto [row, col] = open.back();
    open.pop_back();
    drop(row - 1, col);
    drop(row + 1, col);
    drop(row, col - 1);
    drop(row, col + 1);
  }
}

std::int64_t ReplaceCells(GridView<const std::uint8_t> marks, std::uint8_t mark,
                          GridView<const std::uint8_t> texture, int textureBands,
                          GridView<std::uint8_t> ortho, int orthoBands) {
  const int bands = std::min(textureBands, orthoBands);
  std::int64_t replaced = 0;
  for (int row = 0; row < marks.rows; ++row) {
    const std::uint8_t* from = texture.Row(row);
    std::uint8_t* to = ortho.Row(row);
    for (int col = 0; col < marks.cols; ++col, from += textureBands, to += orthoBands) {
      if (marks.At(row, col) != mark || HoldsOnly(from, textureBands, 0)) continue;
      std::copy_n(from, bands, to);
      ++replaced;
    }
  }
  return replaced;
}

}  // namespace tqtortho
