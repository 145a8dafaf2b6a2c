// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "occlusion/quadtree.h"
#include "occlusion/ray_surface.h"

namespace tqtortho {

/// Where the camera stands as seen from a leaf's upper corner (maxX, maxY).
enum class LeafCase {
  kUpperRight,  ///< at or beyond the corner in x and y
  kLowerRight,  ///< at or beyond it in x, before it in y
  kLowerLeft,   ///< before it in x and y
  kUpperLeft,   ///< before it in x, at or beyond it in y
  kNone,        ///< not a number
};

/// Kept: the case follows the camera, not the ray. With a camera outside the surface's box a ray
/// may run against its leaf's case; such a leaf is decided after one step.
[[nodiscard]] LeafCase CaseOf(const LocalBox& leaf, const Point3& camera);

/// Steps after which a march gives up and counts as not blocked.
inline constexpr int kMaxSteps = 1000000;

/// True when the march from `start` is past the leaf's exit. The mix of strict and non-strict
/// comparisons is fixed.
[[nodiscard]] inline bool PastExit(LeafCase leafCase, const Point3& p, const Point3& exit) {
  switch (leafCase) {
    case LeafCase::kUpperRight:
      return p.x > exit.x || p.y > exit.y;
    case LeafCase::kLowerRight:
      return p.x > exit.x || exit.y >= p.y;
    case LeafCase::kLowerLeft:
      return exit.x >= p.x || exit.y >= p.y;
    case LeafCase::kUpperLeft:
      return exit.x >= p.x || p.y > exit.y;
    case LeafCase::kNone:
      break;
  }
  return true;
}

/// True when a point outside the grid lies before the march's start, seen along the case.
[[nodiscard]] inline bool BeforeStart(LeafCase leafCase, const Point3& p, const Point3& start) {
  switch (leafCase) {
    case LeafCase::kUpperRight:
      return start.x > p.x || start.y > p.y;
    case LeafCase::kLowerRight:
      return start.x > p.x || p.y > start.y;
    case LeafCase::kLowerLeft:
      return p.x > start.x || p.y > start.y;
    case LeafCase::kUpperLeft:
      return p.x > start.x || start.y > p.y;
    case LeafCase::kNone:
      break;
  }
  return true;
}

/// Where the march through a leaf starts: at the ray's origin when that lies right of or above the
/// point of entry, else at the point of entry; the same test in every case.
[[nodiscard]] inline Point3 MarchStart(const Ray& ray, const Point3& entry) {
  return ray.origin.x > entry.x || ray.origin.y > entry.y ? ray.origin : entry;
}

/// Marches through one leaf, one cell size (3-D length) at a time, and tells whether higher surface
/// blocks the ray. The start itself is not tested, the height is tested before the exit, and
/// heights that are no data block like others. The position is accumulated, p += step: a closed
/// form would reach other cells.
///
/// @param highest  the largest of all heights of the surface, no data included
///
/// Marches that can no longer be blocked end at once, with the answer that going on would give.
[[nodiscard]] bool LeafBlocks(const RaySurface& surface, double highest, const Ray& ray,
                              LeafCase leafCase, const Point3& entry, const Point3& exit);

}  // namespace tqtortho
