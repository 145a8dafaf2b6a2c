// SPDX-License-Identifier: Apache-2.0
#include "camera/camera_model.h"

#include <cmath>

namespace tqtortho {

void RotationFromAngles(double phi, double omega, double kappa, double rotation[9]) {
  const double sp = std::sin(phi);
  const double cp = std::cos(phi);
  const double sw = std::sin(omega);
  const double cw = std::cos(omega);
  const double sk = std::sin(kappa);
  const double ck = std::cos(kappa);
  rotation[0] = cp * ck - sp * sw * sk;
  rotation[1] = -cp * sk - sp * sw * ck;
  rotation[2] = -sp * cw;
  rotation[3] = cw * sk;
  rotation[4] = cw * ck;
  rotation[5] = -sw;
  rotation[6] = sp * ck + cp * sw * sk;
  rotation[7] = -sp * sk + cp * sw * ck;
  rotation[8] = cp * cw;
}

tqfd::Point2_T<double> GroundFromImage(const PhotoCamera& camera, double x, double y,
                                       double groundZ) {
  const double* m = camera.rotation;
  const double f = camera.focal;
  const double den = m[6] * x + m[7] * y - m[8] * f;
  const double rise = groundZ - camera.centre.z;
  return {camera.centre.x + rise * (m[0] * x + m[1] * y - m[2] * f) / den,
          camera.centre.y + rise * (m[3] * x + m[4] * y - m[5] * f) / den};
}

bool IsUsable(const PhotoCamera& camera) {
  return std::isfinite(camera.focal) && camera.focal != 0 && std::isfinite(camera.pixelSize) &&
         camera.pixelSize != 0 && camera.width > 0 && camera.height > 0 &&
         std::isfinite(camera.width) && std::isfinite(camera.height);
}

}  // namespace tqtortho
