// SPDX-License-Identifier: Apache-2.0
#include "town/town_texture.h"

#include <algorithm>
#include <cmath>

#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

TownColour Mix(const TownColour& a, const TownColour& b, double share) {
  return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
}
TownColour Tone(const TownColour& c, double add) { return {c.r + add, c.g + add, c.b + add}; }
TownColour Bounded(const TownColour& c) {
  return {std::clamp(c.r, kDarkest, kBrightest), std::clamp(c.g, kDarkest, kBrightest),
          std::clamp(c.b, kDarkest, kBrightest)};
}

/// 1 inside (inset > 0), 0 outside, a ramp of two details' width between: edges without aliasing.
double Inside(double inset, double detail) {
  return std::clamp(0.5 + 0.5 * inset / detail, 0.0, 1.0);
}
/// A line of the given half width; never thinner than the photos can show.
double Line(double distance, double halfWidth, double detail) {
  return Inside(std::max(halfWidth, 0.8 * detail) - std::abs(distance), detail);
}
/// Distance to the nearest multiple of `period`, and which one.
double ToMultiple(double value, double period, int& index) {
  const double nearest = std::floor(value / period + 0.5);
  index = TruncToInt(nearest);
  return value - nearest * period;
}

/// Detail at three scales, about -1 to 1.
double Grain(double x, double y, double detail, std::uint32_t salt) {
  return 0.45 * ValueNoise(x, y, 3 * detail, salt) + 0.4 * ValueNoise(x, y, 7 * detail, salt + 1) +
         0.35 * ValueNoise(x, y, 22 * detail, salt + 2);
}

/// Slabs of `size` metres, each of its own tone (-1 to 1), with dark joints (share of joint).
double Slab(double p, double q, double size, double detail, std::uint32_t salt, double& joint) {
  const double u = p / size, v = q / size;
  const double fu = u - std::floor(u), fv = v - std::floor(v);
  const double edge = size * std::min({fu, 1 - fu, fv, 1 - fv});
  joint = Line(edge, 0.03, detail);
  return 2 * HashUnit(FloorToInt(u), FloorToInt(v), salt) - 1;
}

TownColour Grass(double x, double y, double detail, std::uint32_t salt) {
  const double grain = Grain(x, y, detail, salt);
  const TownColour green{92 + 26 * grain, 128 + 30 * grain, 64 + 20 * grain};
  const double bare = ValueNoise(x, y, 5.5, salt + 9);
  return Mix(green, {146 + 24 * grain, 126 + 22 * grain, 92 + 18 * grain},
             std::clamp(2.5 * (bare - 0.25), 0.0, 0.8));
}

TownColour Paving(double p, double q, double x, double y, double size, double detail,
                  std::uint32_t salt) {
  double joint = 0;
  const double tone = Slab(p, q, std::max(size, 6 * detail), detail, salt, joint);
  const double grain = Grain(x, y, detail, salt + 5);
  const TownColour stone{164 + 22 * tone + 13 * grain, 156 + 20 * tone + 13 * grain,
                         144 + 16 * tone + 12 * grain};
  return Tone(stone, -38 * joint);
}

TownColour Asphalt(double p, double q, double x, double y, double detail, std::uint32_t salt) {
  const double grain = Grain(x, y, detail, salt);
  const double patch = HashUnit(FloorToInt(p / 3.3), FloorToInt(q / 5.1), salt + 7) < 0.2 ? -13 : 0;
  return {92 + 19 * grain + patch, 93 + 19 * grain + patch, 97 + 18 * grain + patch};
}

/// Markings of one street; `across` is the distance to its centre line, `along` runs with it and
/// `toCrossing` is the distance to the cross street's centre line.
double StreetPaint(const TownPlan& plan, double across, double along, double toCrossing,
                   double detail) {
  int index = 0;
  const double beyond = toCrossing - plan.walkHalf;
  if (beyond > 3.6) {
    const double dash = Inside(1.2 - std::abs(ToMultiple(along, 4.6, index)), detail);
    return std::max(dash * Line(across, 0.08, detail),
                    Line(across - (plan.roadHalf - 0.35), 0.06, detail));
  }
  const double zebra = std::min(Inside(beyond - 0.5, detail), Inside(3 - beyond, detail));
  return zebra * Inside(0.27 - std::abs(ToMultiple(across, 1.1, index)), detail);
}

TownColour Street(const TownPlan& plan, const TownPlan::Place& at, double x, double y,
                  double detail) {
  TownColour c = Asphalt(at.p, at.q, x, y, detail, plan.seed + 11);
  const bool alongQ = at.toRoadP < at.toRoadQ;
  if (std::max(at.toRoadP, at.toRoadQ) > plan.walkHalf) {
    const double across = alongQ ? at.toRoadP : at.toRoadQ;
    const double along = alongQ ? at.q : at.p;
    const double paint = StreetPaint(plan, across, along, alongQ ? at.toRoadQ : at.toRoadP, detail);
    c = Mix(c, {226, 226, 220}, 0.92 * paint);
  }
  // Manhole covers, one in every second stretch of nine metres.
  int i = 0, j = 0;
  const double u = ToMultiple(x, 4.5, i), v = ToMultiple(y, 4.5, j);
  if (HashUnit(i, j, plan.seed + 13) < 0.4) {
    const double r = std::hypot(u, v);
    c = Mix(c, {52, 50, 50}, Inside(0.42 - r, detail));
    c = Mix(c, {120, 116, 110}, Inside(0.24 - r, detail));
  }
  return c;
}

/// Bays on both sides of an aisle, more than half of them with a car.
TownColour ParkingLot(const TownPlan& plan, const TownPlan::Place& at, double x, double y,
                      double detail) {
  TownColour c = Asphalt(at.p, at.q, x, y, detail, plan.seed + 17);
  const double bay = 2.6, depth = 5;
  const double row = std::abs(at.q) - 0.55 * plan.PlotHalf();  // from the middle of the bays
  int index = 0;
  const double fromLine = ToMultiple(at.p, bay, index);
  if (std::abs(row) > depth / 2) return c;
  c = Mix(c, {220, 220, 214}, Line(fromLine, 0.07, detail));
  const int slot = FloorToInt(at.p / bay);
  const std::uint32_t car =
      HashCell(slot, at.q > 0 ? 1 : 2, plan.seed + HashCell(at.row, at.column, 3));
  if (car % 100 >= 60) return c;
  static constexpr TownColour kPaint[] = {{206, 204, 200}, {60, 62, 66},    {150, 40, 36},
                                          {52, 74, 122},   {132, 134, 138}, {196, 170, 60}};
  const double across = at.p - (slot + 0.5) * bay;
  const double body =
      std::min(Inside(0.88 - std::abs(across), detail), Inside(2.15 - std::abs(row), detail));
  const double glass = std::min(Inside(0.7 - std::abs(across), detail),
                                Line(std::abs(row + 0.1) - 0.95, 0.25, detail));
  c = Mix(c, kPaint[(car >> 8) % std::size(kPaint)], body);
  return Mix(c, {46, 50, 56}, 0.9 * glass * body);
}

TownColour Garden(const TownPlan& plan, const TownPlan::Place& at, double x, double y,
                  double detail) {
  TownColour c = Grass(x, y, detail, plan.seed + 23);
  const int i = FloorToInt(at.p / 2.3), j = FloorToInt(at.q / 1.7);
  if (HashUnit(i, j, plan.seed + 29) < 0.16) {  // a bed of flowers
    const double size = std::max(0.42, 4 * detail);
    const std::uint32_t flower =
        HashCell(FloorToInt(at.p / size), FloorToInt(at.q / size), plan.seed + 31);
    static constexpr TownColour kBed[] = {
        {96, 72, 52}, {188, 168, 66}, {176, 74, 58}, {74, 112, 50}, {206, 196, 178}};
    c = Mix(c, Tone(kBed[flower % std::size(kBed)], 10 * Grain(x, y, detail, 37)), 0.85);
  }
  const double path = std::max(Line(at.p, 0.7, detail), Line(at.q, 0.7, detail));
  return Mix(c, Paving(at.p, at.q, x, y, 0.7, detail, plan.seed + 41), path);
}

TownColour Park(const TownPlan& plan, const TownPlan::Place& at, double x, double y,
                double detail) {
  const double grain = Grain(x, y, detail, plan.seed + 43);
  const TownColour gravel{190 + 18 * grain, 178 + 18 * grain, 152 + 16 * grain};
  const double wave = 1.5 * ValueNoise(at.p, at.q, 9, plan.seed + 47);
  const double path =
      std::max(Line(at.p - at.q + wave, 1.2, detail), Line(at.p + at.q, 1.2, detail));
  TownColour c = Mix(Grass(x, y, detail, plan.seed + 23), gravel, path);
  const double r = std::hypot(at.p, at.q);
  return Mix(c, Paving(at.p, at.q, x, y, 0.9, detail, plan.seed + 53), Inside(3.2 - r, detail));
}

TownColour Plot(const TownPlan& plan, const TownPlan::Place& at, double x, double y,
                double detail) {
  switch (at.use) {
    case BlockUse::kHouses:
    case BlockUse::kCorner:
      return Garden(plan, at, x, y, detail);
    case BlockUse::kTower:
    case BlockUse::kCourtyard:
    case BlockUse::kOffices:
      return Paving(at.p, at.q, x, y, 1.2, detail, plan.seed + 59);
    case BlockUse::kParking:
      return ParkingLot(plan, at, x, y, detail);
    case BlockUse::kPark:
      return Park(plan, at, x, y, detail);
    case BlockUse::kMeadow:
      return Grass(x, y, detail, plan.seed + 61);
  }
  return {};
}

TownColour FlatRoof(const Solid& s, double u, double v, double x, double y, double detail) {
  static constexpr TownColour kRoof[] = {{160, 154, 144}, {98, 98, 102},   {196, 194, 188},
                                         {116, 128, 92},  {160, 126, 110}, {134, 130, 128},
                                         {176, 162, 138}};
  const double grain = Grain(x, y, detail, s.style);
  TownColour c = Tone(kRoof[s.style % std::size(kRoof)], 19 * grain);
  int index = 0;
  c = Tone(c, -26 * Line(ToMultiple(u + 100, 1.9, index), 0.05, detail));  // seams of the sheets
  c = Tone(c, 14 * (HashUnit(index, 0, s.style + 3) - 0.5));
  // Plant, hatches and roof lights; nothing stands up, so that the roof stays level.
  int i = 0, j = 0;
  const double du = ToMultiple(u, 3.1, i), dv = ToMultiple(v, 2.7, j);
  const double kind = HashUnit(i, j, s.style + 5);
  if (kind < 0.4) {
    const double box =
        std::max(std::abs(du) - (kind < 0.2 ? 0.9 : 0.5), std::abs(dv) - (kind < 0.2 ? 0.55 : 0.5));
    c = Mix(c, {70, 72, 76}, Inside(-box, detail));
    c = Mix(c, kind < 0.2 ? TownColour{150, 152, 156} : TownColour{206, 210, 212},
            Inside(-box - 0.22, detail));
  }
  const double toEdge = std::min(s.halfU - std::abs(u), s.halfV - std::abs(v));
  return Mix(c, Tone({178, 174, 168}, 10 * grain), Inside(0.4 - toEdge, detail));
}

TownColour GableRoof(const Solid& s, double u, double v, double x, double y, double detail) {
  static constexpr TownColour kTiles[] = {
      {172, 88, 66}, {132, 94, 74}, {92, 94, 100}, {192, 122, 88}, {146, 72, 58}};
  const double size = std::max(0.5, 5 * detail);
  double joint = 0;
  const double tone = Slab(u, v, size, detail, s.style, joint);
  TownColour c = Tone(kTiles[s.style % std::size(kTiles)],
                      15 * tone - 16 * joint + 15 * Grain(x, y, detail, s.style + 2));
  int i = 0, j = 0;
  const double du = ToMultiple(u, 3.0, i), dv = ToMultiple(std::abs(v) - 0.5 * s.halfV, 4.0, j);
  if (HashUnit(i, v > 0 ? 1 : 0, s.style + 7) < 0.35 && std::abs(u) < s.halfU - 1.2) {
    const double pane = std::max(std::abs(du) - 0.45, std::abs(dv) - 0.6);
    c = Mix(c, {190, 188, 184}, Inside(-pane, detail));
    c = Mix(c, {62, 70, 82}, Inside(-pane - 0.16, detail));
  }
  return Mix(c, Tone({200, 160, 136}, 12 * tone), Line(v, 0.14, detail));
}

TownColour Crown(const Solid& s, double x, double y, double detail) {
  const double hue = (s.style % 1024) / 1024.0;
  const double leaf =
      0.6 * ValueNoise(x, y, 3 * detail, s.style) + 0.6 * ValueNoise(x, y, 7 * detail, s.style + 1);
  const TownColour base = s.kind == SolidKind::kCone
                              ? TownColour{54 + 14 * hue, 92 + 12 * hue, 58}
                              : TownColour{70 + 44 * hue, 116 + 18 * hue, 50};
  return {base.r + 26 * leaf, base.g + 32 * leaf, base.b + 20 * leaf};
}

}  // namespace

TownColour GroundColour(const TownPlan& plan, const TownPlan::Place& place, double x, double y,
                        double detailM) {
  const double toRoad = place.ToRoad();
  const double plotShare = Inside(toRoad - plan.walkHalf, detailM);
  const double roadShare = Inside(plan.roadHalf - toRoad, detailM);
  TownColour c;
  if (plotShare > 0) c = Plot(plan, place, x, y, detailM);
  if (plotShare < 1) {
    c = Mix(Paving(place.p, place.q, x, y, 0.8, detailM, plan.seed + 67), c, plotShare);
    // The kerb, a light line between pavement and carriageway.
    c = Mix(c, {198, 196, 190}, Line(toRoad - plan.roadHalf - 0.12, 0.12, detailM));
  }
  if (roadShare > 0) c = Mix(c, Street(plan, place, x, y, detailM), roadShare);
  return Bounded(c);
}

TownColour TopColour(const Solid& solid, double x, double y, double detailM) {
  if (solid.IsTree()) return Bounded(Crown(solid, x, y, detailM));
  const double u = solid.LocalU(x, y), v = solid.LocalV(x, y);
  return Bounded(solid.kind == SolidKind::kGable ? GableRoof(solid, u, v, x, y, detailM)
                                                 : FlatRoof(solid, u, v, x, y, detailM));
}

TownColour WallColour(const Solid& solid, double x, double y, double z) {
  if (solid.IsTree()) return {44, 70, 36};
  const double u = solid.LocalU(x, y), v = solid.LocalV(x, y);
  const bool endWall = solid.halfU - std::abs(u) < solid.halfV - std::abs(v);
  const double along = endWall ? v : u;
  // Windows: three quarters of a bay wide, half a storey high, counted down from the roof.
  const double bay = along / 2.4 - std::floor(along / 2.4);
  const double storey = (solid.rim - z) / 3.0 - std::floor((solid.rim - z) / 3.0);
  const bool window = bay > 0.3 && bay < 0.7 && storey > 0.25 && storey < 0.7;
  const double light = (window ? 0.6 : 0.95) * (endWall ? 0.88 : 1.0);
  return (solid.style >> 4) % 2 == 0 ? TownColour{212 * light, 40 * light, 208 * light}
                                     : TownColour{34 * light, 188 * light, 214 * light};
}

bool IsRoad(const TownPlan& plan, const TownPlan::Place& place) {
  const double toRoad = place.ToRoad();
  return toRoad < plan.roadHalf || (place.use == BlockUse::kParking && toRoad > plan.walkHalf);
}

}  // namespace tqtortho::host
