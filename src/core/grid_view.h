// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <type_traits>

namespace tqtortho {

/// A row-major raster that somebody else owns. Rows are contiguous unless a stride is given.
template <class T>
struct GridView {
  T* cells = nullptr;
  int rows = 0;
  int cols = 0;
  std::ptrdiff_t stride = 0;  ///< cells from one row to the next

  GridView() = default;
  GridView(T* data, int rowCount, int colCount)
      : cells(data), rows(rowCount), cols(colCount), stride(colCount) {}
  GridView(T* data, int rowCount, int colCount, std::ptrdiff_t rowStride)
      : cells(data), rows(rowCount), cols(colCount), stride(rowStride) {}
  /// A view of const cells from one of mutable cells.
  template <class U>
  requires(std::is_same_v<const U, T>)
      GridView(const GridView<U>& other)  // NOLINT(google-explicit-constructor)
      : cells(other.cells), rows(other.rows), cols(other.cols), stride(other.stride) {}

  [[nodiscard]] T* Row(int row) const { return cells + row * stride; }
  [[nodiscard]] T& At(int row, int col) const { return cells[row * stride + col]; }
  [[nodiscard]] bool Contains(int row, int col) const {
    return row >= 0 && row < rows && col >= 0 && col < cols;
  }
  [[nodiscard]] bool Empty() const { return rows <= 0 || cols <= 0; }
  [[nodiscard]] std::size_t CellCount() const {
    return Empty() ? 0 : static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
  }
};

}  // namespace tqtortho
