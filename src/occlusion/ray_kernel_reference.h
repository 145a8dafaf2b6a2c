// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/numeric.h"
#include "occlusion/ray_surface.h"

namespace tqtortho::reference {

/// The plain twin of the ray kernel, for tests and benchmarks: every ray visits its leaves, sorts
/// them, and marches through them one step at a time, without any short cut. It shares no code with
/// the kernel except the truncation of a double and the frame's structs.

struct Node {
  double minX, minY, minZ, maxX, maxY, maxZ;
  Point3 entry, exit;
  std::unique_ptr<Node> child[4];
  int depth = 0;
  float key = 0;
};

class Tracer {
 public:
  Tracer(const RaySurface& surface, const Point3& camera)
      : heights_(surface.heights),
        noData_(surface.noData),
        sizeX_(surface.cellSizeX),
        sizeY_(surface.cellSizeY),
        camera_(camera) {
    const LocalBox& b = surface.box;
    if (!(b.maxX - b.minX > 0 && b.maxY - b.minY > 0 && b.maxZ - b.minZ > 0)) return;
    leafSize_ = sizeX_ > 0.1f ? 100.0f * sizeX_ : 20.0f;
    const int cols = TruncToInt((b.maxX - b.minX) / static_cast<double>(sizeX_));
    const int rows = TruncToInt(-(b.maxY - b.minY) / static_cast<double>(sizeY_));
    for (int r = 0; r < rows && r < heights_.rows; ++r) {
      for (int c = 0; c < cols && c < heights_.cols; ++c) {
        const double h = static_cast<double>(heights_.At(r, c));
        if (h > top_) top_ = h;
      }
    }
    root_ = Build(b.minX, b.minY, b.minZ, b.maxX, b.maxY, b.maxZ, 0);
  }

  [[nodiscard]] std::uint8_t Trace(int row, int col) {
    const float h = heights_.At(row, col);
    if (!(static_cast<double>(std::fabs(h - noData_)) > 1e-6)) return 0;
    o_ = {col * static_cast<double>(sizeX_),
          (row - (heights_.rows - 1)) * static_cast<double>(sizeY_), static_cast<double>(h)};
    d_ = {camera_.x - o_.x, camera_.y - o_.y, camera_.z - o_.z};
    const double length = std::sqrt(d_.x * d_.x + d_.y * d_.y + d_.z * d_.z);
    d_ = {d_.x / length, d_.y / length, d_.z / length};
    if (!root_) return 0;
    leaves_.clear();
    Visit(*root_);
    QuickSort(0, static_cast<int>(leaves_.size()) - 1);
    for (auto leaf = leaves_.rbegin(); leaf != leaves_.rend(); ++leaf) {
      if (March(**leaf)) return 255;
    }
    return 0;
  }

  [[nodiscard]] long Steps() const { return steps_; }

 private:
  std::unique_ptr<Node> Build(double x0, double y0, double z0, double x1, double y1, double z1,
                              int depth) {
    auto node = std::make_unique<Node>();
    node->minX = x0;
    node->minY = y0;
    node->minZ = z0;
    node->maxX = x1;
    node->maxY = y1;
    node->maxZ = z1;
    node->depth = depth;
    const double leafSize = static_cast<double>(leafSize_);
    if ((x1 - x0 <= leafSize && y1 - y0 <= leafSize) || depth >= 4) {
      node->maxZ = top_;
      return node;
    }
    double sx = (x0 + x1) / 2;
    double sy = (y0 + y1) / 2;
    if (depth == 0 && x0 < camera_.x && camera_.x < x1 && y0 < camera_.y && camera_.y < y1) {
      sx = camera_.x;
      sy = camera_.y;
    }
    node->child[0] = Build(x0, y0, z0, sx, sy, z1, depth + 1);
    node->child[1] = Build(x0, sy, z0, sx, y1, z1, depth + 1);
    node->child[2] = Build(sx, sy, z0, x1, y1, z1, depth + 1);
    node->child[3] = Build(sx, y0, z0, x1, sy, z1, depth + 1);
    return node;
  }

  static bool Slab(double o, double d, double low, double high, double& tMin, double& tMax) {
    if (std::fabs(d) < static_cast<double>(1e-6f)) return !(o < low || o > high);
    double t1 = (low - o) / d;
    double t2 = (high - o) / d;
    if (t1 > t2) std::swap(t1, t2);
    if (t1 > tMin) tMin = t1;
    if (t2 < tMax) tMax = t2;
    return !(tMin > tMax);
  }

  void Visit(Node& n) {
    double tMin = 0;
    double tMax = 3.4028234663852886e38;
    if (!Slab(o_.x, d_.x, n.minX, n.maxX, tMin, tMax)) return;
    if (!Slab(o_.y, d_.y, n.minY, n.maxY, tMin, tMax)) return;
    if (!Slab(o_.z, d_.z, n.minZ, n.maxZ, tMin, tMax)) return;
    n.entry = {o_.x + tMin * d_.x, o_.y + tMin * d_.y, o_.z + tMin * d_.z};
    n.exit = {o_.x + tMax * d_.x, o_.y + tMax * d_.y, o_.z + tMax * d_.z};
    if (!n.child[0]) {
      const double dx = (n.minX + n.maxX) / 2 - o_.x;
      const double dy = (n.minY + n.maxY) / 2 - o_.y;
      const double dz = 0 - o_.z;
      n.key = NarrowToFloat(std::sqrt(dx * dx + dy * dy + dz * dz));
      leaves_.push_back(&n);
      return;
    }
    for (auto& child : n.child) Visit(*child);
  }

  void QuickSort(int low, int high) {
    if (low >= high) return;
    int i = low;
    int j = high;
    const float pivot = leaves_[(low + high) / 2]->key;
    while (i <= j) {
      while (leaves_[i]->key < pivot) ++i;
      while (leaves_[j]->key > pivot) --j;
      if (i <= j) std::swap(leaves_[i++], leaves_[j--]);
    }
    QuickSort(low, j);
    QuickSort(i, high);
  }

  [[nodiscard]] bool March(const Node& leaf) {
    const Point3& in = leaf.entry;
    const Point3& out = leaf.exit;
    char which = 0;
    if (camera_.x >= leaf.maxX && camera_.y >= leaf.maxY) which = 'A';
    if (camera_.x >= leaf.maxX && camera_.y < leaf.maxY) which = 'B';
    if (camera_.x < leaf.maxX && camera_.y < leaf.maxY) which = 'C';
    if (camera_.x < leaf.maxX && camera_.y >= leaf.maxY) which = 'D';
    if (which == 0) return false;
    const Point3 s = (o_.x > in.x || o_.y > in.y) ? o_ : in;
    const double size = static_cast<double>(sizeX_);
    const Point3 step{d_.x * size, d_.y * size, d_.z * size};
    Point3 p = s;
    for (int i = 0; i < 1000000; ++i) {
      ++steps_;
      p.x += step.x;
      p.y += step.y;
      p.z += step.z;
      const int c = TruncToInt(p.x / size);
      const int r = TruncToInt(p.y / static_cast<double>(sizeY_) + (heights_.rows - 1));
      if (0 <= r && r <= heights_.rows - 1 && 0 <= c && c <= heights_.cols - 1) {
        if (static_cast<double>(heights_.At(r, c)) > p.z) return true;
        if (which == 'A' && (p.x > out.x || p.y > out.y)) return false;
        if (which == 'B' && (p.x > out.x || out.y >= p.y)) return false;
        if (which == 'C' && (out.x >= p.x || out.y >= p.y)) return false;
        if (which == 'D' && (out.x >= p.x || p.y > out.y)) return false;
      } else {
        if (which == 'A' && (s.x > p.x || s.y > p.y)) return false;
        if (which == 'B' && (s.x > p.x || p.y > s.y)) return false;
        if (which == 'C' && (p.x > s.x || p.y > s.y)) return false;
        if (which == 'D' && (p.x > s.x || s.y > p.y)) return false;
      }
    }
    return false;
  }

  GridView<const float> heights_;
  float noData_, sizeX_, sizeY_;
  Point3 camera_;
  float leafSize_ = 0;
  double top_ = -1e15;
  std::unique_ptr<Node> root_;
  Point3 o_, d_;
  std::vector<Node*> leaves_;
  long steps_ = 0;
};

/// The whole mask; `examine` as in MarkHiddenCells.
inline std::vector<std::uint8_t> HiddenCells(const RaySurface& surface, const Point3& camera,
                                             const std::uint8_t* examine = nullptr) {
  std::vector<std::uint8_t> mask(surface.heights.CellCount(), 0);
  Tracer tracer(surface, camera);
  for (int r = 0; r < surface.heights.rows; ++r) {
    for (int c = 0; c < surface.heights.cols; ++c) {
      const std::size_t i = static_cast<std::size_t>(r) * surface.heights.cols + c;
      if (examine == nullptr || examine[i] != 0) mask[i] = tracer.Trace(r, c);
    }
  }
  return mask;
}

}  // namespace tqtortho::reference
