// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "survey/rotation.h"

namespace tqtortho::host {

/// A place on the WGS 84 ellipsoid: degrees, metres above it.
struct Geodetic {
  double longitude = 0;
  double latitude = 0;
  double height = 0;
};

struct Ellipsoid {
  double semiMajor = 6378137.0;  ///< metres; these are WGS 84
  double inverseFlattening = 298.257223563;
};

/// Earth-centred coordinates of a place, metres, and back (to a hundredth of a millimetre from
/// 100 km below the ellipsoid upward). Other ellipsoids than WGS 84 serve surveys on older datums.
[[nodiscard]] Vector3 EarthCentred(const Geodetic& place, const Ellipsoid& ellipsoid = {});
[[nodiscard]] Geodetic FromEarthCentred(const Vector3& point, const Ellipsoid& ellipsoid = {});

/// A local frame with its axes east, north and up at its origin. It is Cartesian: far from the
/// origin "up" is not the local vertical any more (8 cm of drop at one kilometre).
class Topocentric {
 public:
  explicit Topocentric(const Geodetic& origin, const Ellipsoid& ellipsoid = {});
  [[nodiscard]] Geodetic Place(const Vector3& local) const;

 private:
  Ellipsoid ellipsoid_;
  Vector3 origin_;
  Matrix3 axes_;  ///< rows: east, north, up in earth-centred coordinates
};

}  // namespace tqtortho::host
