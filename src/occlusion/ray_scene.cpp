// SPDX-License-Identifier: Apache-2.0
#include "occlusion/ray_scene.h"

#include "occlusion/block_maxima.h"

namespace tqtortho {

RayScene::RayScene(const RaySurface& raySurface, const Point3& localCamera)
    : surface(raySurface),
      camera(localCamera),
      tree(raySurface, localCamera),
      highest(static_cast<double>(LargestHeight(raySurface.heights))) {
  for (const QuadNode& node : tree.Nodes()) cases.push_back(CaseOf(node.box, camera));
}

bool IsHiddenByMarch(const RayScene& scene, int row, int col, std::vector<LeafHit>& hits) {
  Ray ray;
  if (!MakeRay(scene.surface.CellPoint(row, col), scene.camera, ray)) return false;
  hits.clear();
  scene.tree.Query(ray, hits);
  // Any order of the leaves gives the same answer.
  for (const LeafHit& hit : hits) {
    if (LeafBlocks(scene.surface, scene.highest, ray, scene.cases[hit.node], hit.entry, hit.exit)) {
      return true;
    }
  }
  return false;
}

}  // namespace tqtortho
