// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "occlusion/block_maxima.h"
#include "occlusion/ray_scene.h"

namespace tqtortho {

/// How far a closed form p = start + k * step may lie from the accumulated position of the march.
///
/// A march adds at most a million steps, each sum off by half a unit in the last place (1.1e-16) of
/// a number no larger than the grid's extent; the closed form and the conversion to columns and
/// rows add a few more.
struct MarchMargins {
  static constexpr double kRelative = 1e6 * 1.5e-16;

  explicit MarchMargins(const RaySurface& surface);

  double x, y;        ///< of local positions
  double cols, rows;  ///< of the same in cells
  [[nodiscard]] static double Height(double start, double now) {
    return kRelative * (std::fabs(start) + std::fabs(now));
  }
};

/// Slack of a count of steps that was computed from a distance.
inline constexpr double kCountSlack = 1e-6;

/// Passage of a ray over a block of cells that may be high enough to block it, in steps from the
/// ray's origin.
struct Passage {
  double first = 0;
  double last = 0;
};

/// Decides rays with the bytes of the march and a fraction of its work, whatever the camera's
/// place.
///
/// Every position that any leaf's march tests lies on the ray. Blocks of cells that the ray clears
/// by the margin of rounding are skipped, by maxima over blocks; most rays end there. In the
/// passages that are left, only the steps of the leaves' marches are looked at, in closed form.
/// Whatever is closer than the margin to a cell's border, a height or an exit is undecided, and its
/// leaf is marched through in earnest.
class FilteredMarch {
 public:
  struct Scratch {
    std::vector<LeafHit> hits;
    std::vector<Passage> passages;
  };

  /// `scene` must outlive this object.
  explicit FilteredMarch(const RayScene& scene);

  [[nodiscard]] bool IsHidden(int row, int col, Scratch& scratch) const;

  [[nodiscard]] const MarchMargins& Margins() const { return margins_; }

 private:
  const RayScene& scene_;
  MarchMargins margins_;
  BlockMaxima blocks_;
  bool usable_;
};

}  // namespace tqtortho
