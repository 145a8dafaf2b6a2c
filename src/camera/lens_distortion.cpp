// SPDX-License-Identifier: Apache-2.0
#include "camera/lens_distortion.h"

#include <cmath>

#include "core/numeric.h"

namespace tqtortho {
namespace {

tqfd::Point2_T<float> InvertCorrection(const LensDistortion& lens, tqfd::Point2_T<float> ideal) {
  const double idealCol = ideal.x;
  const double idealUp = ideal.y;
  double dx = 0;
  double dy = 0;
  for (int pass = 0; pass <= kLensPassLimit; ++pass) {
    const double col = idealCol - dx;
    const double up = idealUp - dy;
    const double x = col - lens.centreCol;
    const double y = up - lens.centreUp;
    const double r2 = x * x + y * y;
    const double r4 = r2 * r2;
    const double radial = lens.k1 * r2 + lens.k2 * r4 + lens.k3 * (r4 * r2);
    const double nextDx = lens.p1 * (2.0 * x * x + r2) + radial * x + 2.0 * lens.p2 * x * y +
                          lens.b1 * x + lens.b2 * y;
    const double nextDy = lens.p2 * (2.0 * y * y + r2) + radial * y + 2.0 * lens.p1 * x * y;
    // Kept: the estimate of the previous correction is returned, not the one just computed, so up
    // to 0.1 pixel of distortion stays in.
    if (std::fabs(nextDx - dx) <= kLensSettled && std::fabs(nextDy - dy) <= kLensSettled) {
      return {NarrowToFloat(col), NarrowToFloat(up)};
    }
    dx = nextDx;
    dy = nextDy;
  }
  return ideal;
}

tqfd::Point2_T<float> DistortForward(const LensDistortion& lens, tqfd::Point2_T<float> ideal) {
  const double unit = lens.focalPixels * lens.pixelSize;
  const double x = ((ideal.x - lens.centreCol) / unit) * lens.pixelSize;
  const double y = ((lens.height - ideal.y - lens.centreUp) / unit) * lens.pixelSize;
  const double r2 = x * x + y * y;
  const double r4 = r2 * r2;
  const double radial = lens.k1 * r2 + lens.k2 * r4 + lens.k3 * (r4 * r2);
  // Kept: p1 and p2 are paired with the axes the other way round than in model 1.
  const double xd = x + radial * x + lens.p2 * (2.0 * x * x + r2) + 2.0 * lens.p1 * x * y;
  const double yd = y + radial * y + lens.p1 * (2.0 * y * y + r2) + 2.0 * lens.p2 * x * y;
  return {NarrowToFloat(xd * lens.focalPixels + lens.centreCol),
          NarrowToFloat(lens.height - (yd * lens.focalPixels + lens.centreUp))};
}

}  // namespace

tqfd::Point2_T<float> RecordedFromIdeal(const LensDistortion& lens, tqfd::Point2_T<float> ideal) {
  switch (lens.model) {
    case 1:
      return InvertCorrection(lens, ideal);
    case 3:
      return DistortForward(lens, ideal);
    default:
      return ideal;
  }
}

}  // namespace tqtortho
