// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqIntOri.h"

namespace tqorkit {

tqfd::Point3_T<double> tqIntOri::GetCameraCoeffs(bool inPixels) const {
  // A camera without a pixel size has no values in pixels: they come out infinite or NaN, and
  // whoever uses the camera refuses what is not finite.
  const double unit = inPixels ? record_.pixelSize : 1.0;
  return {record_.offsetX / unit, record_.offsetY / unit, record_.focalLength / unit};
}

}  // namespace tqorkit
