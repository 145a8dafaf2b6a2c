// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "fuzz/require.h"
#include "geo/InputPolicy.h"
#include "geo/Vector.h"
#include "testing/temp_dir.h"

using namespace tqtortho::fuzz;

// Polygon files of any content, under each of the names that are read: a ring of finite corners, or
// a refusal in one line. The first byte chooses the name and the map.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const tqtortho::testing::TempDir dir;
  static const bool policy = (geo::UseLocalFilesOnly(), true);
  (void)policy;
  constexpr const char* kNames[] = {"a.geojson", "a.gpkg", "a.kml", "a.fgb", "a.shp"};
  const std::string path = dir.Write(kNames[data[0] % 5], std::string(Text(data + 1, size - 1)));
  std::vector<tqfd::Point2_T<double>> ring;
  std::string error;
  if (!geo::ReadPolygon(path, data[0] % 2 == 0 ? "EPSG:32633" : "", ring, error)) {
    RequireReason(error);
    return 0;
  }
  Require(ring.size() >= 3);
  for (const auto& corner : ring) Require(std::isfinite(corner.x) && std::isfinite(corner.y));
  return 0;
}
