// SPDX-License-Identifier: Apache-2.0
#include "pipeline/neighbours.h"

#include <algorithm>

#include "core/rect_ops.h"

namespace tqtortho {

std::map<std::uint64_t, std::vector<std::uint64_t>> OverlappingPhotos(
    std::vector<KeyedFootprint> footprints) {
  std::erase_if(footprints, [](const KeyedFootprint& f) { return !HasArea(f.rect); });
  std::sort(footprints.begin(), footprints.end(), [](const auto& a, const auto& b) {
    return a.rect.minX != b.rect.minX ? a.rect.minX < b.rect.minX : a.key < b.key;
  });
  std::map<std::uint64_t, std::vector<std::uint64_t>> neighbours;
  for (std::size_t i = 0; i < footprints.size(); ++i) {
    const KeyedFootprint& one = footprints[i];
    auto& ofOne = neighbours[one.key];
    for (std::size_t j = i + 1; j < footprints.size(); ++j) {
      const KeyedFootprint& other = footprints[j];
      if (other.rect.minX >= one.rect.maxX) break;
      if (!OverlapsStrictly(one.rect, other.rect)) continue;
      ofOne.push_back(other.key);
      neighbours[other.key].push_back(one.key);
    }
  }
  for (auto& entry : neighbours) std::sort(entry.second.begin(), entry.second.end());
  return neighbours;
}

}  // namespace tqtortho
