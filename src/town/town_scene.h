// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "town/town_plan.h"
#include "town/town_texture.h"

namespace tqtortho::host {

/// Class codes of the truth.
enum class SurfaceClass : std::uint8_t { kGround = 0, kRoad = 1, kBuilding = 2, kTree = 3 };

/// The sample town as an analytic surface z = Height(x, y) with vertical walls, and exact rays on
/// it.
///
/// Rays meet the shapes themselves, never a raster of them: that is what makes the photos a truth
/// for the raster that a job works on. Coordinates are the town frame in metres (x east, y north,
/// origin in the south-west corner); the surface goes on outside the town as bare ground. Safe to
/// share between threads once built.
class TownScene {
 public:
  /// @param detailM the photos' ground resolution; the paint is no finer than about three times
  /// that
  TownScene(TownPlan plan, double detailM);

  [[nodiscard]] const TownPlan& Plan() const { return plan_; }
  [[nodiscard]] double Top() const { return top_; }  ///< not below any point of the surface

  [[nodiscard]] double Height(double x, double y) const;
  [[nodiscard]] SurfaceClass ClassAt(double x, double y) const;
  /// Colour of the surface at (x, y) from above, sunlight and cast shadows included; `solid`
  /// receives what is there (-1: bare ground).
  [[nodiscard]] TownColour ColourAt(double x, double y, int& solid) const;

  /// What a ray from above the town meets first.
  struct Hit {
    double t = 0;    ///< along the ray
    int solid = -1;  ///< -1: bare ground
    bool wall = false;
    bool valid = false;  ///< false: the ray does not come down
  };
  [[nodiscard]] Hit Trace(const TownRay& ray) const;
  [[nodiscard]] TownColour ColourOf(const TownRay& ray, const Hit& hit) const;

  /// True when something stands between a point of the surface and the viewer.
  [[nodiscard]] bool Hidden(double x, double y, double z, double viewX, double viewY,
                            double viewZ) const;

 private:
  /// Index of what is on top at (x, y), -1 for the ground; `z` receives its height.
  int SolidAt(double x, double y, double& z) const;
  [[nodiscard]] TownColour Lit(const TownColour& paint, int solid, double x, double y,
                               double z) const;
  [[nodiscard]] double GroundCrossing(const TownRay& ray) const;
  /// Calls visit(index of solid) for every solid whose box may meet the ray between t0 and t1, cell
  /// by cell along the ray (a solid may come more than once); done(t at a cell's end) true ends it.
  template <class Visit, class Done>
  void Walk(const TownRay& ray, double t0, double t1, Visit visit, Done done) const;

  TownPlan plan_;
  double detailM_;
  double top_ = 0;
  double cellM_ = 4;
  int cells_ = 1;                 ///< per side
  std::vector<int> firstInCell_;  ///< cells * cells + 1 offsets into solidsInCell_
  std::vector<int> solidsInCell_;
  std::vector<double> topOfCell_;
};

}  // namespace tqtortho::host
