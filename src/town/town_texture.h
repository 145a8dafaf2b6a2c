// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "town/town_plan.h"
#include "town/town_solids.h"

namespace tqtortho::host {

/// A colour, 0 to 255 per band; not rounded, so that samples can be averaged.
struct TownColour {
  double r = 0, g = 0, b = 0;
};

/// Colours stay inside these bounds: 0 and 1 are codes in orthos, and a photo must not saturate.
inline constexpr double kDarkest = 16;
inline constexpr double kBrightest = 244;

/// Paints of the sample town. Every surface carries detail from metres down to about three times
/// `detailM` (the photos' ground resolution) and none finer, so that any patch of it can be
/// registered and a photo samples it without aliasing. Magenta and cyan belong to facades alone: a
/// saturated pixel of these hues in an ortho is a facade that leaked into it.

[[nodiscard]] TownColour GroundColour(const TownPlan& plan, const TownPlan::Place& place, double x,
                                      double y, double detailM);
/// Roof or crown, seen from above at (x, y), before light and shadow.
[[nodiscard]] TownColour TopColour(const Solid& solid, double x, double y, double detailM);
/// A vertical wall at (x, y, z).
[[nodiscard]] TownColour WallColour(const Solid& solid, double x, double y, double z);

/// True where vehicles drive or park: class 1 of the truth.
[[nodiscard]] bool IsRoad(const TownPlan& plan, const TownPlan::Place& place);

}  // namespace tqtortho::host
