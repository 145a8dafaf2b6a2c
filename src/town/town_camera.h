// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "survey/rotation.h"
#include "survey/survey.h"
#include "town/town_solids.h"

namespace tqtortho::host {

/// An oriented photo of the sample town: ground points to recorded pixels and back, both exact (to
/// 1e-9 pixel), where the product's own lens correction may stop at a tenth of a pixel. So what the
/// product loses there shows in its score.
///
/// Column and row count pixels from the upper left, whole numbers are pixel centres, rows go down.
/// Ground coordinates are the town frame.
class TownCamera {
 public:
  TownCamera(const SurveyCamera& camera, const SurveyPhoto& photo, double townX, double townY);

  [[nodiscard]] TownRay RayOf(double column, double row) const;
  /// False for points behind the camera or far outside the frame. The recorded position may lie
  /// outside the raster.
  [[nodiscard]] bool Project(double x, double y, double z, double& column, double& row) const;
  /// The same, and whether the position lies between the centres of the outermost pixels.
  [[nodiscard]] bool InFrame(double x, double y, double z) const;

  [[nodiscard]] double X() const { return x_; }
  [[nodiscard]] double Y() const { return y_; }
  [[nodiscard]] double Z() const { return z_; }

 private:
  // Positions in the frame here are (column, u), u = height - row, upward.
  void Correction(double column, double u, double& dColumn, double& du) const;
  void Recorded(double idealColumn, double idealU, double& column, double& u) const;
  void Ideal(double column, double u, double& idealColumn, double& idealU) const;
  void Bend(double x, double y, double& bentX, double& bentY) const;

  double x_ = 0, y_ = 0, z_ = 0;
  Matrix3 m_ = {};  ///< camera to ground
  double width_ = 0, height_ = 0;
  double focal_ = 0;                  ///< pixels
  double offsetX_ = 0, offsetY_ = 0;  ///< principal point from the centre, pixels, y upward
  int model_ = 0;
  double k1_ = 0, k2_ = 0, k3_ = 0, p1_ = 0, p2_ = 0, b1_ = 0, b2_ = 0;
};

}  // namespace tqtortho::host
