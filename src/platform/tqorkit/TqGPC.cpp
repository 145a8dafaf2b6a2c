// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/TqGPC.h"

#include <ogr_api.h>
#include <ogr_geometry.h>

#include <cmath>
#include <memory>

#include "internal/gdal_scope.h"

namespace tqorkit {

struct TqPolygon {
  std::unique_ptr<OGRGeometry> shape;
};

namespace {

double AreaOf(const OGRGeometry* shape) {
  return shape == nullptr ? 0 : OGR_G_Area(OGRGeometry::ToHandle(const_cast<OGRGeometry*>(shape)));
}

}  // namespace

TqPolygon* TqGPC::CreatePoly(const double* x, const double* y, int count) {
  if (x == nullptr || y == nullptr || count < 3) return nullptr;
  auto ring = std::make_unique<OGRLinearRing>();
  for (int i = 0; i < count; ++i) {
    if (!std::isfinite(x[i]) || !std::isfinite(y[i])) return nullptr;
    ring->addPoint(x[i], y[i]);
  }
  ring->closeRings();
  auto polygon = std::make_unique<OGRPolygon>();
  polygon->addRingDirectly(ring.release());

  const tqimage::GdalScope scope;
  auto result = std::make_unique<TqPolygon>();
  if (polygon->IsValid()) {
    result->shape = std::move(polygon);
  } else {
    // Rebuilding the area from its lines gives the even-odd rule; a ring without area becomes
    // lines, which count as nothing in every operation.
    result->shape.reset(polygon->MakeValid());
    if (!result->shape) return nullptr;
  }
  return result.release();
}

bool TqGPC::BooleanPoly(const TqPolygon* a, const TqPolygon* b, int operation) {
  const OGRPolygon nothing;
  const OGRGeometry* first = a != nullptr ? a->shape.get() : &nothing;
  const OGRGeometry* second = b != nullptr ? b->shape.get() : &nothing;
  const tqimage::GdalScope scope;
  switch (operation) {
    case kPolyDifference:
      return AreaOf(std::unique_ptr<OGRGeometry>(first->Difference(second)).get()) > 0;
    case kPolyIntersection:
      return AreaOf(std::unique_ptr<OGRGeometry>(first->Intersection(second)).get()) > 0;
    case kPolyXor:
      return AreaOf(std::unique_ptr<OGRGeometry>(first->SymDifference(second)).get()) > 0;
    case kPolyUnion:
      // Its area is positive when one of the operands has one; no overlay is needed to know.
      return AreaOf(first) > 0 || AreaOf(second) > 0;
    default:
      return false;
  }
}

void TqGPC::RemovePoly(TqPolygon* polygon) { delete polygon; }

}  // namespace tqorkit
