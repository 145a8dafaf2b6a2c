// SPDX-License-Identifier: Apache-2.0
#include "town/town_camera.h"

#include <cmath>

namespace tqtortho::host {
namespace {

constexpr double kExact = 1e-10;  ///< of a pixel, or of a normalised coordinate
constexpr int kRounds = 200;

}  // namespace

TownCamera::TownCamera(const SurveyCamera& camera, const SurveyPhoto& photo, double townX,
                       double townY)
    : x_(photo.x - townX),
      y_(photo.y - townY),
      z_(photo.z),
      width_(camera.width),
      height_(camera.height),
      model_(camera.model) {
  const double pixelSize = camera.sensorWidth / camera.width;
  focal_ = camera.focalLength / pixelSize;
  offsetX_ = camera.principalX - 0.5 * camera.width;
  offsetY_ = camera.principalY - 0.5 * camera.height;
  k1_ = camera.coefficients[0];
  k2_ = camera.coefficients[1];
  k3_ = camera.coefficients[2];
  p1_ = camera.coefficients[3];
  p2_ = camera.coefficients[4];
  b1_ = camera.coefficients[5];
  b2_ = camera.coefficients[6];
  m_ = MatrixFromAngles({photo.omega, photo.phi, photo.kappa});
}

void TownCamera::Correction(double column, double u, double& dColumn, double& du) const {
  const double x = column - (0.5 * width_ + offsetX_), y = u - (0.5 * height_ + offsetY_);
  const double r2 = x * x + y * y;
  const double radial = r2 * (k1_ + r2 * (k2_ + r2 * k3_));
  dColumn = x * radial + p1_ * (2 * x * x + r2) + 2 * p2_ * x * y + b1_ * x + b2_ * y;
  du = y * radial + p2_ * (2 * y * y + r2) + 2 * p1_ * x * y;
}

void TownCamera::Bend(double x, double y, double& bentX, double& bentY) const {
  const double r2 = x * x + y * y;
  const double radial = r2 * (k1_ + r2 * (k2_ + r2 * k3_));
  bentX = x * radial + p2_ * (2 * x * x + r2) + 2 * p1_ * x * y;
  bentY = y * radial + p1_ * (2 * y * y + r2) + 2 * p2_ * x * y;
}

void TownCamera::Ideal(double column, double u, double& idealColumn, double& idealU) const {
  idealColumn = column;
  idealU = u;
  if (model_ == 1) {  // the correction is defined on the recorded position
    double dColumn = 0, du = 0;
    Correction(column, u, dColumn, du);
    idealColumn += dColumn;
    idealU += du;
  } else if (model_ == 3) {
    // The centre of this model lies at the row 0.5 * height + offsetY, the principal point's
    // mirror image: positions are measured from there, downward.
    const double cx = 0.5 * width_ + offsetX_, cy = 0.5 * height_ + offsetY_;
    const double bentX = (column - cx) / focal_, bentY = (height_ - u - cy) / focal_;
    double x = bentX, y = bentY;
    for (int round = 0; round < kRounds; ++round) {
      double dx = 0, dy = 0;
      Bend(x, y, dx, dy);
      const double step = std::abs(bentX - dx - x) + std::abs(bentY - dy - y);
      x = bentX - dx;
      y = bentY - dy;
      if (step < kExact / focal_) break;
    }
    idealColumn = x * focal_ + cx;
    idealU = height_ - (y * focal_ + cy);
  }
}

void TownCamera::Recorded(double idealColumn, double idealU, double& column, double& u) const {
  column = idealColumn;
  u = idealU;
  if (model_ == 1) {
    for (int round = 0; round < kRounds; ++round) {
      double dColumn = 0, du = 0;
      Correction(column, u, dColumn, du);
      const double step = std::abs(idealColumn - dColumn - column) + std::abs(idealU - du - u);
      column = idealColumn - dColumn;
      u = idealU - du;
      if (step < kExact) break;
    }
  } else if (model_ == 3) {
    const double cx = 0.5 * width_ + offsetX_, cy = 0.5 * height_ + offsetY_;
    const double x = (idealColumn - cx) / focal_, y = (height_ - idealU - cy) / focal_;
    double dx = 0, dy = 0;
    Bend(x, y, dx, dy);
    column = (x + dx) * focal_ + cx;
    u = height_ - ((y + dy) * focal_ + cy);
  }
}

TownRay TownCamera::RayOf(double column, double row) const {
  double idealColumn = 0, idealU = 0;
  Ideal(column, height_ - row, idealColumn, idealU);
  const double x = idealColumn - 0.5 * width_ - offsetX_;
  const double y = idealU - 0.5 * height_ - offsetY_;
  return {x_,
          y_,
          z_,
          m_[0] * x + m_[1] * y - m_[2] * focal_,
          m_[3] * x + m_[4] * y - m_[5] * focal_,
          m_[6] * x + m_[7] * y - m_[8] * focal_};
}

bool TownCamera::Project(double x, double y, double z, double& column, double& row) const {
  const double dx = x - x_, dy = y - y_, dz = z - z_;
  const double depth = -(m_[2] * dx + m_[5] * dy + m_[8] * dz);
  if (!(depth > 0)) return false;
  const double planeX = focal_ * (m_[0] * dx + m_[3] * dy + m_[6] * dz) / depth;
  const double planeY = focal_ * (m_[1] * dx + m_[4] * dy + m_[7] * dz) / depth;
  // Far outside the frame the lens model means nothing and may not be invertible.
  if (!(std::abs(planeX + offsetX_) < 0.7 * width_ &&
        std::abs(planeY + offsetY_) < 0.7 * height_)) {
    return false;
  }
  double u = 0;
  Recorded(planeX + offsetX_ + 0.5 * width_, planeY + offsetY_ + 0.5 * height_, column, u);
  row = height_ - u;
  return true;
}

bool TownCamera::InFrame(double x, double y, double z) const {
  double column = 0, row = 0;
  return Project(x, y, z, column, row) && column >= 0 && row >= 0 && column <= width_ - 1 &&
         row <= height_ - 1;
}

}  // namespace tqtortho::host
