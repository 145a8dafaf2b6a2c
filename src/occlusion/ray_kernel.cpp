// SPDX-License-Identifier: Apache-2.0
#include "occlusion/ray_kernel.h"

#include <omp.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "occlusion/leaf_march.h"
#include "occlusion/quadtree.h"

namespace tqtortho {
namespace {

double HighestOf(const RaySurface& surface) {
  float highest = -std::numeric_limits<float>::infinity();
  for (int r = 0; r < surface.heights.rows; ++r) {
    const float* row = surface.heights.Row(r);
    for (int c = 0; c < surface.heights.cols; ++c) highest = std::max(highest, row[c]);
  }
  return static_cast<double>(highest);
}

/// Rays of one surface and one camera, traced leaf by leaf.
class PlainTracer {
 public:
  PlainTracer(const RaySurface& surface, const Point3& camera)
      : surface_(surface), camera_(camera), tree_(surface, camera), highest_(HighestOf(surface)) {
    for (const QuadNode& node : tree_.Nodes()) cases_.push_back(CaseOf(node.box, camera));
  }

  [[nodiscard]] bool IsHidden(int row, int col, std::vector<LeafHit>& hits) const {
    Ray ray;
    if (!MakeRay(surface_.CellPoint(row, col), camera_, ray)) return false;
    hits.clear();
    tree_.Query(ray, hits);
    // Any order of the leaves gives the same answer.
    for (const LeafHit& hit : hits) {
      if (LeafBlocks(surface_, highest_, ray, cases_[hit.node], hit.entry, hit.exit)) return true;
    }
    return false;
  }

 private:
  const RaySurface& surface_;
  Point3 camera_;
  QuadTree tree_;
  double highest_;
  std::vector<LeafCase> cases_;
};

}  // namespace

void MarkHiddenCells(const RaySurface& surface, const Point3& camera,
                     GridView<const std::uint8_t> examine, GridView<std::uint8_t> hidden) {
  const int rows = surface.heights.rows;
  const int cols = surface.heights.cols;
  for (int r = 0; r < rows; ++r) std::fill_n(hidden.Row(r), cols, std::uint8_t{0});
  if (surface.heights.Empty() || !QuadTree::HasExtent(surface.box)) return;
  const PlainTracer tracer(surface, camera);
#pragma omp parallel if (!omp_in_parallel())
  {
    std::vector<LeafHit> hits;
#pragma omp for schedule(dynamic, 8)
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < cols; ++c) {
        if (examine.cells != nullptr && examine.At(r, c) == 0) continue;
        if (!IsValidHeight(surface.heights.At(r, c), surface.noData)) continue;
        if (tracer.IsHidden(r, c, hits)) hidden.At(r, c) = 255;
      }
    }
  }
}

}  // namespace tqtortho
