// SPDX-License-Identifier: Apache-2.0
#include "pipeline/extent_estimation.h"

#include <algorithm>
#include <memory>

#include "core/rect_ops.h"
#include "tqorkit/TqGPC.h"

namespace tqtortho {

namespace {

using Rect = tqfd::Rect2_T<double>;

struct RemovePolygon {
  void operator()(tqorkit::TqPolygon* polygon) const { tqorkit::TqGPC::RemovePoly(polygon); }
};
using PolygonPtr = std::unique_ptr<tqorkit::TqPolygon, RemovePolygon>;

bool MeetsPolygon(const Rect& rect, const std::vector<tqfd::Point2_T<double>>& polygon) {
  std::vector<double> x;
  std::vector<double> y;
  for (const auto& point : polygon) {
    x.push_back(point.x);
    y.push_back(point.y);
  }
  const double rectX[] = {rect.minX, rect.minX, rect.maxX, rect.maxX};
  const double rectY[] = {rect.minY, rect.maxY, rect.maxY, rect.minY};
  const PolygonPtr area(tqorkit::TqGPC::CreatePoly(x.data(), y.data(), static_cast<int>(x.size())));
  const PolygonPtr photo(tqorkit::TqGPC::CreatePoly(rectX, rectY, 4));
  return tqorkit::TqGPC::BooleanPoly(photo.get(), area.get(), tqorkit::kPolyIntersection);
}

}  // namespace

Rect EstimateFootprint(const HeightPyramid& surface, const PhotoCamera& camera, const JobArea& area,
                       const JobLattice& lattice) {
  Rect ground = VisibleGround(surface, camera);
  if (!HasArea(ground)) return {};
  ground.minX -= area.dsmCell;
  ground.minY -= area.dsmCell;
  ground.maxX += area.dsmCell;
  ground.maxY += area.dsmCell;
  ground = Intersection(ground, area.surface);
  const bool hasPolygon = area.polygon != nullptr && !area.polygon->empty();
  if (hasPolygon) {
    Rect box;
    for (const auto& point : *area.polygon) {
      FoldInto(box, Rect{point.x, point.y, point.x, point.y});
    }
    ground = Intersection(ground, box);
  }
  if (!HasArea(ground)) return {};
  if (hasPolygon && !MeetsPolygon(ground, *area.polygon)) return {};
  return lattice.SnapOutward(ground);
}

HeightPyramid PyramidOf(const tqorkit::PhotoInfo& ranges) {
  HeightPyramid::Level finest;
  finest.rows = ranges.height;
  finest.cols = ranges.width;
  const auto* first = reinterpret_cast<const HeightRange*>(ranges.data.data());
  finest.ranges.assign(first, first + ranges.data.size() / sizeof(HeightRange));
  return HeightPyramid::Build(std::move(finest), ranges.geoRect[0], ranges.geoRect[3], ranges.resX,
                              -ranges.resY);
}

}  // namespace tqtortho
