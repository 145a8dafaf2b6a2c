// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "occlusion/block_maxima.h"
#include "occlusion/filtered_march.h"
#include "occlusion/ray_lanes.h"
#include "occlusion/ray_scene.h"

namespace tqtortho {

/// Traces tiles of neighbouring cells together, eight rays at a time, with the bytes of the march.
///
/// For the usual photo, taken from above everything. The tiles do not straddle the camera's row and
/// column, so all rays of a tile run in one quadrant. In three of them every leaf's march starts at
/// the cell and is the beginning of the longest one; in the fourth (camera to the upper right) it
/// starts at the leaf's entry. A camera outside the surface leaves at most one column or row of
/// leaves with a case against the rays; their marches end after one step. The rays of a tile share
/// a narrowing strip towards the camera; only blocks of the strip that rise above the strip's
/// lowest ray are looked at, ray by ray and step by step, in closed form. What rounding could
/// change goes to FilteredMarch, one ray at a time.
class TileTracer {
 public:
  struct Scratch {
    FilteredMarch::Scratch ray;
    std::vector<Blocker> blockers;      ///< of the tile
    std::vector<Blocker> partBlockers;  ///< of one part of it
    std::vector<std::uint8_t> meets;
  };
  /// Cells [row0, row1) x [col0, col1).
  struct Tile {
    int row0, row1, col0, col1;
  };

  /// `scene` and `march` must outlive this object.
  TileTracer(const RayScene& scene, const FilteredMarch& march);

  /// Whether rays are traced in lanes; otherwise all go to FilteredMarch.
  [[nodiscard]] bool IsUsable() const { return usable_; }
  /// Tiles of the whole surface; none straddles the camera's row or column.
  [[nodiscard]] std::vector<Tile> Tiles() const;

  /// Decides the tile's cells; `examine` may be empty. Writes 255 into `hidden`, nothing else.
  void Trace(const Tile& tile, GridView<const std::uint8_t> examine, GridView<std::uint8_t> hidden,
             Scratch& scratch) const;

 private:
  [[nodiscard]] bool FindBlockers(const Tile& tile, double lowest, const LaneScene& lanes,
                                  std::vector<Blocker>& blockers) const;
  void AddBlocker(int blockRow, int blockCol, const LaneScene& lanes,
                  std::vector<Blocker>& blockers) const;
  void TracePart(const Tile& part, const unsigned* wanted, const LaneScene& lanes,
                 GridView<std::uint8_t> hidden, Scratch& scratch) const;
  void TraceRays(const Tile& tile, GridView<const std::uint8_t> examine,
                 GridView<std::uint8_t> hidden, Scratch& scratch) const;
  [[nodiscard]] bool ReadLeafBorders();
  [[nodiscard]] LaneScene LanesOf(const Tile& tile) const;

  const RayScene& scene_;
  const FilteredMarch& march_;
  bool usable_ = false;
  double cameraCol_ = 0;
  double cameraRow_ = 0;
  double leafTop_ = 0;
  const LaneKernel& kernel_;
  BlockMaxima blocks_;
  std::vector<double> leafCols_;  ///< borders of the leaves, those left of the camera when inside
  std::vector<double> leafRows_;
  int againstCol_ = -1;  ///< leaves that hold the camera's x (y) without being split at it
  int againstRow_ = -1;
};

}  // namespace tqtortho
