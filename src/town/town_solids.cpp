// SPDX-License-Identifier: Apache-2.0
#include "town/town_solids.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tqtortho::host {
namespace {

constexpr double kEndless = std::numeric_limits<double>::infinity();

/// Keeps the part of [enter, leave] where value + t * slope <= limit. `wall` tells what kind of
/// face this is; it is noted when the face becomes the entry.
bool ClipHalfSpace(double value, double slope, double limit, bool wall, RayInterval& interval) {
  if (slope == 0) return value <= limit;
  const double t = (limit - value) / slope;
  if (slope < 0) {
    if (t > interval.enter) {
      interval.enter = t;
      interval.throughWall = wall;
    }
  } else {
    interval.leave = std::min(interval.leave, t);
  }
  return interval.enter < interval.leave;
}

bool ClipBuilding(const Solid& s, const TownRay& ray, RayInterval& interval) {
  const double u = s.LocalU(ray.x, ray.y), v = s.LocalV(ray.x, ray.y);
  const double du = ray.dx * s.axisX + ray.dy * s.axisY;
  const double dv = ray.dy * s.axisX - ray.dx * s.axisY;
  if (!ClipHalfSpace(u, du, s.halfU, true, interval)) return false;
  if (!ClipHalfSpace(-u, -du, s.halfU, true, interval)) return false;
  if (!ClipHalfSpace(v, dv, s.halfV, true, interval)) return false;
  if (!ClipHalfSpace(-v, -dv, s.halfV, true, interval)) return false;
  if (s.kind == SolidKind::kFlat) return ClipHalfSpace(ray.z, ray.dz, s.rim, false, interval);
  const double pitch = s.rise / s.halfV;
  return ClipHalfSpace(ray.z + pitch * v, ray.dz + pitch * dv, s.Top(), false, interval) &&
         ClipHalfSpace(ray.z - pitch * v, ray.dz - pitch * dv, s.Top(), false, interval);
}

/// The stretch between the roots of a t^2 + 2 b t + c < 0 with a > 0.
bool Roots(double a, double b, double c, double& low, double& high) {
  const double discriminant = b * b - a * c;
  if (!(discriminant > 0)) return false;
  const double root = std::sqrt(discriminant);
  low = (-b - root) / a;
  high = (-b + root) / a;
  return true;
}

/// The crown above the rim: upper half of a spheroid, or a cone. Its rim is part of the column
/// below, so only the stretch with z >= rim matters here.
bool ClipCrown(const Solid& s, const TownRay& ray, double& low, double& high) {
  const double px = (ray.x - s.x) / s.halfU, py = (ray.y - s.y) / s.halfU;
  const double dx = ray.dx / s.halfU, dy = ray.dy / s.halfU;
  const double dz = ray.dz / s.rise;
  if (s.kind == SolidKind::kSpheroid) {
    const double pz = (ray.z - s.rim) / s.rise;
    if (!Roots(dx * dx + dy * dy + dz * dz, px * dx + py * dy + pz * dz,
               px * px + py * py + pz * pz - 1, low, high)) {
      return false;
    }
  } else {
    // r^2 < w^2 with w = 1 - (z - rim) / rise; the ray must stay in the lower nappe, w > 0.
    const double w = (s.Top() - ray.z) / s.rise, dw = -dz;
    const double a = dx * dx + dy * dy - dw * dw, b = px * dx + py * dy - w * dw;
    const double c = px * px + py * py - w * w;
    if (a < 0) {  // steep: enters or leaves through the side and never comes out again
      double first = 0, second = 0;
      if (!Roots(-a, -b, -c, first, second)) {
        first = second = -w / dw;  // passes through the tip's double cone on one side only
      }
      if (dw > 0) {
        low = second;
        high = kEndless;
      } else {
        low = -kEndless;
        high = first;
      }
    } else if (a == 0 || !Roots(a, b, c, low, high) || w + dw * 0.5 * (low + high) <= 0) {
      return false;
    }
  }
  // Above the rim only.
  if (dz < 0) {
    high = std::min(high, (s.rim - ray.z) / ray.dz);
  } else if (dz > 0) {
    low = std::max(low, (s.rim - ray.z) / ray.dz);
  } else if (ray.z < s.rim) {
    return false;
  }
  return low < high;
}

bool ClipTree(const Solid& s, const TownRay& ray, RayInterval& interval) {
  double low = kEndless, high = -kEndless;
  bool wall = false;
  // The column below the rim.
  const double px = ray.x - s.x, py = ray.y - s.y;
  const double a = ray.dx * ray.dx + ray.dy * ray.dy;
  const double c = px * px + py * py - s.halfU * s.halfU;
  double columnLow = -kEndless, columnHigh = kEndless;
  const bool inColumn =
      a > 0 ? Roots(a, px * ray.dx + py * ray.dy, c, columnLow, columnHigh) : c < 0;
  if (!inColumn) return false;
  RayInterval column{columnLow, columnHigh, true};
  if (ClipHalfSpace(ray.z, ray.dz, s.rim, false, column)) {
    low = column.enter;
    high = column.leave;
    wall = column.throughWall;
  }
  double crownLow = 0, crownHigh = 0;
  if (ClipCrown(s, ray, crownLow, crownHigh)) {
    if (crownLow <= low) {
      low = crownLow;
      wall = false;
    }
    high = std::max(high, crownHigh);
  }
  if (low > interval.enter) {
    interval.enter = low;
    interval.throughWall = wall;
  }
  interval.leave = std::min(interval.leave, high);
  return interval.enter < interval.leave;
}

}  // namespace

bool SolidHeight(const Solid& solid, double x, double y, double& z) {
  if (solid.IsTree()) {
    const double px = (x - solid.x) / solid.halfU, py = (y - solid.y) / solid.halfU;
    const double r2 = px * px + py * py;
    if (!(r2 <= 1)) return false;
    z = solid.rim +
        solid.rise * (solid.kind == SolidKind::kCone ? 1 - std::sqrt(r2) : std::sqrt(1 - r2));
    return true;
  }
  const double u = std::abs(solid.LocalU(x, y)), v = std::abs(solid.LocalV(x, y));
  if (!(u <= solid.halfU && v <= solid.halfV)) return false;
  z = solid.rim + solid.rise * (1 - v / solid.halfV);
  return true;
}

bool ClipRay(const Solid& solid, const TownRay& ray, RayInterval& interval) {
  interval = {0, kEndless, false};
  return solid.IsTree() ? ClipTree(solid, ray, interval) : ClipBuilding(solid, ray, interval);
}

void TopNormal(const Solid& solid, double x, double y, double normal[3]) {
  double slopeX = 0, slopeY = 0;  // of the top, dz/dx and dz/dy
  if (solid.kind == SolidKind::kGable) {
    const double slope =
        solid.LocalV(x, y) > 0 ? -solid.rise / solid.halfV : solid.rise / solid.halfV;
    slopeX = -slope * solid.axisY;
    slopeY = slope * solid.axisX;
  } else if (solid.IsTree()) {
    const double px = (x - solid.x) / solid.halfU, py = (y - solid.y) / solid.halfU;
    const double r = std::sqrt(px * px + py * py);
    // The rim of a spheroid is vertical: capped, so that the normal stays finite.
    const double down = solid.kind == SolidKind::kCone ? 1 / std::max(r, 1e-9)
                                                       : 1 / std::sqrt(std::max(1 - r * r, 0.01));
    slopeX = -down * px * solid.rise / solid.halfU;
    slopeY = -down * py * solid.rise / solid.halfU;
  }
  const double length = std::sqrt(slopeX * slopeX + slopeY * slopeY + 1);
  normal[0] = -slopeX / length;
  normal[1] = -slopeY / length;
  normal[2] = 1 / length;
}

}  // namespace tqtortho::host
