// SPDX-License-Identifier: Apache-2.0
#include "occlusion/gap_fill.h"

#include <cstring>

#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

/// The rule for one cell: `near` and `far` are the neighbours at distance one and two.
std::uint8_t Filled(std::uint8_t far0, std::uint8_t near0, std::uint8_t cell, std::uint8_t near1,
                    std::uint8_t far1) {
  const std::uint8_t byFar = (far0 == far1) ? far0 : cell;
  return (near0 == near1 && near0 != cell) ? near0 : byFar;
}

void FillRow(std::uint8_t* row, int cols) {
  // Eight equal bytes from x - 2 on leave x to x + 3 as they are; most of a mask is like that.
  const auto uniform = [](const std::uint8_t* cells) {
    std::uint64_t word = 0;
    std::memcpy(&word, cells, sizeof word);
    return word == (word & 0xff) * 0x0101010101010101u;
  };
  for (int x = 2; x <= cols - 3;) {
    if (x + 6 <= cols && uniform(row + x - 2)) {
      x += 4;
      continue;
    }
    row[x] = Filled(row[x - 2], row[x - 1], row[x], row[x + 1], row[x + 2]);
    ++x;
  }
}

}  // namespace

void FillNarrowGaps(GridView<std::uint8_t> mask) {
  for (int y = 0; y < mask.rows; ++y) FillRow(mask.Row(y), mask.cols);
  // Columns do not see each other, so all of them advance together, row by row.
  for (int y = 2; y <= mask.rows - 3; ++y) {
    const std::uint8_t* far0 = mask.Row(y - 2);
    const std::uint8_t* near0 = mask.Row(y - 1);
    std::uint8_t* row = mask.Row(y);
    const std::uint8_t* near1 = mask.Row(y + 1);
    const std::uint8_t* far1 = mask.Row(y + 2);
    for (int x = 0; x < mask.cols; ++x) {
      row[x] = Filled(far0[x], near0[x], row[x], near1[x], far1[x]);
    }
  }
}

void CleanMask(GridView<std::uint8_t> mask) {
  if (mask.Empty()) return;
  cv::Mat image = AsMat(mask);
  cv::medianBlur(image, image, 3);
  FillNarrowGaps(mask);
}

}  // namespace tqtortho
