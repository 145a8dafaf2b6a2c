// SPDX-License-Identifier: Apache-2.0
#include "occlusion/leaf_march.h"

namespace tqtortho {
namespace {

/// True when a march at (row, col), outside the grid, moves away from it or along it: additions of
/// one step are monotone, so it never comes back.
bool LeftForGood(const RaySurface& surface, int row, int col, const Point3& step) {
  return (col < 0 && step.x <= 0) || (col >= surface.heights.cols && step.x >= 0) ||
         (row < 0 && step.y >= 0) || (row >= surface.heights.rows && step.y <= 0);
}

}  // namespace

LeafCase CaseOf(const LocalBox& leaf, const Point3& camera) {
  if (camera.x >= leaf.maxX) {
    if (camera.y >= leaf.maxY) return LeafCase::kUpperRight;
    if (camera.y < leaf.maxY) return LeafCase::kLowerRight;
  } else if (camera.x < leaf.maxX) {
    if (camera.y < leaf.maxY) return LeafCase::kLowerLeft;
    if (camera.y >= leaf.maxY) return LeafCase::kUpperLeft;
  }
  return LeafCase::kNone;
}

bool LeafBlocks(const RaySurface& surface, double highest, const Ray& ray, LeafCase leafCase,
                const Point3& entry, const Point3& exit) {
  if (leafCase == LeafCase::kNone) return false;
  const double size = static_cast<double>(surface.cellSizeX);
  const Point3 step{ray.direction.x * size, ray.direction.y * size, ray.direction.z * size};
  const Point3 start = MarchStart(ray, entry);
  Point3 p = start;
  for (int i = 0; i < kMaxSteps; ++i) {
    const Point3 before = p;
    p.x += step.x;
    p.y += step.y;
    p.z += step.z;
    const int col = surface.ColumnAt(p.x);
    const int row = surface.RowAt(p.y);
    if (surface.heights.Contains(row, col)) {
      if (static_cast<double>(surface.heights.At(row, col)) > p.z) return true;
      if (PastExit(leafCase, p, exit)) return false;
    } else if (BeforeStart(leafCase, p, start) || LeftForGood(surface, row, col, step)) {
      return false;
    }
    if (p.z >= highest && step.z >= 0) return false;  // above everything, and rising
    if (p == before) return false;                    // too small a step to move
  }
  return false;
}

}  // namespace tqtortho
