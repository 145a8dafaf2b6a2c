// SPDX-License-Identifier: Apache-2.0
#include "mosaic/measured_cell.h"

#include <cstddef>
#include <filesystem>

#include "core/numeric.h"

namespace tqtortho::host {

double MeasuredCell(const std::string& dsmPath, double cell) {
  const std::filesystem::path beside =
      std::filesystem::path(dsmPath).parent_path() / "dsm_origin.tif";
  std::error_code ignored;
  tqimage::TqImage origin;
  if (!std::filesystem::exists(beside, ignored) || !origin.Open(beside.string(), true)) return cell;
  const double measured = origin.GetGeoCoefficients().GetResolution().x;
  // Nothing else than half cells is made.
  return measured > 1.5 * cell && measured < 2.5 * cell ? measured : cell;
}

bool ReadOriginOnCells(const tqimage::TqImage& origin, double surfaceCell,
                       const tqfd::Rect2_T<int>& rect, std::vector<std::uint8_t>& codes) {
  const auto cols = static_cast<std::size_t>(rect.maxX - rect.minX);
  const auto rows = static_cast<std::size_t>(rect.maxY - rect.minY);
  codes.assign(cols * rows, 0);
  if (!(origin.GetGeoCoefficients().GetResolution().x > 1.5 * surfaceCell)) {
    return origin.ReadImage(0, rect, tqimage::kByte, codes.data());
  }
  // Half cell 2k is cell k, the one after it lies between k and k + 1 and goes with k.
  const auto whole = [](int half) { return FloorToInt(0.5 * half); };
  const tqfd::Rect2_T<int> from{whole(rect.minX), whole(rect.minY), whole(rect.maxX - 1) + 1,
                                whole(rect.maxY - 1) + 1};
  const auto fromCols = static_cast<std::size_t>(from.maxX - from.minX);
  std::vector<std::uint8_t> cells(fromCols * static_cast<std::size_t>(from.maxY - from.minY));
  if (!origin.ReadImage(0, from, tqimage::kByte, cells.data())) return false;
  for (std::size_t row = 0; row < rows; ++row) {
    const auto r = static_cast<std::size_t>(whole(rect.minY + static_cast<int>(row)) - from.minY);
    for (std::size_t col = 0; col < cols; ++col) {
      const auto c = static_cast<std::size_t>(whole(rect.minX + static_cast<int>(col)) - from.minX);
      codes[row * cols + col] = cells[r * fromCols + c];
    }
  }
  return true;
}

}  // namespace tqtortho::host
