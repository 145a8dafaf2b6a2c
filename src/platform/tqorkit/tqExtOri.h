// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"

namespace tqorkit {

/// Exterior orientation of one photo.
class TQTORTHO_API tqExtOri {
 public:
  struct EXTORI {
    std::string photoName;
    /// Xs, Ys, Zs (ground), then omega, phi, kappa (radians), as lists and files give them.
    double position[6] = {};
    std::int32_t cameraId = 0;
    tqfd::Rect2_T<double> geoRect;  ///< ground footprint, empty until estimated
    double heightPair[2] = {};      ///< ground sample distances (gsdX, gsdY = -gsdX)
    std::int32_t imageBlockId = 0;  ///< zero-based index of the photo's block
  };

  void Set(const EXTORI& record) { record_ = record; }
  [[nodiscard]] const EXTORI& Get() const { return record_; }

  /// Fills six doubles: Xs, Ys, Zs, PHI, OMEGA, kappa. The angles come in the camera model's order,
  /// that is with the record's fourth and fifth value exchanged.
  void GetPos(double* sixDoubles) const;
  [[nodiscard]] const tqfd::Rect2_T<double>& GetGeoRect() const { return record_.geoRect; }
  tqfd::Rect2_T<double>& GetGeoRect() { return record_.geoRect; }
  void SetGeoRect(const tqfd::Rect2_T<double>& rect) { record_.geoRect = rect; }
  /// Ground sample distances (x, y); y negative for north-up.
  [[nodiscard]] tqfd::Point2_T<double> GetGSD() const {
    return {record_.heightPair[0], record_.heightPair[1]};
  }
  void SetGSD(double gsdX, double gsdY);
  [[nodiscard]] const std::string& GetPhotoName() const { return record_.photoName; }
  [[nodiscard]] int GetCameraId() const { return record_.cameraId; }
  [[nodiscard]] int GetImgBlkId() const { return record_.imageBlockId; }

 private:
  EXTORI record_;
};

}  // namespace tqorkit
