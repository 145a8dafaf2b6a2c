// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "core/numeric.h"
#include "occlusion/tqDSM.h"
#include "stage/cv_bridge.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

using tqfd::Rect2_T;
using tqimage::GeoCoefficients;
using tqimage::TqImage;

/// Cells of one surface: 4 GiB of heights.
constexpr std::int64_t kMaxCells = std::int64_t{1} << 30;

bool SizeIsUsable(std::int64_t cols, std::int64_t rows) {
  return cols >= 1 && rows >= 1 && cols <= kMaxCells && rows <= kMaxCells / cols;
}

/// `first` is any int; false when the exclusive end would not be one.
bool SpanFits(std::int64_t first, std::int64_t count) {
  return first >= INT32_MIN && first + count <= INT32_MAX;
}

/// cv::resize itself decides the bytes: exact halving averages four cells, other factors go through
/// its tables, so neither is imitated.
void ResizeLinear(const std::vector<float>& in, std::int64_t inCols, std::int64_t inRows,
                  std::vector<float>& out, std::int64_t outCols, std::int64_t outRows) {
  std::vector<float> resized(static_cast<std::size_t>(outCols * outRows));
  cv::Mat target =
      AsMat(GridView<float>(resized.data(), static_cast<int>(outRows), static_cast<int>(outCols)));
  cv::resize(
      AsMat(GridView<const float>(in.data(), static_cast<int>(inRows), static_cast<int>(inCols))),
      target, target.size(), 0, 0, cv::INTER_LINEAR);
  out = std::move(resized);
}

bool ReadHeights(const TqImage& file, std::int64_t col, std::int64_t row, std::int64_t cols,
                 std::int64_t rows, std::vector<float>& heights) {
  if (!SizeIsUsable(cols, rows) || !SpanFits(col, cols) || !SpanFits(row, rows)) return false;
  heights.resize(static_cast<std::size_t>(cols * rows));
  const Rect2_T<int> rect{static_cast<int>(col), static_cast<int>(row),
                          static_cast<int>(col + cols), static_cast<int>(row + rows)};
  return file.ReadHeights(0, rect, NarrowToFloat(file.GetNoDataValue(0)), heights.data());
}

}  // namespace

bool tqDSM::Load(const std::string& path) {
  TqImage file;
  if (!file.Open(path, true)) return false;
  const GeoCoefficients geo = file.GetGeoCoefficients();
  cols = file.GetWidth();
  rows = file.GetHeight();
  if (!ReadHeights(file, 0, 0, cols, rows, heights)) return false;
  noData = NarrowToFloat(file.GetNoDataValue(0));
  cellSizeX = NarrowToFloat(geo.GetResolution().x);
  cellSizeY = NarrowToFloat(geo.GetResolution().y);
  originX = geo.GetOrigin().x;
  originY = geo.GetOrigin().y;
  projection = geo.GetProjection();
  SetBox();
  return true;
}

bool tqDSM::LoadRegion(const std::string& path, const std::string& /*ignoredPath*/,
                       const Rect2_T<double>& geoRect, float scale) {
  if (!(scale >= 1.0f)) return false;
  TqImage file;
  if (!file.Open(path, true)) return false;
  const GeoCoefficients geo = file.GetGeoCoefficients();
  const Rect2_T<int> cells = geo.World2Raster(geoRect, -1, -1);
  const std::int64_t w = std::int64_t{cells.maxX} - cells.minX + 1;
  const std::int64_t h = std::int64_t{cells.maxY} - cells.minY + 1;
  const std::int64_t newCols = TruncToInt64(static_cast<double>(static_cast<float>(w) / scale));
  const std::int64_t newRows = TruncToInt64(static_cast<double>(static_cast<float>(h) / scale));
  if (!SizeIsUsable(newCols, newRows) ||
      !ReadHeights(file, cells.minX, cells.minY, w, h, heights)) {
    return false;
  }
  if (scale > 1.0f) ResizeLinear(heights, w, h, heights, newCols, newRows);
  cols = static_cast<std::int32_t>(newCols);
  rows = static_cast<std::int32_t>(newRows);
  noData = NarrowToFloat(file.GetNoDataValue(0));
  cellSizeX = NarrowToFloat(static_cast<double>(w) * geo.GetResolution().x / cols);
  cellSizeY = NarrowToFloat(static_cast<double>(h) * geo.GetResolution().y / rows);
  originX = geoRect.minX;
  originY = geoRect.maxY;
  projection = geo.GetProjection();
  SetBox();
  return true;
}

bool tqDSM::LoadMasked(const std::string& dsmPath, const std::string& maskPath,
                       const Rect2_T<double>& geoRect) {
  TqImage file;
  if (!file.Open(dsmPath, true)) return false;
  const GeoCoefficients geo = file.GetGeoCoefficients();
  const double resX = geo.GetResolution().x;
  const double resY = geo.GetResolution().y;
  const std::int64_t newCols = TruncToInt64((geoRect.maxX - geoRect.minX) / resX + 0.5) + 1;
  const std::int64_t newRows = TruncToInt64((geoRect.minY - geoRect.maxY) / resY + 0.5) + 1;
  TqImage maskFile;
  if (!SizeIsUsable(newCols, newRows) || !maskFile.Open(maskPath, true) ||
      maskFile.GetWidth() != newCols || maskFile.GetHeight() != newRows) {
    return false;
  }
  cols = static_cast<std::int32_t>(newCols);
  rows = static_cast<std::int32_t>(newRows);
  std::vector<std::uint8_t> mask(static_cast<std::size_t>(newCols * newRows));
  if (!maskFile.ReadImage(0, {0, 0, cols, rows}, tqimage::kByte, mask.data())) return false;
  const int firstCol = TruncToInt((geoRect.minX - geo.GetOrigin().x) / resX + 0.5);
  const int firstRow = TruncToInt((geoRect.maxY - geo.GetOrigin().y) / resY + 0.5);
  if (!ReadHeights(file, firstCol, firstRow, newCols, newRows, heights)) return false;
  noData = NarrowToFloat(file.GetNoDataValue(0));
  for (std::size_t i = 0; i < heights.size(); ++i) {
    if (mask[i] == 0) heights[i] = noData;
  }
  cellSizeX = NarrowToFloat(resX);
  cellSizeY = NarrowToFloat(resY);
  originX = geoRect.minX;
  originY = geoRect.maxY;
  projection = geo.GetProjection();
  SetBox();
  return true;
}

bool tqDSM::Rescale(float factor) {
  const std::int64_t newCols =
      TruncToInt64(static_cast<double>(static_cast<float>(cols) * factor) + 0.5);
  const std::int64_t newRows =
      TruncToInt64(static_cast<double>(static_cast<float>(rows) * factor) + 0.5);
  if (!SizeIsUsable(cols, rows) || !SizeIsUsable(newCols, newRows)) return false;
  ResizeLinear(heights, cols, rows, heights, newCols, newRows);
  cols = static_cast<std::int32_t>(newCols);
  rows = static_cast<std::int32_t>(newRows);
  const float inverse = static_cast<float>(1.0 / static_cast<double>(factor));
  cellSizeX *= inverse;
  cellSizeY *= inverse;
  return true;
}

}  // namespace tqtortho
