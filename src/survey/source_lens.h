// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// A pinhole camera with Brown distortion, in the terms of OpenSfM: all other sources are brought
/// to these.
///
/// Image coordinates are relative to the raster's centre and divided by its longer side, y DOWN;
/// pixel i has its centre at i + 0.5. The ray of a point is (x, y) = (right, down) / forward. With
/// (x', y') the distorted ray, the position is
///
///     (focalX x' + skew y' + centreX, focalY y' + centreY)
struct SourceLens {
  std::string name;
  std::string projection;  ///< "brown", "perspective" ...; for messages
  int width = 0;           ///< raster the calibration is for
  int height = 0;
  double focalX = 0, focalY = 0;    ///< of the longer side
  double centreX = 0, centreY = 0;  ///< principal point
  double k1 = 0, k2 = 0, k3 = 0, p1 = 0, p2 = 0;
  double k4 = 0;    ///< of r^8
  double skew = 0;  ///< of the longer side, as the focal lengths

  /// The longer side in pixels.
  [[nodiscard]] double Size() const { return width > height ? width : height; }
  /// Position of the principal point, whole numbers being pixel centres, row downward.
  [[nodiscard]] double PrincipalCol() const { return centreX * Size() + 0.5 * width - 0.5; }
  [[nodiscard]] double PrincipalRow() const { return centreY * Size() + 0.5 * height - 0.5; }
  [[nodiscard]] bool HasDistortion() const {
    return k1 != 0 || k2 != 0 || k3 != 0 || k4 != 0 || p1 != 0 || p2 != 0;
  }
};

/// A camera of another tool; `fault` says why it cannot be used (a fisheye, a number missing) and
/// is looked at only when a photo needs the camera.
struct SourceCamera {
  SourceLens lens;
  std::string fault;
};

/// Distorted ray of a straight one.
[[nodiscard]] tqfd::Point2_T<double> Distorted(const SourceLens& lens, tqfd::Point2_T<double> ray);
/// Pixel position (column, row downward; whole numbers are pixel centres) of a ray.
[[nodiscard]] tqfd::Point2_T<double> RecordedFromRay(const SourceLens& lens,
                                                     tqfd::Point2_T<double> ray);
/// Determinant of the distortion's derivative: not above zero where the lens model folds over, that
/// is where two rays share a pixel. (Focal lengths and skew cannot fold.)
[[nodiscard]] double FoldDeterminant(const SourceLens& lens, tqfd::Point2_T<double> ray);

}  // namespace tqtortho::host
