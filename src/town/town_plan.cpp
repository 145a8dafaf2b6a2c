// SPDX-License-Identifier: Apache-2.0
#include "town/town_plan.h"

#include <algorithm>
#include <cmath>

#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

constexpr double kBorderM = 1.2;      ///< land without solids along the town's border
constexpr double kTreeGapM = 0.6;     ///< between a crown and a wall
constexpr double kBaseHeightM = 100;  ///< mean height of the ground

/// One block while it is being built.
class BlockBuilder {
 public:
  BlockBuilder(TownPlan& plan, int column, int row, TownRandom& random)
      : plan_(plan), random_(random), half_(plan.PlotHalf()), firstSolid_(plan.solids.size()) {
    const double first = -0.5 * (plan.blocks - 1) * plan.pitch;
    centreG_ = first + column * plan.pitch;
    centreH_ = first + row * plan.pitch;
    ToTown(0, 0, centreX_, centreY_);
    base_ = GroundHeight(plan, centreX_, centreY_);
    heightScale_ = std::min(1.0, plan.sizeM / 100);
  }

  void Build(BlockUse use) {
    switch (use) {
      case BlockUse::kHouses:
        return Houses();
      case BlockUse::kTower:
        return Tower();
      case BlockUse::kCourtyard:
        return Courtyard();
      case BlockUse::kCorner:
        return Corner();
      case BlockUse::kOffices:
        return Offices();
      case BlockUse::kParking:
        return Parking();
      case BlockUse::kPark:
        return Trees(22, half_ * 0.95, 1.2, 3.2);
      case BlockUse::kMeadow:
        return;
    }
  }

  void StreetTrees() {
    const double line = half_ + 0.25 * (plan_.walkHalf - plan_.roadHalf);
    for (int side = 0; side < 4; ++side) {
      double along = -half_ + 2;
      while (along < half_ - 1) {
        const double at = along + random_.Range(-1, 1);
        const double radius = random_.Range(1.0, 1.7);
        const bool planted = random_.Unit() < 0.55;
        const double sign = side % 2 == 0 ? 1 : -1;
        if (planted && side < 2) Tree(at, sign * line, radius);
        if (planted && side >= 2) Tree(sign * line, at, radius);
        along += 6.5;
      }
    }
  }

 private:
  void ToTown(double p, double q, double& x, double& y) const {
    const double g = centreG_ + p, h = centreH_ + q;
    x = plan_.sizeM / 2 + g * plan_.cosTurn - h * plan_.sinTurn;
    y = plan_.sizeM / 2 + g * plan_.sinTurn + h * plan_.cosTurn;
  }

  /// A building at block coordinates (p, q), its u axis turned by `turn` against the streets.
  /// `eaves` counts from the block's ground. Buildings that would leave the town are not built.
  void Building(SolidKind kind, double p, double q, double halfU, double halfV, double turn,
                double eaves, double rise, std::uint32_t style) {
    Solid s;
    s.kind = kind;
    ToTown(p, q, s.x, s.y);
    const double c = std::cos(turn), sn = std::sin(turn);
    s.axisX = plan_.cosTurn * c - plan_.sinTurn * sn;
    s.axisY = plan_.sinTurn * c + plan_.cosTurn * sn;
    s.halfU = halfU;
    s.halfV = halfV;
    s.rim = base_ + eaves;
    s.rise = rise;
    s.style = style;
    const double reachX = std::abs(s.axisX) * halfU + std::abs(s.axisY) * halfV;
    const double reachY = std::abs(s.axisY) * halfU + std::abs(s.axisX) * halfV;
    if (halfU < 1 || halfV < 1 || !Inside(s.x, reachX) || !Inside(s.y, reachY)) return;
    plan_.solids.push_back(s);
  }
  void Flat(double p, double q, double halfU, double halfV, double height, std::uint32_t style) {
    Building(SolidKind::kFlat, p, q, halfU, halfV, 0, height, 0, style);
  }

  [[nodiscard]] bool Inside(double centre, double reach) const {
    return centre - reach >= kBorderM && centre + reach <= plan_.sizeM - kBorderM;
  }

  void Tree(double p, double q, double radius) {
    Solid s;
    const bool conifer = random_.Unit() < 0.3;
    s.kind = conifer ? SolidKind::kCone : SolidKind::kSpheroid;
    ToTown(p, q, s.x, s.y);
    s.halfU = s.halfV = conifer ? 0.75 * radius : radius;
    const double height =
        conifer ? radius * random_.Range(3.2, 4.5) : radius * random_.Range(2, 2.9);
    const double ground = GroundHeight(plan_, s.x, s.y);
    s.rim = ground + 0.22 * height;
    s.rise = 0.78 * height;
    s.style = random_.Next();
    if (!Inside(s.x, radius) || !Inside(s.y, radius)) return;
    // Only this block's solids can be near: streets keep the blocks apart.
    for (std::size_t i = firstSolid_; i < plan_.solids.size(); ++i) {
      const Solid& other = plan_.solids[i];
      const double u = std::abs(other.LocalU(s.x, s.y)), v = std::abs(other.LocalV(s.x, s.y));
      if (other.IsTree()) {
        if (std::hypot(u, v) < 0.8 * (radius + other.halfU)) return;
      } else if (u < other.halfU + radius + kTreeGapM && v < other.halfV + radius + kTreeGapM) {
        return;
      }
    }
    plan_.solids.push_back(s);
  }
  void Trees(int count, double reach, double smallest, double largest) {
    for (int i = 0; i < count; ++i) {
      const double p = random_.Range(-reach, reach), q = random_.Range(-reach, reach);
      Tree(p, q, random_.Range(smallest, largest));
    }
  }

  void Houses() {
    const int perSide = half_ > 8 ? 2 : 1;
    const double plot = half_ / perSide;
    for (int i = 0; i < perSide * perSide; ++i) {
      const int col = i % perSide, row = i / perSide;
      const double p = (2 * col + 1 - perSide) * plot;
      const double q = (2 * row + 1 - perSide) * plot;
      const double turn = random_.Below(2) * 1.5707963267948966 + random_.Range(-0.06, 0.06);
      const double halfV = plot * random_.Range(0.5, 0.58),
                   halfU = plot * random_.Range(0.68, 0.78);
      const double rise = halfV * random_.Range(0.7, 1.0);
      Building(SolidKind::kGable, p, q, halfU, halfV, turn, random_.Range(3.5, 6), rise,
               random_.Next());
    }
    Trees(10, half_, 0.9, 1.9);
  }

  void Tower() {
    const std::uint32_t style = random_.Next();
    const double podium = random_.Range(4.5, 6.5);
    const double half = std::min(6.0, half_ * random_.Range(0.5, 0.56));
    const double p = random_.Range(-0.25, 0.25) * half_, q = random_.Range(-0.25, 0.25) * half_;
    const double height = std::max(podium + 4, heightScale_ * random_.Range(31, 47));
    Flat(0, 0, half_ * 0.88, half_ * 0.88, podium, style);
    Flat(p, q, half, half * 0.9, height, style ^ 0x5A5AU);
    Flat(p + 0.2 * half, q - 0.1 * half, half * 0.4, half * 0.35, height + 2.6, style ^ 0x1234U);
  }

  void Courtyard() {
    const std::uint32_t style = random_.Next();
    const double wing = half_ * random_.Range(0.24, 0.28);  // half depth of a wing
    const double tall = heightScale_ * random_.Range(12, 16), low = 0.72 * tall;
    const double outer = half_ * 0.97, line = outer - wing;
    Flat(0, line, outer, wing, tall, style);
    Flat(0, -line, outer, wing, low, style + 1024);
    Flat(line, 0, wing, outer - 2 * wing, tall, style);
    Flat(-line, 0, wing, outer - 2 * wing, 0.86 * tall, style + 2048);
    Tree(random_.Range(-1, 1), random_.Range(-1, 1), 0.28 * (outer - 2 * wing));
  }

  void Corner() {
    const std::uint32_t style = random_.Next();
    const double eaves = heightScale_ * random_.Range(7, 10);
    const double depth = half_ * 0.3, outer = half_ * 0.94;
    const double signP = random_.Below(2) == 0 ? 1 : -1, signQ = random_.Below(2) == 0 ? 1 : -1;
    const double rise = depth * 0.8;
    Building(SolidKind::kGable, 0, signQ * (outer - depth), outer, depth, 0, eaves, rise, style);
    Building(SolidKind::kGable, signP * (outer - depth), 0, outer, depth, 1.5707963267948966, eaves,
             rise, style);
    Flat(-signP * 0.5 * half_, -signQ * 0.5 * half_, half_ * 0.22, half_ * 0.3, 3.2,
         random_.Next());
    Trees(9, half_, 1.0, 2.0);
  }

  void Offices() {
    const double a = heightScale_;
    Flat(-0.5 * half_, 0.35 * half_, 0.4 * half_, 0.55 * half_, a * random_.Range(19, 24),
         random_.Next());
    Flat(0.45 * half_, 0.5 * half_, 0.42 * half_, 0.38 * half_, a * random_.Range(12, 16),
         random_.Next());
    Flat(0.35 * half_, -0.55 * half_, 0.5 * half_, 0.32 * half_, a * random_.Range(7, 9),
         random_.Next());
    Trees(6, half_, 0.9, 1.6);
  }

  void Parking() {
    Flat(-0.7 * half_, 0.74 * half_, 0.22 * half_, 0.18 * half_, 3.4, random_.Next());
    for (int i = -2; i <= 2; ++i) {
      if (random_.Unit() < 0.7) Tree(i * 0.36 * half_, 0, random_.Range(0.8, 1.2));
    }
  }

  TownPlan& plan_;
  TownRandom& random_;
  double half_;
  std::size_t firstSolid_;
  double centreG_ = 0, centreH_ = 0, centreX_ = 0, centreY_ = 0;
  double base_ = 0;
  double heightScale_ = 1;
};

}  // namespace

TownPlan::Place TownPlan::Locate(double x, double y) const {
  const double dx = x - sizeM / 2, dy = y - sizeM / 2;
  const double g = (dx * cosTurn + dy * sinTurn) / pitch + 0.5 * blocks;
  const double h = (dy * cosTurn - dx * sinTurn) / pitch + 0.5 * blocks;
  Place place;
  const double column = std::floor(g), row = std::floor(h);
  place.column = TruncToInt(column);
  place.row = TruncToInt(row);
  place.p = (g - column - 0.5) * pitch;
  place.q = (h - row - 0.5) * pitch;
  place.toRoadP = pitch / 2 - std::abs(place.p);
  place.toRoadQ = pitch / 2 - std::abs(place.q);
  if (place.column >= 0 && place.column < blocks && place.row >= 0 && place.row < blocks) {
    place.use = uses[static_cast<std::size_t>(place.row) * static_cast<std::size_t>(blocks) +
                     static_cast<std::size_t>(place.column)];
  }
  return place;
}

double GroundHeight(const TownPlan& plan, double x, double y) {
  return kBaseHeightM + 0.012 * (x - 0.5 * plan.sizeM) +
         0.9 * ValueNoise(x, y, 38, plan.seed ^ 0xA11CE5U);
}

TownPlan PlanTown(std::uint32_t seed, double sizeM) {
  TownPlan plan;
  plan.seed = seed;
  plan.sizeM = sizeM;
  TownRandom random(seed ^ 0x70A4U);
  const double turn = random.Range(0.06, 0.14) * (random.Below(2) == 0 ? 1 : -1);
  plan.cosTurn = std::cos(turn);
  plan.sinTurn = std::sin(turn);
  plan.blocks = std::max(1, TruncToInt(sizeM / 33 + 0.5));
  plan.pitch = 0.93 * sizeM / plan.blocks;
  const double narrow = std::clamp(sizeM / 60, 0.4, 1.0);
  plan.roadHalf = 2.8 * narrow;
  plan.walkHalf = 4.2 * narrow;

  // The whole mix in every nine blocks, in random order; a town of four has one of each main kind.
  static constexpr BlockUse kMix[] = {BlockUse::kHouses,  BlockUse::kTower,   BlockUse::kCourtyard,
                                      BlockUse::kCorner,  BlockUse::kParking, BlockUse::kPark,
                                      BlockUse::kOffices, BlockUse::kTower,   BlockUse::kHouses};
  const std::size_t count = static_cast<std::size_t>(plan.blocks) * plan.blocks;
  for (std::size_t i = 0; i < count; ++i) plan.uses.push_back(kMix[i % std::size(kMix)]);
  for (std::size_t i = count - 1; i > 0; --i) {
    std::swap(plan.uses[i], plan.uses[static_cast<std::size_t>(random.Unit() * double(i + 1))]);
  }
  for (int row = 0; row < plan.blocks; ++row) {
    for (int column = 0; column < plan.blocks; ++column) {
      BlockBuilder builder(plan, column, row, random);
      builder.Build(plan.uses[static_cast<std::size_t>(row) * plan.blocks + column]);
      builder.StreetTrees();
    }
  }
  return plan;
}

}  // namespace tqtortho::host
