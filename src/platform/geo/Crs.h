// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tqfd/Geometry.h"

namespace geo {

/// What a caller must know of a coordinate reference system given as WKT, "EPSG:n" or a PROJ text.
struct CrsInfo {
  std::string name;                ///< "WGS 84 / UTM zone 51N"
  std::string authority;           ///< "EPSG:32651" or empty
  bool projected = false;          ///< projected or local: plane coordinates
  bool geographic = false;         ///< degrees
  double metresPerUnit = 1;        ///< of the horizontal axes, when not geographic
  double metresPerHeightUnit = 0;  ///< of a vertical part; 0: it has none
};

/// Nothing when the text is no CRS.
[[nodiscard]] std::optional<CrsInfo> DescribeCrs(const std::string& crs);
/// The text as WKT, or empty.
[[nodiscard]] std::string CrsToWkt(const std::string& crs);

/// The earth that a CRS with a datum stands on.
struct EarthModel {
  std::string geographicWkt;     ///< longitude and latitude of the same datum
  double semiMajor = 0;          ///< metres
  double inverseFlattening = 0;  ///< infinite for a sphere
  std::string verticalName;      ///< of a vertical part; empty: heights are above the ellipsoid
};

/// Nothing when the text is no CRS or is a local one.
[[nodiscard]] std::optional<EarthModel> DescribeEarth(const std::string& crs);

/// Transforms points between two CRS, x always east or longitude (degrees), y north or latitude.
/// Heights pass through a 2-D CRS unchanged. One object serves one thread.
class CrsTransform {
 public:
  [[nodiscard]] static std::optional<CrsTransform> Create(const std::string& fromCrs,
                                                          const std::string& toCrs);
  CrsTransform(CrsTransform&&) noexcept;
  CrsTransform& operator=(CrsTransform&&) noexcept;
  ~CrsTransform();
  /// Nothing where the transformation is not defined.
  [[nodiscard]] std::optional<tqfd::Point3_T<double>> Apply(const tqfd::Point3_T<double>& p) const;

 private:
  CrsTransform();
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace geo
