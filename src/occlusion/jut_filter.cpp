// SPDX-License-Identifier: Apache-2.0
#include "occlusion/jut_filter.h"

namespace tqtortho {
namespace {

/// One line of the mask, `step` cells apart.
bool FlipLine(std::uint8_t* cells, std::ptrdiff_t step, int count, const JutLimits& limits) {
  bool changed = false;
  int begin = 0;
  bool enclosedBefore = false;  // the run starts behind a run of the other value
  while (begin < count) {
    const std::uint8_t value = cells[begin * step];
    int end = begin + 1;
    while (end < count && cells[end * step] == value) ++end;
    const int limit = value != 0 ? limits.longestJut : limits.longestNotch;
    const bool flip = enclosedBefore && end < count && end - begin <= limit;
    if (flip) {
      for (int i = begin; i < end; ++i) cells[i * step] = static_cast<std::uint8_t>(~value);
      changed = true;
    }
    enclosedBefore = !flip;
    begin = end;
  }
  return changed;
}

}  // namespace

bool FlipShortRuns(GridView<std::uint8_t> mask, const JutLimits& limits) {
  bool changed = false;
  for (int row = 0; row < mask.rows; ++row) {
    changed |= FlipLine(mask.Row(row), 1, mask.cols, limits);
  }
  if (mask.rows > 0) {
    for (int col = 0; col < mask.cols; ++col) {
      changed |= FlipLine(mask.Row(0) + col, mask.stride, mask.rows, limits);
    }
  }
  return changed;
}

}  // namespace tqtortho
