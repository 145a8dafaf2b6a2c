// SPDX-License-Identifier: Apache-2.0
#include "survey/source_lens.h"

namespace tqtortho::host {

tqfd::Point2_T<double> Distorted(const SourceLens& lens, tqfd::Point2_T<double> ray) {
  const double x = ray.x, y = ray.y, r2 = x * x + y * y;
  const double radial = 1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * (lens.k3 + r2 * lens.k4)));
  return {x * radial + 2 * lens.p1 * x * y + lens.p2 * (r2 + 2 * x * x),
          y * radial + 2 * lens.p2 * x * y + lens.p1 * (r2 + 2 * y * y)};
}

tqfd::Point2_T<double> RecordedFromRay(const SourceLens& lens, tqfd::Point2_T<double> ray) {
  const auto d = Distorted(lens, ray);
  const double skewed = lens.skew * d.y * lens.Size();  // zero adds nothing, not even a rounding
  return {lens.focalX * d.x * lens.Size() + lens.PrincipalCol() + skewed,
          lens.focalY * d.y * lens.Size() + lens.PrincipalRow()};
}

double FoldDeterminant(const SourceLens& lens, tqfd::Point2_T<double> ray) {
  const double x = ray.x, y = ray.y, r2 = x * x + y * y;
  const double radial = 1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * (lens.k3 + r2 * lens.k4)));
  const double slope =  // d radial / d r2 * 2
      2 * (lens.k1 + r2 * (2 * lens.k2 + r2 * (3 * lens.k3 + r2 * 4 * lens.k4)));
  const double xx = radial + slope * x * x + 2 * lens.p1 * y + 6 * lens.p2 * x;
  const double yy = radial + slope * y * y + 2 * lens.p2 * x + 6 * lens.p1 * y;
  const double xy = slope * x * y + 2 * lens.p1 * x + 2 * lens.p2 * y;
  return xx * yy - xy * xy;
}

}  // namespace tqtortho::host
