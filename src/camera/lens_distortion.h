// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "tqfd/Geometry.h"

namespace tqtortho {

/// Lens distortion of one camera, in the pixel frame of rectification: (column, u) with u counted
/// UPWARD from the lower edge of the photo.
struct LensDistortion {
  std::int32_t model = 0;  ///< 1 correction in pixels, 3 radial-tangential, all else none
  double height = 0;       ///< photo rows
  double centreCol = 0;  ///< distortion centre: half the width plus the principal point's x offset
  double centreUp = 0;   ///< half the height plus the principal point's (upward) y offset
  double focalPixels = 0;
  double pixelSize =
      0;  ///< scaled length of a pixel; cancels in model 3 but takes part in rounding
  double k1 = 0, k2 = 0, k3 = 0, p1 = 0, p2 = 0, b1 = 0, b2 = 0;
};

/// Passes after which model 1 gives up: pass indices 0 to 10 may still succeed.
inline constexpr int kLensPassLimit = 10;
/// Model 1 has settled when both corrections change by no more than this, in pixels.
inline constexpr double kLensSettled = 0.1;

/// Position in the recorded photo of a position in an ideal, distortion-free one.
///
/// 1. Model 0 and unknown codes return the input bit for bit.
/// 2. Model 1 is defined on the recorded photo (q + correction(q) = p), so it is inverted by
///    iteration. It stops at a change of 0.1 pixel, so a correction of at most 0.1 pixel in both
///    axes leaves the point where it is, and it returns the input when it does not settle.
/// 3. Model 3 maps forward on normalised coordinates with the second axis flipped, so its centre
///    is the mirrored principal point row.
///
/// Arithmetic is double, results are narrowed to float. Never fails, allocates or locks.
[[nodiscard]] tqfd::Point2_T<float> RecordedFromIdeal(const LensDistortion& lens,
                                                      tqfd::Point2_T<float> ideal);

}  // namespace tqtortho
