// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tqtortho::host {

/// Shapes that stand on the ground of the sample town. All are convex columns: a footprint,
/// vertical walls down to below the ground, and a top z(x, y); so the town's surface is a height
/// field.
enum class SolidKind : std::uint8_t {
  kFlat,      ///< rectangle with a level roof
  kGable,     ///< rectangle with two roof planes, the ridge along its long axis
  kSpheroid,  ///< tree: disc with the upper half of a spheroid
  kCone,      ///< tree: disc with a cone
};

struct Solid {
  SolidKind kind = SolidKind::kFlat;
  double x = 0, y = 0;          ///< centre, town frame (metres)
  double axisX = 1, axisY = 0;  ///< unit vector of the u axis (buildings)
  double halfU = 1, halfV = 1;  ///< half sizes; the radius of a tree in both
  double rim = 0;               ///< z of the eaves, the flat roof or the lower edge of a crown
  double rise = 0;              ///< ridge above the eaves, tree top above the rim; 0 for flat roofs
  std::uint32_t style = 0;      ///< random bits of its colours

  [[nodiscard]] bool IsTree() const {
    return kind == SolidKind::kSpheroid || kind == SolidKind::kCone;
  }
  [[nodiscard]] double Top() const { return rim + rise; }
  /// Position in the solid's own frame.
  [[nodiscard]] double LocalU(double px, double py) const {
    return (px - x) * axisX + (py - y) * axisY;
  }
  [[nodiscard]] double LocalV(double px, double py) const {
    return (py - y) * axisX - (px - x) * axisY;
  }
};

/// A half-line: origin + t * direction, t >= 0; the direction need not have unit length.
struct TownRay {
  double x = 0, y = 0, z = 0;
  double dx = 0, dy = 0, dz = -1;
};

/// The part of a ray inside a solid.
struct RayInterval {
  double enter = 0;
  double leave = 0;
  bool throughWall = false;  ///< the ray enters through a vertical wall, not through the top
};

/// True when (x, y) lies on the footprint (its rim included); then `z` is the height of the top.
[[nodiscard]] bool SolidHeight(const Solid& solid, double x, double y, double& z);

/// Exact intersection. False when the ray misses; a touch (enter == leave) counts as a miss.
[[nodiscard]] bool ClipRay(const Solid& solid, const TownRay& ray, RayInterval& interval);

/// Upward unit normal of the top at (x, y).
void TopNormal(const Solid& solid, double x, double y, double normal[3]);

}  // namespace tqtortho::host
