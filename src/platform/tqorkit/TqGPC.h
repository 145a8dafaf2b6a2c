// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "tqfd/Export.h"

namespace tqorkit {

/// Operations of BooleanPoly, in the classic numbering of polygon clippers.
enum TqPolyOp : int { kPolyDifference = 0, kPolyIntersection = 1, kPolyXor = 2, kPolyUnion = 3 };

/// A polygon made by TqGPC; opaque.
struct TqPolygon;

/// Boolean operations on polygons in ground coordinates. Stateless; thread-safe.
class TQTORTHO_API TqGPC {
 public:
  /// Makes a polygon from its vertices (the ring is closed by itself). Null when it has fewer than
  /// three vertices or a coordinate is not finite. Release it with RemovePoly.
  static TqPolygon* CreatePoly(const double* x, const double* y, int count);
  /// True when the result of the operation has a positive area. Self-intersecting rings follow the
  /// even-odd rule. Null operands are empty polygons.
  static bool BooleanPoly(const TqPolygon* a, const TqPolygon* b, int operation);
  static void RemovePoly(TqPolygon* polygon);
};

}  // namespace tqorkit
