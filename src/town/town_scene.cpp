// SPDX-License-Identifier: Apache-2.0
#include "town/town_scene.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/numeric.h"

namespace tqtortho::host {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
// Towards the sun: south-east, 52 degrees up.
constexpr double kSunX = 0.41, kSunY = -0.46, kSunZ = 0.788;
constexpr double kShade = 0.58;   ///< light in a cast shadow
constexpr double kAmbient = 0.5;  ///< share of the light that comes from everywhere
constexpr double kTouchM = 1e-6;  ///< a surface does not hide itself

struct Box {
  double minX, minY, maxX, maxY;
};

Box BoxOf(const Solid& s) {
  const double reachX =
      s.IsTree() ? s.halfU : std::abs(s.axisX) * s.halfU + std::abs(s.axisY) * s.halfV;
  const double reachY =
      s.IsTree() ? s.halfU : std::abs(s.axisY) * s.halfU + std::abs(s.axisX) * s.halfV;
  return {s.x - reachX, s.y - reachY, s.x + reachX, s.y + reachY};
}

/// Shortens [t0, t1] to where low <= origin + t * direction <= high.
bool ClipSlab(double origin, double direction, double low, double high, double& t0, double& t1) {
  if (direction == 0) return origin >= low && origin <= high;
  double a = (low - origin) / direction, b = (high - origin) / direction;
  if (a > b) std::swap(a, b);
  t0 = std::max(t0, a);
  t1 = std::min(t1, b);
  return t0 <= t1;
}

}  // namespace

TownScene::TownScene(TownPlan plan, double detailM) : plan_(std::move(plan)), detailM_(detailM) {
  cells_ = std::max(1, TruncToInt(plan_.sizeM / 4));
  cellM_ = plan_.sizeM / cells_;
  const auto count = static_cast<std::size_t>(cells_) * static_cast<std::size_t>(cells_);
  firstInCell_.assign(count + 1, 0);
  topOfCell_.assign(count, -kInfinity);
  // Two passes over the same cells: count, then fill. A margin keeps walls on a cell border in
  // both.
  const auto forCells = [&](const Solid& s, auto&& use) {
    const Box b = BoxOf(s);
    const auto cell = [&](double v) { return std::clamp(FloorToInt(v / cellM_), 0, cells_ - 1); };
    for (int row = cell(b.minY - 1e-6); row <= cell(b.maxY + 1e-6); ++row) {
      for (int col = cell(b.minX - 1e-6); col <= cell(b.maxX + 1e-6); ++col) {
        use(static_cast<std::size_t>(row) * cells_ + static_cast<std::size_t>(col));
      }
    }
  };
  top_ = 100 + 0.0062 * plan_.sizeM + 1;
  for (const Solid& s : plan_.solids) {
    top_ = std::max(top_, s.Top());
    forCells(s, [&](std::size_t cell) {
      ++firstInCell_[cell + 1];
      topOfCell_[cell] = std::max(topOfCell_[cell], s.Top());
    });
  }
  for (std::size_t i = 0; i < count; ++i) firstInCell_[i + 1] += firstInCell_[i];
  solidsInCell_.resize(static_cast<std::size_t>(firstInCell_[count]));
  std::vector<int> next(firstInCell_.begin(), firstInCell_.end() - 1);
  for (std::size_t i = 0; i < plan_.solids.size(); ++i) {
    forCells(plan_.solids[i], [&](std::size_t cell) {
      solidsInCell_[static_cast<std::size_t>(next[cell]++)] = static_cast<int>(i);
    });
  }
}

int TownScene::SolidAt(double x, double y, double& z) const {
  z = GroundHeight(plan_, x, y);
  int found = -1;
  if (!(x >= 0 && y >= 0 && x <= plan_.sizeM && y <= plan_.sizeM)) return found;
  const int col = std::min(FloorToInt(x / cellM_), cells_ - 1);
  const int row = std::min(FloorToInt(y / cellM_), cells_ - 1);
  const auto cell = static_cast<std::size_t>(row) * cells_ + static_cast<std::size_t>(col);
  for (int k = firstInCell_[cell]; k < firstInCell_[cell + 1]; ++k) {
    const int index = solidsInCell_[static_cast<std::size_t>(k)];
    double top = 0;
    if (SolidHeight(plan_.solids[static_cast<std::size_t>(index)], x, y, top) && top > z) {
      z = top;
      found = index;
    }
  }
  return found;
}

double TownScene::Height(double x, double y) const {
  double z = 0;
  SolidAt(x, y, z);
  return z;
}

SurfaceClass TownScene::ClassAt(double x, double y) const {
  double z = 0;
  const int solid = SolidAt(x, y, z);
  if (solid >= 0) {
    return plan_.solids[static_cast<std::size_t>(solid)].IsTree() ? SurfaceClass::kTree
                                                                  : SurfaceClass::kBuilding;
  }
  return IsRoad(plan_, plan_.Locate(x, y)) ? SurfaceClass::kRoad : SurfaceClass::kGround;
}

template <class Visit, class Done>
void TownScene::Walk(const TownRay& ray, double t0, double t1, Visit visit, Done done) const {
  if (!ClipSlab(ray.x, ray.dx, 0, plan_.sizeM, t0, t1)) return;
  if (!ClipSlab(ray.y, ray.dy, 0, plan_.sizeM, t0, t1)) return;
  const auto cellOf = [&](double v) { return std::clamp(FloorToInt(v / cellM_), 0, cells_ - 1); };
  int col = cellOf(ray.x + t0 * ray.dx), row = cellOf(ray.y + t0 * ray.dy);
  const int stepX = ray.dx > 0 ? 1 : -1, stepY = ray.dy > 0 ? 1 : -1;
  double t = t0;
  while (true) {
    // Where the ray leaves this cell, from the index, so that nothing accumulates.
    const double nextX =
        ray.dx != 0 ? ((col + (stepX > 0 ? 1 : 0)) * cellM_ - ray.x) / ray.dx : kInfinity;
    const double nextY =
        ray.dy != 0 ? ((row + (stepY > 0 ? 1 : 0)) * cellM_ - ray.y) / ray.dy : kInfinity;
    const double end = std::min({nextX, nextY, t1});
    const auto cell = static_cast<std::size_t>(row) * cells_ + static_cast<std::size_t>(col);
    const double lowest = ray.z + (ray.dz < 0 ? end : t) * ray.dz;
    if (lowest <= topOfCell_[cell] + kTouchM) {
      for (int k = firstInCell_[cell]; k < firstInCell_[cell + 1]; ++k) {
        visit(solidsInCell_[static_cast<std::size_t>(k)]);
      }
    }
    if (end >= t1 || done(end)) return;
    t = std::max(t, end);
    (nextX < nextY ? col : row) += nextX < nextY ? stepX : stepY;
    if (col < 0 || row < 0 || col >= cells_ || row >= cells_) return;
  }
}

double TownScene::GroundCrossing(const TownRay& ray) const {
  // The ground is so gentle that each round shrinks the error by the slope over the ray's
  // steepness.
  double z = GroundHeight(plan_, ray.x, ray.y), t = 0;
  for (int round = 0; round < 60; ++round) {
    t = (z - ray.z) / ray.dz;
    const double next = GroundHeight(plan_, ray.x + t * ray.dx, ray.y + t * ray.dy);
    if (std::abs(next - z) < 1e-9) break;
    z = next;
  }
  return t;
}

TownScene::Hit TownScene::Trace(const TownRay& ray) const {
  Hit hit;
  if (!(ray.dz < 0)) return hit;
  hit.valid = true;
  hit.t = GroundCrossing(ray);
  const double start = std::max(0.0, (top_ + kTouchM - ray.z) / ray.dz);
  Walk(
      ray, start, hit.t,
      [&](int index) {
        RayInterval inside;
        if (ClipRay(plan_.solids[static_cast<std::size_t>(index)], ray, inside) &&
            inside.enter < hit.t) {
          hit.t = inside.enter;
          hit.solid = index;
          hit.wall = inside.throughWall;
        }
      },
      [&](double end) { return hit.t <= end; });
  return hit;
}

bool TownScene::Hidden(double x, double y, double z, double viewX, double viewY,
                       double viewZ) const {
  const TownRay ray{x, y, z, viewX - x, viewY - y, viewZ - z};
  if (!(ray.dz > 0)) return true;
  const double touch = kTouchM / std::sqrt(ray.dx * ray.dx + ray.dy * ray.dy + ray.dz * ray.dz);
  bool hidden = false;
  Walk(
      ray, 0, std::min(1.0, (top_ - z) / ray.dz + touch),
      [&](int index) {
        RayInterval inside;
        if (!hidden && ClipRay(plan_.solids[static_cast<std::size_t>(index)], ray, inside)) {
          hidden = inside.leave > touch;
        }
      },
      [&](double) { return hidden; });
  return hidden;
}

TownColour TownScene::Lit(const TownColour& paint, int solid, double x, double y, double z) const {
  double light = 1;
  if (solid >= 0) {
    double normal[3];
    TopNormal(plan_.solids[static_cast<std::size_t>(solid)], x, y, normal);
    const double facing = normal[0] * kSunX + normal[1] * kSunY + normal[2] * kSunZ;
    light = std::min(1.2, kAmbient + (1 - kAmbient) * std::max(0.0, facing) / kSunZ);
  }
  if (Hidden(x, y, z, x + 1000 * kSunX, y + 1000 * kSunY, z + 1000 * kSunZ)) {
    light = std::min(light, kShade);
  }
  return {std::clamp(paint.r * light, kDarkest, kBrightest),
          std::clamp(paint.g * light, kDarkest, kBrightest),
          std::clamp(paint.b * light, kDarkest, kBrightest)};
}

TownColour TownScene::ColourAt(double x, double y, int& solid) const {
  double z = 0;
  solid = SolidAt(x, y, z);
  const TownColour paint =
      solid >= 0 ? TopColour(plan_.solids[static_cast<std::size_t>(solid)], x, y, detailM_)
                 : GroundColour(plan_, plan_.Locate(x, y), x, y, detailM_);
  return Lit(paint, solid, x, y, z);
}

TownColour TownScene::ColourOf(const TownRay& ray, const Hit& hit) const {
  if (!hit.valid) return {150, 170, 190};  // the sky: no photo of the plan shows it
  const double x = ray.x + hit.t * ray.dx, y = ray.y + hit.t * ray.dy, z = ray.z + hit.t * ray.dz;
  if (hit.solid < 0) {
    return Lit(GroundColour(plan_, plan_.Locate(x, y), x, y, detailM_), -1, x, y, z);
  }
  const Solid& solid = plan_.solids[static_cast<std::size_t>(hit.solid)];
  if (hit.wall) return WallColour(solid, x, y, z);
  return Lit(TopColour(solid, x, y, detailM_), hit.solid, x, y, z);
}

}  // namespace tqtortho::host
