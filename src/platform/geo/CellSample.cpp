// SPDX-License-Identifier: Apache-2.0
#include "geo/CellSample.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"
#include "internal/gdal_raster.h"

namespace geo {
namespace {

constexpr std::int64_t kMostCells = 4'000'000;
constexpr int kFewestCells = 100'000;  // of an overview

/// The smallest overview that shows enough, or the band itself.
GDALRasterBand* Coarse(GDALRasterBand* band) {
  GDALRasterBand* best = band;
  for (int i = 0; i < band->GetOverviewCount(); ++i) {
    GDALRasterBand* next = band->GetOverview(i);
    const auto cells = [](GDALRasterBand* b) {
      return static_cast<std::int64_t>(b->GetXSize()) * b->GetYSize();
    };
    if (next != nullptr && cells(next) >= kFewestCells && cells(next) < cells(best)) best = next;
  }
  return best;
}

}  // namespace

bool SampleCells(const std::string& path, CellSample& sample) {
  sample = {};
  tqimage::GdalScope scope;
  const tqimage::DatasetPtr file = tqimage::OpenRaster(path, false);
  if (!file) return false;
  const tqimage::NoDataRule rule = tqimage::ReadNoDataRule(*file->GetRasterBand(1));
  GDALRasterBand* band = Coarse(file->GetRasterBand(1));
  int width = 0, height = 0;
  band->GetBlockSize(&width, &height);
  const std::int64_t cells = static_cast<std::int64_t>(band->GetXSize()) * band->GetYSize();
  const std::int64_t inBlock = std::max<std::int64_t>(1, static_cast<std::int64_t>(width) * height);
  const int cols = (band->GetXSize() - 1) / width + 1, rows = (band->GetYSize() - 1) / height + 1;
  const std::int64_t blocks = static_cast<std::int64_t>(cols) * rows;
  const std::int64_t wanted =
      cells <= kMostCells ? blocks : std::max<std::int64_t>(1, kMostCells / inBlock);
  const double share = static_cast<double>(blocks) / static_cast<double>(wanted);
  const int stepCols = std::clamp(tqtortho::TruncToInt(std::ceil(std::sqrt(share))), 1, cols);
  const int stepRows =
      std::clamp(tqtortho::TruncToInt(std::ceil(share / stepCols)), 1, std::max(rows, 1));
  std::vector<float> block;
  const auto take = [&](int col, int row) {
    const int left = col * width, top = row * height;
    const int wide = std::min(width, band->GetXSize() - left);
    // One block of a file without tiling may be the whole of it.
    const int high = std::min({height, band->GetYSize() - top,
                               tqtortho::TruncToInt(static_cast<double>(kMostCells) / wide) + 1});
    block.resize(static_cast<std::size_t>(wide) * static_cast<std::size_t>(high));
    if (band->RasterIO(GF_Read, left, top, wide, high, block.data(), wide, high, GDT_Float32, 0, 0,
                       nullptr) != CE_None) {
      return false;
    }
    if (rule.floating) tqimage::NormaliseHeights(rule, block.data(), block.size());
    sample.looked += static_cast<std::int64_t>(block.size());
    const float none = tqtortho::NarrowToFloat(rule.value);
    for (const float h : block) {
      const bool empty = !std::isfinite(h) || h == static_cast<float>(tqtortho::kDefaultNoData) ||
                         (rule.named && h == none);
      if (!empty) sample.heights.push_back(h);
    }
    return true;
  };
  // One of each group of blocks, its place in the group changing from group to group.
  for (int i = 0; i * stepRows < rows; ++i) {
    for (int j = 0; j * stepCols < cols; ++j) {
      const int row = i * stepRows + j % stepRows, col = j * stepCols + i % stepCols;
      if (row < rows && col < cols && !take(col, row)) return false;
    }
  }
  return !scope.Failed();
}

}  // namespace geo
