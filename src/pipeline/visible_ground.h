// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera/camera_model.h"
#include "pipeline/height_pyramid.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

/// The box of all surface patches that may fall into the frame.
///
/// Nothing that the photo shows lies outside the box: a patch is left out only when the image of
/// its whole block (ground square times height range) misses the frame, ideal or recorded, or when
/// it lies behind the camera. The box may be too large by about one finest patch and what its
/// relief adds. Holds for oblique photos too, the projection centre plays no part. Of a patch that
/// the camera's own plane cuts only the corners are tested.
///
/// Patches already inside the box found so far are passed over, so the cost grows with the border
/// of the answer, not with its area. Thread-safe.
///
/// @return the empty rectangle when the photo shows no surface, or for a camera that cannot project
[[nodiscard]] tqfd::Rect2_T<double> VisibleGround(const HeightPyramid& surface,
                                                  const PhotoCamera& camera);

}  // namespace tqtortho
