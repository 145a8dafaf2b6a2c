// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "occlusion/leaf_march.h"
#include "occlusion/quadtree.h"
#include "occlusion/ray_surface.h"

namespace tqtortho {

/// What all rays of one surface and one camera share. Refers to the surface's heights.
struct RayScene {
  RayScene(const RaySurface& raySurface, const Point3& localCamera);

  RaySurface surface;
  Point3 camera;
  QuadTree tree;
  std::vector<LeafCase> cases;  ///< per node of the tree
  double highest;               ///< the largest of all heights, no data included
};

/// The plain way: every leaf that the ray passes is marched through. `hits` is scratch space.
[[nodiscard]] bool IsHiddenByMarch(const RayScene& scene, int row, int col,
                                   std::vector<LeafHit>& hits);

}  // namespace tqtortho
