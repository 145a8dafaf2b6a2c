// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "core/numeric.h"
#include "occlusion/border_merge.h"
#include "stage/call_guard.h"
#include "stage/cv_bridge.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {

namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;

/// More cells than this under one photo come from a damaged resolution.
constexpr std::int64_t kMaxRegionCells = 2'000'000'000;

/// Columns and rows of the border mask under a mask of the given size.
struct Region {
  tqfd::Rect2_T<int> cells;  // exclusive last column and row
  int cols = 0;
  int rows = 0;
};

/// Empty when the two cannot be laid over each other: an unusable resolution, less than one border
/// cell under the mask, or a place beyond what an int counts, which is far off the border mask.
Region RegionUnder(const GeoCoefficients& mask, int cols, int rows, const GeoCoefficients& border) {
  Region region;
  const double ratio = mask.GetResolution().x / border.GetResolution().x;
  if (!(ratio > 0) || !std::isfinite(ratio)) return region;
  const auto origin = mask.GetOrigin();
  const auto first = border.World2Raster(origin.x, origin.y, -1, -1);
  const int regionCols = TruncToInt(cols * ratio);
  const int regionRows = TruncToInt(rows * ratio);
  const std::int64_t endCol = std::int64_t{first.x} + regionCols;
  const std::int64_t endRow = std::int64_t{first.y} + regionRows;
  constexpr int kLast = std::numeric_limits<int>::max();
  if (regionCols < 1 || regionRows < 1 || endCol > kLast || endRow > kLast) return region;
  region.cells = {first.x, first.y, static_cast<int>(endCol), static_cast<int>(endRow)};
  region.cols = regionCols;
  region.rows = regionRows;
  return region;
}

/// Brings the border mask onto the grid of a photo's mask, nearest neighbours; 0 outside of it.
/// False without a border mask, and for a region too large to hold.
bool ReadBordersUnder(const GeoCoefficients& mask, GridView<std::uint8_t> borders) {
  TqImage image;
  if (!image.Open(BorderMaskPath(), true)) return false;
  const Region region = RegionUnder(mask, borders.cols, borders.rows, image.GetGeoCoefficients());
  if (region.cols == 0) return true;
  if (region.cols > kMaxRegionCells / region.rows) return false;
  std::vector<std::uint8_t> cells(static_cast<std::size_t>(region.cols) *
                                  static_cast<std::size_t>(region.rows));
  // Borders that cannot be read add nothing, like borders that are not there.
  if (!image.ReadImage(0, region.cells, tqimage::kByte, cells.data())) return true;
  cv::Mat target = AsMat(borders);
  cv::resize(AsMat(GridView<std::uint8_t>(cells.data(), region.rows, region.cols)), target,
             target.size(), 0, 0, cv::INTER_NEAREST);
  return true;
}

}  // namespace

bool tqTORProc::RefineOcclusion(std::string obsPath) {
  return Guarded([&] {
    tqorkit::PhotoInfo mask;
    GeoCoefficients geo;
    if (!TqImage::QuickReadImage(obsPath, mask, &geo)) return false;
    const GridView<std::uint8_t> hidden(mask.data.data(), mask.height, mask.width);
    if (mask.bands != 1 || mask.dataType != tqimage::kByte ||
        mask.data.size() != hidden.CellCount()) {
      return false;
    }
    std::vector<std::uint8_t> borderCells(mask.data.size(), 0);
    const GridView<std::uint8_t> border(borderCells.data(), mask.height, mask.width);
    if (!ReadBordersUnder(geo, border)) return false;
    std::vector<std::uint8_t> reachCells(mask.data.size(), 0);
    MergeFarBorders(hidden, border, {reachCells.data(), mask.height, mask.width});

    const auto save = [&](const std::vector<std::uint8_t>& cells, const std::string& name) {
      (void)tqorkit::TqFSManager::SaveImageFile(cells.data(), mask.width, mask.height, 1, name,
                                                true, &geo);
    };
    save(reachCells, ReachMaskName(obsPath));
    save(borderCells, FarBorderName(obsPath));
    (void)TqImage::QuickWriteImage(RefinedMaskName(obsPath), mask, &geo, true);
    return true;
  });
}

}  // namespace tqtortho
