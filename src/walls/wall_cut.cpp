// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_cut.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include "mosaic/max_flow.h"

namespace tqtortho {
namespace {

/// Neighbours that follow a cell in row order, each pair once.
constexpr std::array<std::pair<int, int>, 4> kFollowing{{{0, 1}, {1, 0}, {1, 1}, {1, -1}}};

float Contrast(const SideEvidence& a, const SideEvidence& b) {
  if (a.photos == 0 || b.photos == 0) return 0;
  float sum = 0;
  for (std::size_t k = 0; k < 3; ++k) {
    const float d = static_cast<float>(a.colour[k]) - static_cast<float>(b.colour[k]);
    sum += d * d;
  }
  return sum / 3;
}

/// What it costs that a wall stands between two cells. Seen at roof height, the roof ends there;
/// seen at ground height, the ground does: where the wall stands, both pictures have an edge.
float WallBetween(const WallCell& a, const WallCell& b) {
  constexpr float kContrast = 15;
  const float upper = std::exp(-Contrast(a.onUpper, b.onUpper) / (kContrast * kContrast));
  const float lower = std::exp(-Contrast(a.onLower, b.onLower) / (kContrast * kContrast));
  return 0.3F + 0.35F * (upper + lower);
}

float Logit(float share) {
  const float p = std::clamp(share, 0.01F, 0.99F);
  return std::log(p / (1 - p));
}

}  // namespace

std::vector<std::uint8_t> CutWalls(GridView<const float> part, const std::vector<WallCell>& cells,
                                   const WallPrior& prior, const WallCutOptions& options) {
  std::vector<std::uint8_t> isUpper(cells.size(), 0);
  if (cells.empty()) return isUpper;
  std::vector<std::int32_t> nodeOf(part.CellCount(), -1);
  const auto index = [&](int row, int col) {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(part.cols) +
           static_cast<std::size_t>(col);
  };
  for (std::size_t k = 0; k < cells.size(); ++k) {
    nodeOf[index(cells[k].row, cells[k].col)] = static_cast<std::int32_t>(k);
  }
  // The sink's side is the upper side.
  MaxFlow flow(static_cast<int>(cells.size()));
  for (std::size_t k = 0; k < cells.size(); ++k) {
    const WallCell& cell = cells[k];
    const int node = static_cast<int>(k);
    const float favour = options.photoWeight * PhotosFavourUpper(cell, options.agreement) +
                         Logit(prior.Upper(cell.offset));
    flow.AddSourceSideCost(node, favour);
    for (const auto& [dr, dc] : kFollowing) {
      const float weight = options.edgeWeight * (dr != 0 && dc != 0 ? 0.354F : 0.5F);
      for (const int sense : {1, -1}) {
        const int row = cell.row + sense * dr;
        const int col = cell.col + sense * dc;
        if (!part.Contains(row, col)) continue;
        const std::int32_t other = nodeOf[index(row, col)];
        if (other < 0) {
          // What lies beyond the zone is level, and known.
          const float height = part.At(row, col);
          if (!std::isfinite(height)) continue;
          const bool upper = IsUpperByHeight(height, cell.upper, cell.lower, cell.level);
          flow.AddSourceSideCost(node, upper ? 2 * weight : -2 * weight);
        } else if (sense == 1) {
          const WallCell& next = cells[static_cast<std::size_t>(other)];
          const float cost = weight * WallBetween(cell, next);
          flow.AddEdge(node, other, cost, cost);
        }
      }
    }
  }
  flow.Solve();
  for (std::size_t k = 0; k < cells.size(); ++k) {
    isUpper[k] = flow.OnSinkSide(static_cast<int>(k)) ? 1 : 0;
  }
  return isUpper;
}

}  // namespace tqtortho
