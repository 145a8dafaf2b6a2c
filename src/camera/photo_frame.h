// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera/camera_model.h"

namespace tqtortho {

/// Whether a photo's frame holds ground points: the tests that rectification applies, so that
/// "outside" is where an ortho image of the photo has no pixel.
class PhotoFrame {
 public:
  enum class Place { kInside, kOutside, kAcross };

  explicit PhotoFrame(const PhotoCamera& camera);

  [[nodiscard]] bool Contains(double x, double y, double z) const;

  /// Where all points of an upright box lie; kAcross where that is not sure.
  [[nodiscard]] Place PlaceOf(double minX, double maxX, double minY, double maxY, double minZ,
                              double maxZ) const;

 private:
  struct Position {
    double col = 0;
    double up = 0;  ///< row counted from the bottom
  };
  [[nodiscard]] bool Project(double x, double y, double z, Position& ideal) const;
  [[nodiscard]] bool Holds(double col, double up) const {
    return col >= 0 && col < camera_.width && up >= 0 && up < camera_.height;
  }

  const PhotoCamera& camera_;
  double focalPixels_;
  double principalCol_;
  double principalUp_;
};

}  // namespace tqtortho
