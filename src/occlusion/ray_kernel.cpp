// SPDX-License-Identifier: Apache-2.0
#include "occlusion/ray_kernel.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "occlusion/filtered_march.h"
#include "occlusion/ray_scene.h"
#include "occlusion/tile_tracer.h"

namespace tqtortho {
namespace {

/// Surfaces with fewer cells are not worth waking other threads for.
constexpr std::size_t kCellsWorthThreads = 20000;

/// Threads are taken only when nobody else's loop has them.
bool MayUseThreads(const RaySurface& surface) {
  return omp_in_parallel() == 0 && surface.heights.CellCount() >= kCellsWorthThreads;
}

bool ScalarIsForced() {
  const char* kernel = std::getenv("TQTORTHO_KERNEL");
  return kernel != nullptr && std::string_view(kernel) == "scalar";
}

/// No exception may leave a parallel loop: the rest of it is skipped, and the end gives up.
bool IsRaised(const StopFlag* stop) { return stop != nullptr && stop->Raised(); }

/// Cell by cell; `isHidden(row, col, scratch)` decides.
template <class Scratch, class IsHidden>
void MarkByCell(const RaySurface& surface, GridView<const std::uint8_t> examine,
                GridView<std::uint8_t> hidden, const StopFlag* stop, const IsHidden& isHidden) {
#pragma omp parallel if (MayUseThreads(surface))
  {
    Scratch scratch;
#pragma omp for schedule(dynamic, 8)
    for (int r = 0; r < surface.heights.rows; ++r) {
      if (IsRaised(stop)) continue;
      for (int c = 0; c < surface.heights.cols; ++c) {
        if (examine.cells != nullptr && examine.At(r, c) == 0) continue;
        if (!IsValidHeight(surface.heights.At(r, c), surface.noData)) continue;
        if (isHidden(r, c, scratch)) hidden.At(r, c) = 255;
      }
    }
  }
}

}  // namespace

void MarkHiddenCells(const RaySurface& surface, const Point3& camera,
                     GridView<const std::uint8_t> examine, GridView<std::uint8_t> hidden,
                     const StopFlag* stop) {
  for (int r = 0; r < surface.heights.rows; ++r) {
    std::fill_n(hidden.Row(r), surface.heights.cols, std::uint8_t{0});
  }
  if (surface.heights.Empty() || !QuadTree::HasExtent(surface.box)) return;
  const RayScene scene(surface, camera);
  if (ScalarIsForced()) {
    MarkByCell<std::vector<LeafHit>>(surface, examine, hidden, stop,
                                     [&](int r, int c, std::vector<LeafHit>& hits) {
                                       return IsHiddenByMarch(scene, r, c, hits);
                                     });
    GiveUpIfRaised(stop);
    return;
  }
  const FilteredMarch march(scene);
  const TileTracer tracer(scene, march);
  const std::vector<TileTracer::Tile> tiles = tracer.Tiles();
#pragma omp parallel if (MayUseThreads(surface))
  {
    TileTracer::Scratch scratch;
#pragma omp for schedule(dynamic, 64)
    for (std::size_t i = 0; i < tiles.size(); ++i) {
      if (IsRaised(stop)) continue;
      tracer.Trace(tiles[i], examine, hidden, scratch);
    }
  }
  GiveUpIfRaised(stop);
}

}  // namespace tqtortho
