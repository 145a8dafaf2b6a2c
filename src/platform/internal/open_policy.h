// SPDX-License-Identifier: Apache-2.0
//
// The one place that decides which file may be opened as a raster or a vector, and by which driver.
//
// Names come from lists and projects of strangers, and GDAL would take a name for an address, a
// database or an archive, and a file's content for the description of another place. So only
// regular files on disk count, only drivers of an allow list open them, of the files beside them
// only known ones are seen, and a virtual raster is read before it is opened.
#pragma once

#include <string>

#include "internal/gdal_raster.h"

namespace tqimage {

/// Opens a polygon's file (GeoJSON, GeoPackage, shapefile, FlatGeobuf, KML), with its layers not
/// yet read. Null with one line in `error`. Whoever reads on keeps a NoFetching while doing so.
[[nodiscard]] DatasetPtr OpenVector(const std::string& path, std::string& error);

/// While it lives, no address that a file names is fetched on this thread.
class NoFetching {
 public:
  NoFetching();
  ~NoFetching();
  NoFetching(const NoFetching&) = delete;
  NoFetching& operator=(const NoFetching&) = delete;
};

}  // namespace tqimage
