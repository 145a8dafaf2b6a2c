// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

namespace tqtortho::host {

/// Row-major 3 x 3 matrix.
using Matrix3 = std::array<double, 9>;
using Vector3 = std::array<double, 3>;

/// Attitude of a photo in radians: phi turns about the ground's Y axis, then omega about X, then
/// kappa about Z. The order of the fields is the order of the photo list.
struct PhotoAngles {
  double omega = 0;
  double phi = 0;
  double kappa = 0;
};

[[nodiscard]] Matrix3 Product(const Matrix3& a, const Matrix3& b);
[[nodiscard]] Vector3 Product(const Matrix3& a, const Vector3& v);
[[nodiscard]] Matrix3 Transposed(const Matrix3& m);

/// Rotation by |v| radians about the axis v (Rodrigues). Exact to rounding for any length, zero
/// too.
[[nodiscard]] Matrix3 RotationFromAxisAngle(const Vector3& v);

/// The rotation nearest to `m` (the orthogonal factor of its polar decomposition).
/// @return `m` unchanged when it is singular, mirrored or not finite.
[[nodiscard]] Matrix3 NearestRotation(const Matrix3& m);

/// Camera-to-ground rotation of a photo's angles. Its columns are the camera's axes on the ground:
/// right, up, and backward (away from the scene).
[[nodiscard]] Matrix3 MatrixFromAngles(const PhotoAngles& angles);

/// Angles of a camera-to-ground rotation, omega within +-pi/2, phi and kappa within +-pi.
///
/// Looking along the ground's Y axis (omega = +-90 degrees), phi and kappa turn about one axis and
/// only their combination is defined; there any pair that gives the same matrix is returned, also
/// close by, where each alone is ill defined.
[[nodiscard]] PhotoAngles AnglesFromMatrix(const Matrix3& cameraToGround);

/// Camera-to-ground rotation from a ground-to-camera rotation whose camera axes are right, DOWN and
/// FORWARD, as photogrammetry from computer vision gives it.
[[nodiscard]] Matrix3 CameraToGround(const Matrix3& groundToVisionCamera);

}  // namespace tqtortho::host
