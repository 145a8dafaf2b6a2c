// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "job/mask_maker.h"

namespace tqtortho {

/// Occlusion masks by lines of sight against the surface model (see surface_visibility.h).
///
/// A cell of the mask is 255 where the ortho image has data and the photo does not see the cell's
/// surface point: the line of sight is blocked, the point lies outside the photo's frame, or the
/// surface has no height there. Where the ortho image has no data there is nothing to hide: 0.
class SightMasks : public OcclusionMaskMaker {
 public:
  bool Make(const tqorkit::tqIntOri& camera, const tqorkit::tqExtOri& photo,
            const std::string& dsmPath, const tqorkit::PhotoInfo& ortho,
            const tqimage::GeoCoefficients& place, const std::string& maskName) override;
};

}  // namespace tqtortho
