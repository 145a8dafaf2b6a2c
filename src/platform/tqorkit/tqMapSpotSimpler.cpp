// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqMapSpotSimpler.h"

#include <cstdint>
#include <vector>

#include "geo/RasterTools.h"
#include "tqfd/PathHelper.h"

namespace tqorkit {

std::string tqMapSpotSimpler::ThumbnailName(const std::string& path) { return path + "_thumb.png"; }

bool tqMapSpotSimpler::DoMapSpotSimpling(std::string path, int size) {
  const std::string name = ThumbnailName(path);
  tqfd::PathHelper::RemoveFile(name);
  std::vector<std::uint8_t> cells;
  int width = 0;
  int height = 0;
  int bands = 0;
  return geo::ReadReduced(path, size, cells, width, height, bands) &&
         geo::WritePng(name, cells.data(), width, height, bands);
}

}  // namespace tqorkit
