// SPDX-License-Identifier: Apache-2.0
#include "survey/geodesy.h"

#include <cmath>

#include "core/numeric.h"

namespace tqtortho::host {
namespace {

double SquaredEccentricity(const Ellipsoid& ellipsoid) {
  const double flattening = 1 / ellipsoid.inverseFlattening;
  return flattening * (2 - flattening);
}

}  // namespace

Vector3 EarthCentred(const Geodetic& place, const Ellipsoid& ellipsoid) {
  const double eccentricity2 = SquaredEccentricity(ellipsoid);
  const double sinLat = std::sin(place.latitude * kDegree);
  const double cosLat = std::cos(place.latitude * kDegree);
  const double normal = ellipsoid.semiMajor / std::sqrt(1 - eccentricity2 * sinLat * sinLat);
  const double fromAxis = (normal + place.height) * cosLat;
  return {fromAxis * std::cos(place.longitude * kDegree),
          fromAxis * std::sin(place.longitude * kDegree),
          (normal * (1 - eccentricity2) + place.height) * sinLat};
}

Geodetic FromEarthCentred(const Vector3& point, const Ellipsoid& ellipsoid) {
  const double semiMajor = ellipsoid.semiMajor;
  const double eccentricity2 = SquaredEccentricity(ellipsoid);
  const double fromAxis = std::hypot(point[0], point[1]);
  // Fixed point on the latitude: each step gains about two and a half digits (the eccentricity),
  // and atan2 keeps it well defined at the poles.
  double latitude = std::atan2(point[2], fromAxis * (1 - eccentricity2));
  for (int step = 0; step < 10; ++step) {
    const double s = std::sin(latitude);
    const double normal = semiMajor / std::sqrt(1 - eccentricity2 * s * s);
    latitude = std::atan2(point[2] + eccentricity2 * normal * s, fromAxis);
  }
  const double s = std::sin(latitude), c = std::cos(latitude);
  Geodetic place;
  place.longitude = std::atan2(point[1], point[0]) / kDegree;
  place.latitude = latitude / kDegree;
  place.height = fromAxis * c + point[2] * s - semiMajor * std::sqrt(1 - eccentricity2 * s * s);
  return place;
}

Topocentric::Topocentric(const Geodetic& origin, const Ellipsoid& ellipsoid)
    : ellipsoid_(ellipsoid), origin_(EarthCentred(origin, ellipsoid)) {
  const double sinLon = std::sin(origin.longitude * kDegree);
  const double cosLon = std::cos(origin.longitude * kDegree);
  const double sinLat = std::sin(origin.latitude * kDegree);
  const double cosLat = std::cos(origin.latitude * kDegree);
  axes_ = {-sinLon,         cosLon,          0,     -sinLat * cosLon, -sinLat * sinLon, cosLat,
           cosLat * cosLon, cosLat * sinLon, sinLat};
}

Geodetic Topocentric::Place(const Vector3& local) const {
  Vector3 point = Product(Transposed(axes_), local);
  for (std::size_t i = 0; i < 3; ++i) point[i] += origin_[i];
  return FromEarthCentred(point, ellipsoid_);
}

}  // namespace tqtortho::host
