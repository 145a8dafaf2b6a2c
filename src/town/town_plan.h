// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "town/town_solids.h"

namespace tqtortho::host {

/// What stands on a block of the street grid.
enum class BlockUse : std::uint8_t {
  kHouses,     ///< gable houses in gardens
  kTower,      ///< a tower on a podium
  kCourtyard,  ///< four wings around a yard
  kCorner,     ///< an L of two gable wings
  kOffices,    ///< flat roofs at three heights
  kParking,    ///< marked bays, a kiosk
  kPark,       ///< trees and paths
  kMeadow,     ///< outside the town
};

/// Where everything is. The street grid is square, turned by a few degrees about the town's centre,
/// and goes on for ever; solids stand only inside the town.
///
/// Frames, all in metres: the town frame has its origin in the town's south-west corner; the street
/// frame has it in the centre, turned; block coordinates are relative to a block's centre, turned.
struct TownPlan {
  double sizeM = 0;
  std::uint32_t seed = 0;
  double cosTurn = 1, sinTurn = 0;
  int blocks = 1;              ///< per side
  double pitch = 0;            ///< of the street grid
  double roadHalf = 0;         ///< half width of the carriageway
  double walkHalf = 0;         ///< half width with pavements
  std::vector<BlockUse> uses;  ///< row-major, south-west block first
  std::vector<Solid> solids;

  /// A ground position in the street grid: which block, and where in it.
  struct Place {
    int column = 0, row = 0;  ///< block, may lie outside 0 ... blocks - 1
    double p = 0, q = 0;      ///< from the block's centre, -pitch / 2 ... pitch / 2
    double toRoadP = 0;       ///< distance to the centre line of the nearest street along q ...
    double toRoadQ = 0;       ///< ... and of the one along p
    BlockUse use = BlockUse::kMeadow;

    /// Distance to the nearer street's centre line.
    [[nodiscard]] double ToRoad() const { return toRoadP < toRoadQ ? toRoadP : toRoadQ; }
  };
  [[nodiscard]] Place Locate(double x, double y) const;
  /// Half width of the land of a block between its pavements.
  [[nodiscard]] double PlotHalf() const { return pitch / 2 - walkHalf; }
};

/// Height of the bare ground: gentle, smooth, defined everywhere. Slopes stay below 0.15.
[[nodiscard]] double GroundHeight(const TownPlan& plan, double x, double y);

/// Lays the streets and puts up buildings and trees. A town of 100 m has nine blocks with two
/// towers of 30 to 50 m; a smaller one has fewer blocks and lower towers, a larger one repeats the
/// mix.
[[nodiscard]] TownPlan PlanTown(std::uint32_t seed, double sizeM);

}  // namespace tqtortho::host
