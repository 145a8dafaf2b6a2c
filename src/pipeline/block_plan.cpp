// SPDX-License-Identifier: Apache-2.0
#include "pipeline/block_plan.h"

#include <algorithm>
#include <cstdint>

#include "core/numeric.h"

namespace tqtortho {

int GroupSize(int photoCount, int threadCount) {
  constexpr int kPhotosPerBlock = 5;
  if (static_cast<std::int64_t>(kPhotosPerBlock) * threadCount <= photoCount) {
    return kPhotosPerBlock;
  }
  const int share = TruncToInt(static_cast<double>(photoCount) / threadCount);
  return share == 0 ? 1 : share;
}

double ReductionScale(int width, int height, bool sizingRun) {
  const int divisor = sizingRun ? 50 : 30;
  return std::max(static_cast<float>(std::max(width / divisor, height / divisor)), 1.0F);
}

}  // namespace tqtortho
