// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/arbiRect.h"

#include <algorithm>
#include <cmath>

namespace tqorkit {

arbiRect::arbiRect(const double x[4], const double y[4]) {
  std::copy(x, x + 4, x_);
  std::copy(y, y + 4, y_);
}

bool arbiRect::IsPointInArbiRect(double x, double y) const {
  bool inside = false;
  for (int i = 0; i < 4; ++i) {
    // Relative to the point: ground coordinates of millions of metres would cost the digits that
    // decide at the border.
    const double ax = x_[i] - x;
    const double ay = y_[i] - y;
    const double bx = x_[(i + 1) % 4] - x;
    const double by = y_[(i + 1) % 4] - y;
    if (!std::isfinite(ax) || !std::isfinite(ay) || !std::isfinite(bx) || !std::isfinite(by)) {
      return false;
    }
    const double cross = ax * by - bx * ay;
    const bool withinBox = std::min(ax, bx) <= 0 && std::max(ax, bx) >= 0 &&
                           std::min(ay, by) <= 0 && std::max(ay, by) >= 0;
    if (cross == 0 && withinBox) return true;
    // Even-odd rule with a ray to the right; half-open in y, so that a corner counts once.
    if ((ay > 0) != (by > 0) && (cross > 0) == (by > ay)) inside = !inside;
  }
  return inside;
}

}  // namespace tqorkit
