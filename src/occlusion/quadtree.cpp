// SPDX-License-Identifier: Apache-2.0
#include "occlusion/quadtree.h"

#include <algorithm>
#include <cfloat>
#include <utility>

#include "occlusion/block_maxima.h"

namespace tqtortho {
namespace {

constexpr int kMaxDepth = 4;
constexpr double kNoTop = -1e15;
constexpr double kRayEnd = static_cast<double>(FLT_MAX);
constexpr double kParallel = static_cast<double>(1e-6f);

bool ClipAxis(double origin, double direction, double low, double high, double& tMin,
              double& tMax) {
  if (std::fabs(direction) < kParallel) return !(origin < low || origin > high);
  double t1 = (low - origin) / direction;
  double t2 = (high - origin) / direction;
  if (t1 > t2) std::swap(t1, t2);
  tMin = std::max(tMin, t1);
  tMax = std::min(tMax, t2);
  return !(tMin > tMax);
}

}  // namespace

bool RayMeetsBox(const Ray& ray, const LocalBox& box, double& tMin, double& tMax) {
  tMin = 0;
  tMax = kRayEnd;
  return ClipAxis(ray.origin.x, ray.direction.x, box.minX, box.maxX, tMin, tMax) &&
         ClipAxis(ray.origin.y, ray.direction.y, box.minY, box.maxY, tMin, tMax) &&
         ClipAxis(ray.origin.z, ray.direction.z, box.minZ, box.maxZ, tMin, tMax);
}

bool QuadTree::HasExtent(const LocalBox& box) {
  return box.maxX - box.minX > 0 && box.maxY - box.minY > 0 && box.maxZ - box.minZ > 0;
}

float QuadTree::LeafSize(float cellSizeX) {
  // 0.1 as a double would be smaller than a stored cell size of 0.1.
  return cellSizeX > 0.1f ? 100.0f * cellSizeX : 20.0f;
}

double QuadTree::LeafTop(const RaySurface& surface) {
  const LocalBox& box = surface.box;
  const int cols =
      std::min(TruncToInt((box.maxX - box.minX) / static_cast<double>(surface.cellSizeX)),
               surface.heights.cols);
  const int rows =
      std::min(TruncToInt(-(box.maxY - box.minY) / static_cast<double>(surface.cellSizeY)),
               surface.heights.rows);
  if (rows < 1 || cols < 1) return kNoTop;
  GridView<const float> scanned = surface.heights;
  scanned.rows = rows;
  scanned.cols = cols;
  return std::max(kNoTop, static_cast<double>(LargestHeight(scanned)));
}

QuadTree::QuadTree(const RaySurface& surface, const Point3& camera)
    : camera_(camera),
      leafSize_(static_cast<double>(LeafSize(surface.cellSizeX))),
      leafTop_(LeafTop(surface)) {
  nodes_.reserve(1 + 4 + 16 + 64 + 256);
  Build(surface.box, 0);
}

int QuadTree::Build(const LocalBox& box, int depth) {
  const int index = static_cast<int>(nodes_.size());
  nodes_.push_back({box, {-1, -1, -1, -1}, depth});
  if ((box.maxX - box.minX <= leafSize_ && box.maxY - box.minY <= leafSize_) ||
      depth >= kMaxDepth) {
    nodes_[index].box.maxZ = leafTop_;
    return index;
  }
  double splitX = (box.minX + box.maxX) / 2;
  double splitY = (box.minY + box.maxY) / 2;
  if (depth == 0 && camera_.x > box.minX && camera_.x < box.maxX && camera_.y > box.minY &&
      camera_.y < box.maxY) {
    splitX = camera_.x;
    splitY = camera_.y;
  }
  const double z0 = box.minZ;
  const double z1 = box.maxZ;
  const LocalBox quarters[4] = {{box.minX, box.minY, z0, splitX, splitY, z1},
                                {box.minX, splitY, z0, splitX, box.maxY, z1},
                                {splitX, splitY, z0, box.maxX, box.maxY, z1},
                                {splitX, box.minY, z0, box.maxX, splitY, z1}};
  for (int i = 0; i < 4; ++i) {
    const int child = Build(quarters[i], depth + 1);
    nodes_[index].children[i] = child;
  }
  return index;
}

void QuadTree::Query(const Ray& ray, std::vector<LeafHit>& hits) const {
  // Depth first, children in order; three siblings per level wait at most.
  int waiting[4 * (kMaxDepth + 1)];
  int count = 0;
  waiting[count++] = 0;
  while (count > 0) {
    const int index = waiting[--count];
    const QuadNode& node = nodes_[index];
    double tMin = 0;
    double tMax = 0;
    if (!RayMeetsBox(ray, node.box, tMin, tMax)) continue;
    if (!node.IsLeaf()) {
      for (int i = 3; i >= 0; --i) waiting[count++] = node.children[i];
      continue;
    }
    const Point3& o = ray.origin;
    const Point3& d = ray.direction;
    hits.push_back({index,
                    tMin,
                    {o.x + tMin * d.x, o.y + tMin * d.y, o.z + tMin * d.z},
                    {o.x + tMax * d.x, o.y + tMax * d.y, o.z + tMax * d.z}});
  }
}

}  // namespace tqtortho
