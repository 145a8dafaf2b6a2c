// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "stage/mask_maker.h"

namespace tqtortho {

/// Occlusion masks by lines of sight against the surface model (see surface_visibility.h).
///
/// A cell of the mask is 255 where the line of sight to the cell's surface point is blocked. It is
/// 255 as well where the point lies outside the photo's frame, or has no height, although the ortho
/// image has data there: rectification blends heights, so that beside walls and rims an ortho may
/// reach a cell further than the photo. All other cells are 0.
class SightMasks : public OcclusionMaskMaker {
 public:
  bool Make(const tqorkit::tqIntOri& camera, const tqorkit::tqExtOri& photo,
            const std::string& dsmPath, const tqorkit::PhotoInfo& ortho,
            const tqimage::GeoCoefficients& place, const std::string& maskName) override;
};

}  // namespace tqtortho
