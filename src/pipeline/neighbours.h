// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tqfd/Geometry.h"

namespace tqtortho {

/// A photo of a job as a number: block index in the upper, photo index in the lower half.
[[nodiscard]] inline std::uint64_t PhotoKey(std::size_t block, std::size_t photo) {
  return static_cast<std::uint64_t>(block) << 32 | static_cast<std::uint64_t>(photo);
}

struct KeyedFootprint {
  std::uint64_t key = 0;
  tqfd::Rect2_T<double> rect;
};

/// For every photo whose footprint has an area, the others whose footprints share an area with it,
/// in growing order of their keys (an isolated photo has an empty list). Sorted sweep: the cost is
/// that of the pairs that overlap in X.
[[nodiscard]] std::map<std::uint64_t, std::vector<std::uint64_t>> OverlappingPhotos(
    std::vector<KeyedFootprint> footprints);

}  // namespace tqtortho
