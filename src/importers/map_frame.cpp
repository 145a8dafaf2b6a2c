// SPDX-License-Identifier: Apache-2.0
#include "importers/map_frame.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "geo/Crs.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<geo::CrsTransform> MakeTransform(const std::string& from, const std::string& to,
                                                 std::string& error) {
  auto made = geo::CrsTransform::Create(from, to);
  if (!made) {
    error = "no transformation from the poses' coordinate system to the DSM's is known";
    return nullptr;
  }
  return std::make_shared<geo::CrsTransform>(std::move(*made));
}

/// Plane position by the transformation, height as it is.
std::optional<Vector3> Moved(const geo::CrsTransform& transform, double x, double y,
                             double height) {
  const auto p = transform.Apply({x, y, 0.0});
  if (!p || !std::isfinite(p->x) || !std::isfinite(p->y)) return std::nullopt;
  return Vector3{p->x, p->y, height};
}

}  // namespace

std::optional<TopocentricToGrid> MapFrame::FromPlane(const std::string& crs,
                                                     std::string& error) const {
  if (crs.empty()) return [](const Vector3& p) -> std::optional<Vector3> { return p; };
  const auto info = geo::DescribeCrs(crs);
  if (!info) {
    error = "the poses' coordinate system \"" + OneLine(crs.substr(0, 60)) + "\" is not known";
    return std::nullopt;
  }
  if (info->geographic || std::fabs(info->metresPerUnit - 1) > 1e-6) {
    error = "the poses' coordinate system (" + info->name +
            ") is not in metres; export the poses in a metric map projection";
    return std::nullopt;
  }
  const auto transform = MakeTransform(crs, mapWkt_, error);
  if (!transform) return std::nullopt;
  return [transform](const Vector3& p) { return Moved(*transform, p[0], p[1], p[2]); };
}

std::optional<TopocentricToGrid> MapFrame::FromEarthCentred(const std::string& crs,
                                                            bool heightsGiven,
                                                            std::string& error) const {
  const auto earth = geo::DescribeEarth(crs);
  if (!earth) {
    error = "the poses' coordinate system \"" + OneLine(crs.substr(0, 60)) + "\" is not known";
    return std::nullopt;
  }
  if (!earth->verticalName.empty() && !heightsGiven) {
    error = "heights of its coordinate system count from " + earth->verticalName +
            ", those of the cameras from the ellipsoid; give the geoid's height N there as an " +
            "offset of 0,0,-N";
    return std::nullopt;
  }
  const auto transform = MakeTransform(earth->geographicWkt, mapWkt_, error);
  if (!transform) return std::nullopt;
  const Ellipsoid ellipsoid{earth->semiMajor, earth->inverseFlattening};
  return [transform, ellipsoid](const Vector3& p) {
    const Geodetic place = host::FromEarthCentred(p, ellipsoid);
    return Moved(*transform, place.longitude, place.latitude, place.height);
  };
}

std::optional<TopocentricToGrid> MapFrame::FromGeographic(const std::string& crs,
                                                          std::string& error) const {
  const std::string from = crs.empty() ? "EPSG:4326" : crs;
  const auto info = geo::DescribeCrs(from);
  if (!info || !info->geographic) {
    error = "the coordinate system \"" + OneLine(from.substr(0, 60)) +
            "\" is not one of longitude and latitude, as the poses are";
    return std::nullopt;
  }
  const auto transform = MakeTransform(from, mapWkt_, error);
  if (!transform) return std::nullopt;
  return [transform](const Vector3& p) { return Moved(*transform, p[0], p[1], p[2]); };
}

std::optional<TopocentricToGrid> MapFrame::FromTopocentric(const Geodetic& origin,
                                                           std::string& error) const {
  const auto toGrid = FromGeographic({}, error);
  if (!toGrid) return std::nullopt;
  return [toGrid = *toGrid, frame = Topocentric(origin)](const Vector3& local) {
    const Geodetic place = frame.Place(local);
    return toGrid({place.longitude, place.latitude, place.height});
  };
}

std::optional<TopocentricToGrid> Shifted(const Vector3& offset,
                                         const std::optional<TopocentricToGrid>& toGrid) {
  if (!toGrid || offset == Vector3{}) return toGrid;
  return [toGrid = *toGrid, offset](const Vector3& p) {
    return toGrid({p[0] + offset[0], p[1] + offset[1], p[2] + offset[2]});
  };
}

std::optional<ImportMap> OpenImportMap(const ImportRequest& request, std::string& error) {
  if (request.dsmPath.empty()) {
    error = request.path + ": holds no surface model; give the DSM with --dsm";
    return std::nullopt;
  }
  ImportMap map;
  map.dsmPath = fs::absolute(request.dsmPath).lexically_normal().string();
  if (!ReadMetricMap(map.dsmPath, map.mapWkt, error)) return std::nullopt;
  return map;
}

std::string PhotoFolderOf(const ImportRequest& request, const std::string& file) {
  if (!request.photoDir.empty()) return request.photoDir;
  const fs::path folder = fs::absolute(file).lexically_normal().parent_path();
  std::error_code ignored;
  for (const fs::path& base : {folder, folder.parent_path()}) {
    for (const char* name : {"images", "photos"}) {
      if (fs::is_directory(base / name, ignored)) return (base / name).string();
    }
  }
  return folder.string();
}

}  // namespace tqtortho::host
