// SPDX-License-Identifier: Apache-2.0
#include "survey/map_scale.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"
#include "geo/Crs.h"
#include "survey/geodesy.h"
#include "survey/number_text.h"

namespace tqtortho::host {
namespace {

// Half the distance over which lengths are compared, metres: the map's curvature shows at the
// square of it over the earth's radius (6e-11), rounding of coordinates at 1e-9 m over it (2e-11).
constexpr double kStepM = 50;

// Across the seam of a world map the two ends lie a world apart, which is no scale.
constexpr double kTorn = 1000;

/// The zone that is nearly true to scale at a place, as an argument of gdalwarp.
std::string MetricZone(double longitude, double latitude) {
  if (latitude > 84 || latitude < -80) {
    // The polar grids are 0.6 % short at the pole; a map of its own is not.
    return "\"+proj=tmerc +datum=WGS84 +lat_0=" + Fixed(latitude, 1) +
           " +lon_0=" + Fixed(longitude, 1) + "\"";
  }
  const double turned = longitude - 360 * std::floor((longitude + 180) / 360);
  const int zone = std::clamp(FloorToInt((turned + 180) / 6) + 1, 1, 60);
  return "EPSG:" + std::to_string((latitude < 0 ? 32700 : 32600) + zone);
}

}  // namespace

double MapScale::Worst() const { return std::fabs(east - 1) > std::fabs(north - 1) ? east : north; }

std::optional<MapScale> MapScaleAt(const std::string& wkt, double x, double y) {
  const auto info = geo::DescribeCrs(wkt);
  const auto earth = geo::DescribeEarth(wkt);
  if (!info || info->geographic || !info->projected || !earth) return std::nullopt;
  const auto toPlace = geo::CrsTransform::Create(wkt, earth->geographicWkt);
  const auto toMap = geo::CrsTransform::Create(earth->geographicWkt, wkt);
  const auto place = toPlace ? toPlace->Apply({x, y, 0}) : std::nullopt;
  if (!place || !toMap) return std::nullopt;
  MapScale scale;
  scale.longitude = place->x;
  scale.latitude = place->y;
  const Topocentric frame({place->x, place->y, 0}, {earth->semiMajor, earth->inverseFlattening});
  tqfd::Point2_T<double> change[2];  // of the map for a metre east, and north
  for (int axis = 0; axis < 2; ++axis) {
    tqfd::Point2_T<double> ends[2];
    for (int end = 0; end < 2; ++end) {
      Vector3 step{};
      step[static_cast<std::size_t>(axis)] = end == 0 ? -kStepM : kStepM;
      const Geodetic moved = frame.Place(step);
      const auto onMap = toMap->Apply({moved.longitude, moved.latitude, 0});
      if (!onMap) return std::nullopt;
      ends[end] = {onMap->x, onMap->y};
    }
    change[axis] = {(ends[1].x - ends[0].x) / (2 * kStepM), (ends[1].y - ends[0].y) / (2 * kStepM)};
    if (std::hypot(change[axis].x, change[axis].y) > kTorn) return std::nullopt;
  }
  scale.east = info->metresPerUnit * std::hypot(change[0].x, change[0].y);
  scale.north = info->metresPerUnit * std::hypot(change[1].x, change[1].y);
  scale.convergence = std::atan2(-change[1].x, change[1].y);
  return scale;
}

std::optional<Finding> CheckMapScale(const std::string& dsmPath, const std::string& wkt, double x,
                                     double y) {
  const auto scale = MapScaleAt(wkt, x, y);
  if (!scale) return std::nullopt;
  const double worst = scale->Worst(), off = std::fabs(worst - 1);
  if (!(off >= kScaleToTell)) return std::nullopt;
  const auto info = geo::DescribeCrs(wkt);
  const std::string map = dsmPath + ": its map (" + (info ? info->name : "unnamed") + ") ";
  if (off > kScaleToRefuse) {
    return Finding{Finding::Level::kError,
                   map + "has a scale of " + Fixed(worst, 4) + " here: 100 m on the ground are " +
                       Fixed(100 * worst, 2) +
                       " m on it, while heights and cameras are true; reproject the DSM, for "
                       "instance gdalwarp -r bilinear -t_srs " +
                       MetricZone(scale->longitude, scale->latitude) + " " + dsmPath +
                       " dsm_true.tif, and give photo positions in that system (or name theirs "
                       "with --crs)"};
  }
  return Finding{
      Finding::Level::kWarning,
      map + "has a scale of " + Fixed(worst, 5) + " here: 100 m on the ground are " +
          Fixed(100 * worst, 2) +
          " m on it, heights stay true (usual for UTM and the like); the job does not correct for "
          "it: unless poses were adjusted on this map, an ortho is off by up to " +
          Fixed(100 * off, 2) + " % of the distance from the point below the camera"};
}

}  // namespace tqtortho::host
