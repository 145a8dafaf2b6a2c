// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "survey/survey.h"
#include "tqimage/GeoCoefficients.h"

namespace tqtortho::host {

/// Brings positions and angles of a survey that names its own coordinate system (`survey.crs`) onto
/// the DSM's: centres through PROJ, rotations through the map's derivative at each centre, so that
/// grids turned against each other are turned. Angles of a system in degrees count from true east,
/// north and up at the photo. Heights pass unchanged.
///
/// Does nothing when the survey names none. Clears `survey.crs` and adds a note when done.
/// @return false, with one line in `error`
[[nodiscard]] bool BringOntoMap(Survey& survey, const std::string& mapWkt, std::string& error);

/// In which system a position would lie on the DSM: tried are longitude and latitude, Web Mercator
/// and the UTM zones around. Empty when none fits.
[[nodiscard]] std::string GuessPhotoCrs(double x, double y, const tqimage::GeoCoefficients& dsm);

}  // namespace tqtortho::host
