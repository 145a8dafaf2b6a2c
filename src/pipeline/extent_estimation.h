// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "camera/camera_model.h"
#include "pipeline/height_pyramid.h"
#include "pipeline/job_lattice.h"
#include "pipeline/visible_ground.h"
#include "tqfd/Geometry.h"
#include "tqorkit/PhotoInfo.h"

namespace tqtortho {

/// Height ranges that the extent estimation keeps of a DSM: a DSM of 20000 x 20000 cells becomes
/// 2000 x 2000 patches of 10 x 10 cells, 43 MB with the levels above them. A footprint is then too
/// large by up to such a patch per side, which rectification crops.
inline constexpr int kMaxSurfacePatches = 4'000'000;

/// What bounds the footprints of a job besides the photos themselves.
struct JobArea {
  tqfd::Rect2_T<double> surface;  ///< first to last cell centre of the DSM
  double dsmCell = 0;             ///< larger side of a DSM cell
  /// Ground polygon to produce; null or empty = everything.
  const std::vector<tqfd::Point2_T<double>>* polygon = nullptr;
};

/// One photo's footprint: the ground it shows, one DSM cell wider (heights between cell centres are
/// blends), clipped to the DSM and to the polygon's box, snapped to the lattice. Empty when nothing
/// is left or the footprint does not meet the polygon. Thread-safe.
[[nodiscard]] tqfd::Rect2_T<double> EstimateFootprint(const HeightPyramid& surface,
                                                      const PhotoCamera& camera,
                                                      const JobArea& area,
                                                      const JobLattice& lattice);

/// The pyramid over the ranges that ReadAndStrechDSM left in a record.
[[nodiscard]] HeightPyramid PyramidOf(const tqorkit::PhotoInfo& ranges);

}  // namespace tqtortho
