// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

namespace tqtortho {

/// Rectangle arithmetic for anything with minX, minY, maxX, maxY. NaN corners make every test
/// false.

/// True when the rectangle has an area; the inverted empty rectangle has none.
template <class R>
[[nodiscard]] bool HasArea(const R& r) {
  return r.minX < r.maxX && r.minY < r.maxY;
}

/// True when the two share an area, not only a border.
template <class R>
[[nodiscard]] bool OverlapsStrictly(const R& a, const R& b) {
  return a.minX < b.maxX && a.minY < b.maxY && b.minX < a.maxX && b.minY < a.maxY;
}

template <class R>
[[nodiscard]] R Intersection(const R& a, const R& b) {
  R r;
  r.minX = std::max(a.minX, b.minX);
  r.minY = std::max(a.minY, b.minY);
  r.maxX = std::min(a.maxX, b.maxX);
  r.maxY = std::min(a.maxY, b.maxY);
  return r;
}

/// Widens `box` so that it holds both corners of `r`.
template <class R>
void FoldInto(R& box, const R& r) {
  box.minX = std::min({box.minX, r.minX, r.maxX});
  box.minY = std::min({box.minY, r.minY, r.maxY});
  box.maxX = std::max({box.maxX, r.minX, r.maxX});
  box.maxY = std::max({box.maxY, r.minY, r.maxY});
}

}  // namespace tqtortho
