// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include "occlusion/ray_surface.h"

namespace tqtortho {

/// One box of the tree over a surface's extent.
struct QuadNode {
  LocalBox box;
  std::array<int, 4> children{-1, -1, -1, -1};  ///< indices of nodes; all -1 in a leaf
  int depth = 0;

  [[nodiscard]] bool IsLeaf() const { return children[0] < 0; }
};

/// A leaf that a ray passes, with the points where the ray enters and leaves its box.
struct LeafHit {
  int node = 0;
  double entryT = 0;  ///< distance from the ray's origin to the entry
  Point3 entry;
  Point3 exit;
};

/// A shallow quadtree over the x-y extent of a surface: at most 4 levels below the root, 256
/// leaves.
///
/// The root splits at the camera when that lies strictly inside the box, so that every leaf sees
/// the camera in one quadrant; deeper nodes, and the root otherwise, split in the middle. The tree
/// is not changed by queries: many rays may be traced through one tree at once.
class QuadTree {
 public:
  /// @param camera  in the local frame
  QuadTree(const RaySurface& surface, const Point3& camera);

  /// True when the box has an extent in all three axes. Without one no cell is ever hidden.
  [[nodiscard]] static bool HasExtent(const LocalBox& box);
  /// Leaves up to this size are not divided further, in units of the surface.
  [[nodiscard]] static float LeafSize(float cellSizeX);
  /// The top of every leaf: the largest height, no data included, over the rows and columns that
  /// the box holds.
  ///
  /// Kept: the box extents are single-precision products, so their quotient by the cell size may
  /// fall short of the last row or column, which the scan then misses; and the scan covers the
  /// whole surface, so every leaf has the same top.
  [[nodiscard]] static double LeafTop(const RaySurface& surface);

  /// Appends the leaves that the ray passes to `hits`, in the order of the tree.
  void Query(const Ray& ray, std::vector<LeafHit>& hits) const;

  [[nodiscard]] const std::vector<QuadNode>& Nodes() const { return nodes_; }

 private:
  int Build(const LocalBox& box, int depth);

  std::vector<QuadNode> nodes_;
  Point3 camera_;
  double leafSize_ = 0;
  double leafTop_ = 0;
};

/// Slab test of the ray, t from 0 to the largest single-precision number, against a box; on success
/// `tMin` and `tMax` hold the passage. Axes with |direction| below 1e-6f count as parallel.
[[nodiscard]] bool RayMeetsBox(const Ray& ray, const LocalBox& box, double& tMin, double& tMax);

}  // namespace tqtortho
