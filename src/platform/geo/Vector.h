// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tqfd/Geometry.h"

namespace geo {

/// Reads the first polygon's outer ring of a vector file (GeoJSON, GeoPackage, shapefile), each
/// vertex once, transformed to `targetCrs` when the file names a CRS of its own (GeoJSON:
/// longitude, latitude unless it says otherwise). False, with one line in `error`, when there is
/// none.
bool ReadPolygon(const std::string& path, const std::string& targetCrs,
                 std::vector<tqfd::Point2_T<double>>& ring, std::string& error);

}  // namespace geo
