// SPDX-License-Identifier: Apache-2.0
#include "camera/photo_camera.h"

namespace tqtortho {

LensDistortion LensOf(const tqorkit::tqIntOri& interior) {
  const auto inPixels = interior.GetCameraCoeffs(true);
  const auto size = interior.GetImageSize();
  const double* c = interior.Get().coefficients;
  LensDistortion lens;
  lens.model = interior.Get().distortionModel;
  lens.height = size.y;
  lens.centreCol = size.x * 0.5 + inPixels.x;
  lens.centreUp = size.y * 0.5 + inPixels.y;
  lens.focalPixels = inPixels.z;
  lens.pixelSize = kLengthScale * interior.Get().pixelSize;
  lens.k1 = c[0];
  lens.k2 = c[1];
  lens.k3 = c[2];
  lens.p1 = c[3];
  lens.p2 = c[4];
  lens.b1 = c[5];
  lens.b2 = c[6];
  return lens;
}

PhotoCamera CameraOf(const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior) {
  double pose[6];  // Xs, Ys, Zs, phi, omega, kappa
  exterior.GetPos(pose);
  const auto lengths = interior.GetCameraCoeffs(false);
  const auto size = interior.GetImageSize();
  PhotoCamera camera;
  camera.centre = {pose[0], pose[1], pose[2]};
  RotationFromAngles(pose[3], pose[4], pose[5], camera.rotation);
  camera.focal = kLengthScale * lengths.z;
  camera.offsetX = kLengthScale * lengths.x;
  camera.offsetY = kLengthScale * lengths.y;
  camera.pixelSize = kLengthScale * interior.Get().pixelSize;
  camera.width = size.x;
  camera.height = size.y;
  camera.lens = LensOf(interior);
  return camera;
}

}  // namespace tqtortho
