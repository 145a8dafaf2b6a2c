// SPDX-License-Identifier: Apache-2.0
#include "survey/rotation.h"

#include <cmath>

namespace tqtortho::host {
namespace {

double Determinant(const Matrix3& m) {
  return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
         m[2] * (m[3] * m[7] - m[4] * m[6]);
}

// Inverse transpose: the matrix of cofactors over the determinant.
Matrix3 InverseTransposed(const Matrix3& m, double determinant) {
  const Matrix3 cofactors = {
      m[4] * m[8] - m[5] * m[7], m[5] * m[6] - m[3] * m[8], m[3] * m[7] - m[4] * m[6],
      m[2] * m[7] - m[1] * m[8], m[0] * m[8] - m[2] * m[6], m[1] * m[6] - m[0] * m[7],
      m[1] * m[5] - m[2] * m[4], m[2] * m[3] - m[0] * m[5], m[0] * m[4] - m[1] * m[3]};
  Matrix3 out{};
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = cofactors[i] / determinant;
  return out;
}

}  // namespace

Matrix3 Product(const Matrix3& a, const Matrix3& b) {
  Matrix3 out{};
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c) {
      out[3 * r + c] = a[3 * r] * b[c] + a[3 * r + 1] * b[3 + c] + a[3 * r + 2] * b[6 + c];
    }
  }
  return out;
}

Vector3 Product(const Matrix3& a, const Vector3& v) {
  return {a[0] * v[0] + a[1] * v[1] + a[2] * v[2], a[3] * v[0] + a[4] * v[1] + a[5] * v[2],
          a[6] * v[0] + a[7] * v[1] + a[8] * v[2]};
}

Matrix3 Transposed(const Matrix3& m) {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

Matrix3 RotationFromAxisAngle(const Vector3& v) {
  const double angle = std::hypot(v[0], v[1], v[2]);
  // sin(a)/a and (1 - cos a)/a^2 by their series near zero, where the quotients lose digits.
  const bool small = angle < 1e-4;
  const double half = std::sin(angle / 2);
  const double s = small ? 1 - angle * angle / 6 : std::sin(angle) / angle;
  const double c = small ? 0.5 - angle * angle / 24 : 2 * half * half / (angle * angle);
  const Matrix3 cross = {0, -v[2], v[1], v[2], 0, -v[0], -v[1], v[0], 0};
  const Matrix3 square = Product(cross, cross);
  Matrix3 out = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (std::size_t i = 0; i < out.size(); ++i) out[i] += s * cross[i] + c * square[i];
  return out;
}

Matrix3 NearestRotation(const Matrix3& m) {
  // Newton's iteration for the polar factor, X <- (X + X^-T) / 2: quadratic, and the matrices here
  // are rotations but for a map scale of a few parts in ten thousand.
  constexpr int kSteps = 30;
  Matrix3 x = m;
  for (int step = 0; step < kSteps; ++step) {
    const double determinant = Determinant(x);
    if (!(determinant > 1e-12) || !std::isfinite(determinant)) return m;
    const Matrix3 other = InverseTransposed(x, determinant);
    double change = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      const double next = 0.5 * (x[i] + other[i]);
      change = std::fmax(change, std::fabs(next - x[i]));
      x[i] = next;
    }
    if (change < 1e-15) break;
  }
  return x;
}

Matrix3 MatrixFromAngles(const PhotoAngles& angles) {
  const double sp = std::sin(angles.phi), cp = std::cos(angles.phi);
  const double sw = std::sin(angles.omega), cw = std::cos(angles.omega);
  const double sk = std::sin(angles.kappa), ck = std::cos(angles.kappa);
  return {cp * ck - sp * sw * sk, -cp * sk - sp * sw * ck, -sp * cw, cw * sk, cw * ck, -sw,
          sp * ck + cp * sw * sk, -sp * sk + cp * sw * ck, cp * cw};
}

PhotoAngles AnglesFromMatrix(const Matrix3& m) {
  PhotoAngles angles;
  const double cosOmega = std::hypot(m[2], m[8]);
  angles.omega = std::atan2(-m[5], cosOmega);
  angles.phi = cosOmega > 0 ? std::atan2(-m[2], m[8]) : 0;
  // With phi undone the first row is (cos kappa, -sin kappa, 0) whatever omega is, so kappa makes
  // up for an arbitrary phi and the pair stays exact.
  const double sp = std::sin(angles.phi), cp = std::cos(angles.phi);
  angles.kappa = std::atan2(-(cp * m[1] + sp * m[7]), cp * m[0] + sp * m[6]);
  return angles;
}

Matrix3 CameraToGround(const Matrix3& groundToVisionCamera) {
  const Matrix3& r = groundToVisionCamera;
  return {r[0], -r[3], -r[6], r[1], -r[4], -r[7], r[2], -r[5], -r[8]};
}

}  // namespace tqtortho::host
