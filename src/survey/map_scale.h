// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "survey/finding.h"

namespace tqtortho::host {

/// What a map makes of true lengths and directions at one place.
struct MapScale {
  double east = 1;         ///< metres on the map for one metre on the ellipsoid, towards true east
  double north = 1;        ///< the same towards true north; equal to `east` on a conformal map
  double convergence = 0;  ///< radians from true north to the map's north, clockwise
  double longitude = 0;    ///< degrees, of the map's own datum
  double latitude = 0;

  /// The one of the two scales that is farther from 1.
  [[nodiscard]] double Worst() const;
};

/// Scale and convergence of the map `wkt` at a point of it, by displacing the point by true metres
/// on the map's own ellipsoid and projecting it again. The ellipsoid's, not the ground's: 1000 m
/// above it the ground is 0.016 % longer.
/// @return nothing for a local or geographic system, and where the map is not defined.
[[nodiscard]] std::optional<MapScale> MapScaleAt(const std::string& wkt, double x, double y);

/// From this share on a scale is told, and beyond the other a job is refused.
inline constexpr double kScaleToTell = 1e-4;
inline constexpr double kScaleToRefuse = 1e-3;

/// What is to be said of the scale that a DSM's map has at a point of it: nothing, a warning or a
/// refusal. A camera is true to scale and heights are; on a map that is not, photos bend towards or
/// away from the point below the camera. `dsmPath` is for the line.
[[nodiscard]] std::optional<Finding> CheckMapScale(const std::string& dsmPath,
                                                   const std::string& wkt, double x, double y);

}  // namespace tqtortho::host
