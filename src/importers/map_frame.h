// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "importers/odm_frame.h"
#include "survey/geodesy.h"

namespace tqtortho::host {

/// The way from the frames in which other tools leave their poses to the map of a DSM; made once
/// per project. Heights pass unchanged: a vertical datum is never shifted behind the user's back.
class MapFrame {
 public:
  /// For a DSM whose coordinate system is `mapWkt` (from ReadMetricMap).
  explicit MapFrame(std::string mapWkt) : mapWkt_(std::move(mapWkt)) {}

  /// From plane coordinates in metres of the system `crs`; an empty text is the map itself.
  /// @return nothing, with one line in `error`, when `crs` is none, in degrees or not in metres, or
  ///         no way to the map is known.
  [[nodiscard]] std::optional<TopocentricToGrid> FromPlane(const std::string& crs,
                                                           std::string& error) const;
  /// From earth-centred coordinates in metres on the datum of `crs` (which may be geographic or
  /// projected). Refused when `crs` has heights above a vertical datum and `heightsGiven` is not
  /// set: the geoid would be missing.
  [[nodiscard]] std::optional<TopocentricToGrid> FromEarthCentred(const std::string& crs,
                                                                  bool heightsGiven,
                                                                  std::string& error) const;
  /// From longitude and latitude (degrees) and height, WGS 84 or `crs` where given.
  [[nodiscard]] std::optional<TopocentricToGrid> FromGeographic(const std::string& crs,
                                                                std::string& error) const;
  /// From a local frame with its axes east, north and up at a place on WGS 84.
  [[nodiscard]] std::optional<TopocentricToGrid> FromTopocentric(const Geodetic& origin,
                                                                 std::string& error) const;

 private:
  std::string mapWkt_;
};

/// The same way for coordinates that lack `offset`. Nothing stays nothing.
[[nodiscard]] std::optional<TopocentricToGrid> Shifted(
    const Vector3& offset, const std::optional<TopocentricToGrid>& toGrid);

/// What the three steps that open every import of poses leave behind.
struct ImportMap {
  std::string dsmPath;  ///< absolute
  std::string mapWkt;
};

/// Looks at the DSM that an import stands on. Nothing, with one line in `error`, when none is given
/// or it is no metric map.
[[nodiscard]] std::optional<ImportMap> OpenImportMap(const ImportRequest& request,
                                                     std::string& error);

/// The folder in which photos are looked for: the requested one, else a folder "images" or "photos"
/// beside `file` or one level up, else the folder of `file`.
[[nodiscard]] std::string PhotoFolderOf(const ImportRequest& request, const std::string& file);

}  // namespace tqtortho::host
