// SPDX-License-Identifier: Apache-2.0
#include "geo/Crs.h"

#include <cpl_conv.h>
#include <cpl_string.h>
#include <ogr_spatialref.h>

#include <cmath>

#include "internal/gdal_scope.h"

namespace geo {
namespace {

/// Whether a text leads to a grid or dictionary at some path, which PROJ would open: behind
/// "+nadgrids=", "+geoidgrids=" or "+init=", inside WKT as well, or as a parameter file of WKT 2.
bool NamesFile(const std::string& text) {
  const CPLString lower = CPLString(text).tolower();
  for (const char* mark : {"grids=", "init=", "file=", "parameterfile["}) {
    for (std::size_t at = lower.find(mark); at != std::string::npos;
         at = lower.find(mark, at + 1)) {
      const std::size_t from = at + std::string(mark).size();
      const std::size_t end = *(mark + std::string(mark).size() - 1) == '['
                                  ? lower.find(']', from)
                                  : lower.find_first_of(" \"]", from);
      const std::string named = lower.substr(from, end == std::string::npos ? end : end - from);
      if (named.find_first_of("/\\") != std::string::npos) return true;
    }
  }
  return false;
}

/// The text as a CRS with x east and y north, whatever axis order its authority has. Never reads a
/// file or the network, though GDAL would for texts that look like a path or an address.
bool ParseCrs(const std::string& text, OGRSpatialReference& crs) {
  if (text.empty() || NamesFile(text)) return false;
  if (crs.SetFromUserInput(text.c_str(),
                           OGRSpatialReference::SET_FROM_USER_INPUT_LIMITATIONS_get()) !=
      OGRERR_NONE) {
    return false;
  }
  crs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  return true;
}

std::string AuthorityOf(const OGRSpatialReference& crs) {
  const char* name = crs.GetAuthorityName(nullptr);
  const char* code = crs.GetAuthorityCode(nullptr);
  if (name == nullptr || code == nullptr) return {};
  return std::string(name) + ":" + code;
}

std::string ToWkt(const OGRSpatialReference& crs) {
  // The older dialect is what most programs read from a GeoTIFF; some systems need the newer one.
  for (const char* dialect : {"FORMAT=WKT1_GDAL", "FORMAT=WKT2_2019"}) {
    const char* const options[] = {dialect, nullptr};
    char* text = nullptr;
    const bool made = crs.exportToWkt(&text, options) == OGRERR_NONE && text != nullptr;
    std::string wkt = made ? text : "";
    CPLFree(text);
    if (!wkt.empty()) return wkt;
  }
  return {};
}

}  // namespace

std::optional<CrsInfo> DescribeCrs(const std::string& crs) {
  const tqimage::GdalScope scope;
  OGRSpatialReference parsed;
  if (!ParseCrs(crs, parsed)) return std::nullopt;
  CrsInfo info;
  if (const char* name = parsed.GetName()) info.name = name;
  info.authority = AuthorityOf(parsed);
  info.geographic = parsed.IsGeographic() != 0;
  info.projected = parsed.IsProjected() != 0 || parsed.IsLocal() != 0;
  if (!info.geographic) info.metresPerUnit = parsed.GetLinearUnits();
  if (parsed.IsCompound() != 0) info.metresPerHeightUnit = parsed.GetTargetLinearUnits("VERT_CS");
  return info;
}

std::string CrsToWkt(const std::string& crs) {
  const tqimage::GdalScope scope;
  OGRSpatialReference parsed;
  return ParseCrs(crs, parsed) ? ToWkt(parsed) : std::string();
}

std::optional<EarthModel> DescribeEarth(const std::string& crs) {
  const tqimage::GdalScope scope;
  OGRSpatialReference parsed;
  if (!ParseCrs(crs, parsed) || parsed.IsLocal() != 0) return std::nullopt;
  EarthModel earth;
  if (parsed.IsCompound() != 0) {
    const char* name = parsed.GetAttrValue("VERT_CS");
    earth.verticalName = name != nullptr ? name : "unnamed";
    parsed.StripVertical();
  }
  const std::unique_ptr<OGRSpatialReference> geographic(parsed.CloneGeogCS());
  OGRErr failed = OGRERR_NONE;
  earth.semiMajor = parsed.GetSemiMajor(&failed);
  if (!geographic || failed != OGRERR_NONE) return std::nullopt;
  const double inverse = parsed.GetInvFlattening(&failed);
  earth.inverseFlattening = inverse > 0 ? inverse : HUGE_VAL;
  earth.geographicWkt = ToWkt(*geographic);
  if (failed != OGRERR_NONE || earth.geographicWkt.empty()) return std::nullopt;
  return earth;
}

struct CrsTransform::Impl {
  std::unique_ptr<OGRCoordinateTransformation> transformation;
  bool heights = false;  ///< both systems define heights
};

CrsTransform::CrsTransform() : impl_(std::make_unique<Impl>()) {}
CrsTransform::CrsTransform(CrsTransform&&) noexcept = default;
CrsTransform& CrsTransform::operator=(CrsTransform&&) noexcept = default;
CrsTransform::~CrsTransform() = default;

std::optional<CrsTransform> CrsTransform::Create(const std::string& fromCrs,
                                                 const std::string& toCrs) {
  const tqimage::GdalScope scope;
  OGRSpatialReference from;
  OGRSpatialReference to;
  if (!ParseCrs(fromCrs, from) || !ParseCrs(toCrs, to)) return std::nullopt;
  CrsTransform result;
  result.impl_->transformation.reset(OGRCreateCoordinateTransformation(&from, &to));
  if (!result.impl_->transformation) return std::nullopt;
  result.impl_->heights = from.GetAxesCount() >= 3 && to.GetAxesCount() >= 3;
  return result;
}

std::optional<tqfd::Point3_T<double>> CrsTransform::Apply(const tqfd::Point3_T<double>& p) const {
  if (!impl_ || !std::isfinite(p.x) || !std::isfinite(p.y)) return std::nullopt;
  const tqimage::GdalScope scope;
  tqfd::Point3_T<double> moved = p;
  if (!impl_->heights) moved.z = 0;
  if (!impl_->transformation->Transform(1, &moved.x, &moved.y, &moved.z)) return std::nullopt;
  if (!std::isfinite(moved.x) || !std::isfinite(moved.y)) return std::nullopt;
  if (!impl_->heights) moved.z = p.z;
  return moved;
}

}  // namespace geo
