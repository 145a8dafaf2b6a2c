// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera/lens_distortion.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

/// Lengths of the interior orientation enter the formulas multiplied by this. It cancels in every
/// pixel position but takes part in rounding, so it is applied everywhere alike.
inline constexpr double kLengthScale = 0.001;

/// Geometry of one oriented photo, as numbers.
///
/// Frames: ground X, Y, Z; image plane x to the right and y UPWARD from the photo centre, in the
/// unit of `focal`; pixels as (column, u) with u upward from the lower edge, row = height - u.
/// Whole columns and rows are pixel centres.
struct PhotoCamera {
  tqfd::Point3_T<double> centre;                     ///< projection centre on the ground axes
  double rotation[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};  ///< row-major a1 a2 a3, b1 b2 b3, c1 c2 c3
  double focal = 0;                                  ///< scaled focal length
  double offsetX = 0;    ///< scaled principal-point offset, to the right
  double offsetY = 0;    ///< scaled principal-point offset, upward
  double pixelSize = 0;  ///< scaled pixel size
  double width = 0;      ///< frame columns of the camera (the raster of a photo may differ)
  double height = 0;     ///< frame rows of the camera
  LensDistortion lens;
};

/// Fills the rotation matrix of the angles phi (about Y, first), omega (about X) and kappa (about
/// Z), in radians.
void RotationFromAngles(double phi, double omega, double kappa, double rotation[9]);

/// Collinearity: image-plane position of a ground point, without the principal point. Points behind
/// the camera and on its own image-parallel plane give whatever the division gives.
[[nodiscard]] inline tqfd::Point2_T<double> ImageFromGround(const PhotoCamera& camera,
                                                            double groundX, double groundY,
                                                            double groundZ) {
  const double* m = camera.rotation;
  const double dX = groundX - camera.centre.x;
  const double dY = groundY - camera.centre.y;
  const double dZ = groundZ - camera.centre.z;
  const double den = m[2] * dX + m[5] * dY + m[8] * dZ;
  return {-camera.focal * (m[0] * dX + m[3] * dY + m[6] * dZ) / den,
          -camera.focal * (m[1] * dX + m[4] * dY + m[7] * dZ) / den};
}

/// Inverse collinearity: where the ray of an image-plane position meets the plane of height
/// `groundZ`.
[[nodiscard]] tqfd::Point2_T<double> GroundFromImage(const PhotoCamera& camera, double x, double y,
                                                     double groundZ);

/// Pixel position (column, u) of an image-plane position, distortion left out.
[[nodiscard]] inline tqfd::Point2_T<double> PixelFromImage(const PhotoCamera& camera,
                                                           tqfd::Point2_T<double> image) {
  return {(image.x + camera.offsetX) / camera.pixelSize + camera.width * 0.5,
          (image.y + camera.offsetY) / camera.pixelSize + camera.height * 0.5};
}

/// Whether the camera can project at all: finite, non-zero focal length and pixel size, a frame.
[[nodiscard]] bool IsUsable(const PhotoCamera& camera);

}  // namespace tqtortho
