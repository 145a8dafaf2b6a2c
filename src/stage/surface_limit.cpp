// SPDX-License-Identifier: Apache-2.0
#include "stage/surface_limit.h"

namespace tqtortho::host {

std::string SurfaceTooLarge(const std::string& path, std::int64_t cols, std::int64_t rows,
                            int rim) {
  const std::int64_t wideCols = cols + 2 * std::int64_t{rim};
  const std::int64_t wideRows = rows + 2 * std::int64_t{rim};
  if (wideRows < 1 || wideCols <= kMostSurfaceCells / wideRows) return {};
  return path + ": has " + std::to_string(cols) + " x " + std::to_string(rows) +
         " cells, and at most 2,000,000,000 are possible; cut the surface model to the site "
         "(gdal_translate -projwin) or make it coarser (gdalwarp -tr)";
}

}  // namespace tqtortho::host
