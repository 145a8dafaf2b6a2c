// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "survey/survey.h"
#include "town/sample_town.h"

namespace tqtortho::host {

/// South-west corner of the sample town in its map frame (UTM zone 33 north).
inline constexpr double kTownEast = 500000;
inline constexpr double kTownNorth = 5400000;
inline constexpr char kTownCrs[] = "EPSG:32633";

/// Plans the photos of a sample town: one camera, strips flown north and south in turn (kappa near
/// 0 and pi), about 65 % sidelap and 55 % overlap for nine photos, so that most ground between
/// buildings is seen from some side. Photo names are "S01_001.png": strip and photo.
///
/// All values are rounded to what the lists and the parameter file of a job can carry, so the
/// photos are rendered with the very numbers that a job reads.
///
/// @param townTop height above which nothing stands, over the mean ground
/// @return false, with one line in `error`, when the photos would be too large or too small.
bool PlanFlight(const SampleOptions& options, double groundM, double townTop, Survey& survey,
                std::string& error);

}  // namespace tqtortho::host
