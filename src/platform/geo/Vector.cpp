// SPDX-License-Identifier: Apache-2.0
#include "geo/Vector.h"

#include <ogrsf_frmts.h>

#include <memory>
#include <optional>

#include "geo/Crs.h"
#include "internal/open_policy.h"

namespace geo {
namespace {

using GeometryPtr = std::unique_ptr<OGRGeometry>;

/// The first polygon inside a geometry of any kind, curves made straight; null when it has none.
std::unique_ptr<OGRPolygon> FirstPolygon(const OGRGeometry& geometry) {
  const GeometryPtr linear(geometry.getLinearGeometry());
  if (!linear || linear->IsEmpty()) return nullptr;
  const OGRwkbGeometryType type = wkbFlatten(linear->getGeometryType());
  if (type == wkbPolygon) return std::unique_ptr<OGRPolygon>(linear->toPolygon()->clone());
  if (!OGR_GT_IsSubClassOf(type, wkbGeometryCollection)) return nullptr;
  for (const OGRGeometry* part : *linear->toGeometryCollection()) {
    if (auto found = FirstPolygon(*part)) return found;
  }
  return nullptr;
}

/// The first polygon of the file and the CRS of its layer (WKT or empty).
std::unique_ptr<OGRPolygon> FirstPolygon(GDALDataset& file, std::string& crs) {
  for (OGRLayer* layer : file.GetLayers()) {
    layer->ResetReading();
    while (OGRFeature* next = layer->GetNextFeature()) {
      const std::unique_ptr<OGRFeature> feature(next);
      const OGRGeometry* geometry = feature->GetGeometryRef();
      auto found = geometry == nullptr ? nullptr : FirstPolygon(*geometry);
      if (!found) continue;
      if (const OGRSpatialReference* system = layer->GetSpatialRef()) {
        char* wkt = nullptr;
        const char* const options[] = {"FORMAT=WKT2_2019", nullptr};
        if (system->exportToWkt(&wkt, options) == OGRERR_NONE && wkt != nullptr) crs = wkt;
        CPLFree(wkt);
      }
      return found;
    }
  }
  return nullptr;
}

}  // namespace

bool ReadPolygon(const std::string& path, const std::string& targetCrs,
                 std::vector<tqfd::Point2_T<double>>& ring, std::string& error) {
  ring.clear();
  error.clear();
  const tqimage::GdalScope scope;
  const tqimage::DatasetPtr file = tqimage::OpenVector(path, error);
  if (!file) return false;
  const tqimage::NoFetching offline;
  std::string fileCrs;
  const std::unique_ptr<OGRPolygon> polygon = FirstPolygon(*file, fileCrs);
  const OGRLinearRing* outer = polygon ? polygon->getExteriorRing() : nullptr;
  if (outer == nullptr || outer->getNumPoints() < 4) {
    error = path + ": no polygon in it";
    return false;
  }

  std::optional<CrsTransform> transform;
  if (!targetCrs.empty() && !fileCrs.empty()) {
    transform = CrsTransform::Create(fileCrs, targetCrs);
    if (!transform) {
      error = path + ": its coordinates cannot be transformed to the target system";
      return false;
    }
  }
  const int distinct = outer->getNumPoints() - 1;  // the last point repeats the first
  for (int i = 0; i < distinct; ++i) {
    tqfd::Point3_T<double> point{outer->getX(i), outer->getY(i), 0};
    if (transform) {
      const auto moved = transform->Apply(point);
      if (!moved) {
        error = path + ": a vertex (" + std::to_string(point.x) + ", " + std::to_string(point.y) +
                ") lies outside the file's own coordinate system";
        ring.clear();
        return false;
      }
      point = *moved;
    }
    ring.push_back({point.x, point.y});
  }
  return true;
}

}  // namespace geo
