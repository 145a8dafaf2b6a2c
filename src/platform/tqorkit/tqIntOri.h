// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"

namespace tqorkit {

/// Interior orientation of one camera.
class TQTORTHO_API tqIntOri {
 public:
  /// One camera record. Lengths (focal length, pixel size, offsets) share one unit.
  struct INTORI {
    std::int32_t cameraId = 0;
    std::string name;
    double imageWidth = 0;   ///< pixels
    double imageHeight = 0;  ///< pixels
    double focalLength = 0;
    double pixelSize = 0;
    double offsetX = 0;                ///< principal point minus image centre, x to the right
    double offsetY = 0;                ///< principal point minus image centre, y UPWARD
    std::int32_t distortionModel = 0;  ///< 0 none, 1 correction in pixels, 3 radial-tangential
    double coefficients[8] = {};       ///< k1 k2 k3 p1 p2 b1 b2, the eighth unused
  };

  void Set(const INTORI& record) { record_ = record; }
  [[nodiscard]] const INTORI& Get() const { return record_; }

  /// (offsetX, offsetY, focal length): in the record's length unit, or in pixels when `inPixels`.
  [[nodiscard]] tqfd::Point3_T<double> GetCameraCoeffs(bool inPixels) const;
  /// Image width and height in pixels.
  [[nodiscard]] tqfd::Point2_T<double> GetImageSize() const {
    return {record_.imageWidth, record_.imageHeight};
  }

 private:
  INTORI record_;
};

}  // namespace tqorkit
