// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tqfd/Export.h"

namespace tqorkit {

/// A quadrilateral in any position, given by its four corners in ring order.
class TQTORTHO_API arbiRect {
 public:
  arbiRect(const double x[4], const double y[4]);
  /// True inside and on the border; false when a coordinate is NaN.
  [[nodiscard]] bool IsPointInArbiRect(double x, double y) const;

 private:
  double x_[4];
  double y_[4];
};

}  // namespace tqorkit
