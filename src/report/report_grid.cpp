// SPDX-License-Identifier: Apache-2.0
#include "report/report_grid.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"
#include "geo/RasterTools.h"

namespace tqtortho::host {
namespace {

/// A raster's ground from edge to edge, and its cells.
struct RasterPlace {
  tqfd::Rect2_T<double> ground;
  double cellX = 0;
  double cellY = 0;
  std::string projection;
};

bool PlaceOf(const std::string& path, RasterPlace& place) {
  geo::RasterSummary raster;
  std::string error;
  if (!geo::DescribeRaster(path, raster, error) || !raster.hasGeoreference || raster.rotated) {
    return false;
  }
  const auto origin = raster.coefficients.GetOrigin();
  const auto cell = raster.coefficients.GetResolution();
  place.cellX = cell.x;
  place.cellY = -cell.y;
  place.ground.minX = origin.x - 0.5 * place.cellX;
  place.ground.maxY = origin.y + 0.5 * place.cellY;
  place.ground.maxX = place.ground.minX + raster.width * place.cellX;
  place.ground.minY = place.ground.maxY - raster.height * place.cellY;
  place.projection = raster.coefficients.GetProjection();
  return true;
}

}  // namespace

ReportGrid GridOver(const tqfd::Rect2_T<double>& ground, double cell, int maxSide) {
  ReportGrid grid;
  const double width = ground.maxX - ground.minX;
  const double height = ground.maxY - ground.minY;
  if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height) && cell > 0)) {
    return grid;
  }
  const double step = std::max(cell, std::max(width, height) / maxSide);
  const auto count = [&](double length) {
    return std::clamp(TruncToInt(std::round(length / step)), 1, maxSide);
  };
  grid.minX = ground.minX;
  grid.maxY = ground.maxY;
  grid.cols = count(width);
  grid.rows = count(height);
  grid.cellX = width / grid.cols;
  grid.cellY = height / grid.rows;
  return grid;
}

bool GridOverRaster(const std::string& path, int maxSide, ReportGrid& grid) {
  RasterPlace place;
  if (!PlaceOf(path, place)) return false;
  grid = GridOver(place.ground, std::min(place.cellX, place.cellY), maxSide);
  grid.projection = place.projection;
  return grid.cols > 0;
}

ReportSpan CellsIn(const ReportGrid& grid, const tqfd::Rect2_T<double>& ground) {
  // A hair more than half a cell, so that a cell ending where the ground ends is inside.
  constexpr double kHalf = 0.5 + 1e-6;
  const auto first = [&](double cells) {
    return std::max(TruncToInt(std::ceil(cells - kHalf)), 0);
  };
  const auto end = [&](double cells, int count) {
    return std::min(TruncToInt(std::floor(cells + kHalf)), count);
  };
  ReportSpan span;
  span.firstCol = first((ground.minX - grid.minX) / grid.cellX);
  span.firstRow = first((grid.maxY - ground.maxY) / grid.cellY);
  span.cols = end((ground.maxX - grid.minX) / grid.cellX, grid.cols) - span.firstCol;
  span.rows = end((grid.maxY - ground.minY) / grid.cellY, grid.rows) - span.firstRow;
  if (span.cols <= 0 || span.rows <= 0) return {};
  return span;
}

template <class T>
bool ReadOnGrid(const std::string& path, int band, const ReportGrid& grid, geo::Scaling scaling,
                T outside, std::vector<T>& cells) {
  RasterPlace place;
  if (!PlaceOf(path, place)) return false;
  // Cells that lie wholly in the raster.
  tqfd::Rect2_T<double> inner = place.ground;
  inner.minX += 0.5 * grid.cellX;
  inner.maxX -= 0.5 * grid.cellX;
  inner.minY += 0.5 * grid.cellY;
  inner.maxY -= 0.5 * grid.cellY;
  const ReportSpan span = CellsIn(grid, inner);
  if (span.cols == 0) return false;
  geo::ScaledWindow window;
  window.col = (grid.minX + span.firstCol * grid.cellX - place.ground.minX) / place.cellX;
  window.row = (place.ground.maxY - (grid.maxY - span.firstRow * grid.cellY)) / place.cellY;
  window.cols = span.cols * grid.cellX / place.cellX;
  window.rows = span.rows * grid.cellY / place.cellY;
  window.outCols = span.cols;
  window.outRows = span.rows;
  std::vector<T> part;
  if (!geo::ReadScaled(path, band, window, scaling, part)) return false;
  if (span.cols == grid.cols && span.rows == grid.rows) {
    cells = std::move(part);
    return true;
  }
  cells.assign(grid.Count(), outside);
  for (int row = 0; row < span.rows; ++row) {
    std::copy_n(part.begin() + static_cast<std::ptrdiff_t>(row) * span.cols, span.cols,
                cells.begin() +
                    static_cast<std::ptrdiff_t>(grid.Index(span.firstRow + row, span.firstCol)));
  }
  return true;
}

template bool ReadOnGrid(const std::string&, int, const ReportGrid&, geo::Scaling, std::uint8_t,
                         std::vector<std::uint8_t>&);
template bool ReadOnGrid(const std::string&, int, const ReportGrid&, geo::Scaling, std::uint16_t,
                         std::vector<std::uint16_t>&);
template bool ReadOnGrid(const std::string&, int, const ReportGrid&, geo::Scaling, float,
                         std::vector<float>&);

}  // namespace tqtortho::host
