// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqtortho {

/// Makes the occlusion masks of photos in place of the per-photo driver, which else chooses between
/// the z-buffer and ray tracing by the border mask. Called from the worker threads, several at
/// once.
class OcclusionMaskMaker {
 public:
  virtual ~OcclusionMaskMaker() = default;

  /// Writes the mask of one photo: a byte raster on the grid of its ortho image, 255 where the
  /// photo cannot see the ground cell, 0 elsewhere.
  ///
  /// @param photo  its ground rectangle runs from first to last cell CENTRE of the ortho image, its
  ///               GSD is the ortho's cell size
  /// @param ortho  the ortho image with its pixels
  /// @param place  its georeference, for the mask
  /// @return false when the mask could not be made; the photo then counts as failed
  virtual bool Make(const tqorkit::tqIntOri& camera, const tqorkit::tqExtOri& photo,
                    const std::string& dsmPath, const tqorkit::PhotoInfo& ortho,
                    const tqimage::GeoCoefficients& place, const std::string& maskName) = 0;
};

/// Installs a maker for the whole process, null removes it; it must outlive the job. Not to be
/// called while a job runs.
void SetOcclusionMaskMaker(OcclusionMaskMaker* maker);
[[nodiscard]] OcclusionMaskMaker* InstalledOcclusionMaskMaker();

}  // namespace tqtortho
