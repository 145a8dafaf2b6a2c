// SPDX-License-Identifier: Apache-2.0
#include "visibility/photo_visibility.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "core/numeric.h"
#include "core/rect_ops.h"
#include "stage/call_guard.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using Rect = tqfd::Rect2_T<double>;
using CellRect = tqfd::Rect2_T<int>;

/// A surface part is held in memory, with as much again for its walls.
constexpr double kMaxSurfaceCells = 1e9;
/// Cells of a mask, and of the parts in which a mask file is made.
constexpr double kMaxMaskCells = 2e9;
constexpr double kMaskCellsAtATime = 3.2e7;
/// Cells of the surface read at a time while looking for its extremes.
constexpr int kScanCells = 1 << 22;
/// A cell ends an edge's surroundings on every side: the wall search looks two centres far, and
/// positions between the outermost centres need the next one.
constexpr int kMarginCells = 3;

/// Cells of the surface file under a rectangle, with the margin, cut to the file and one cell
/// around it; inverted when there are none.
CellRect CellsUnder(const GeoCoefficients& file, const Rect& rect) {
  const auto origin = file.GetOrigin();
  const auto cell = file.GetResolution();
  CellRect cells;
  cells.minX = std::max(FloorToInt((rect.minX - origin.x) / cell.x - kMarginCells), -1);
  cells.minY = std::max(FloorToInt((rect.maxY - origin.y) / cell.y - kMarginCells), -1);
  cells.maxX =
      std::min(FloorToInt((rect.maxX - origin.x) / cell.x + kMarginCells + 1), file.GetWidth());
  cells.maxY =
      std::min(FloorToInt((rect.minY - origin.y) / cell.y + kMarginCells + 1), file.GetHeight());
  return cells;
}

/// The part of `cells` that the file has, with exclusive ends.
CellRect InsideFile(const GeoCoefficients& file, const CellRect& cells) {
  return {std::max(cells.minX, 0), std::max(cells.minY, 0),
          std::min(cells.maxX + 1, file.GetWidth()), std::min(cells.maxY + 1, file.GetHeight())};
}

struct HeightRange {
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();
};

/// Extremes of the heights under some cells of the file, read strip by strip.
bool ScanHeights(const TqImage& image, const CellRect& inside, double noData, HeightRange& range) {
  const int cols = inside.maxX - inside.minX;
  const int stripRows = std::max(1, kScanCells / cols);
  std::vector<float> strip;
  for (int row = inside.minY; row < inside.maxY; row += stripRows) {
    const int end = std::min(row + stripRows, inside.maxY);
    strip.resize(static_cast<std::size_t>(cols) * (end - row));
    if (!image.ReadHeights(0, {inside.minX, row, inside.maxX, end}, NarrowToFloat(noData),
                           strip.data())) {
      return false;
    }
    for (const float height : strip) {
      if (!(std::fabs(height - noData) >= kRectifyNoDataTolerance)) continue;
      range.lowest = std::min<double>(range.lowest, height);
      range.highest = std::max<double>(range.highest, height);
    }
  }
  return true;
}

/// The rectangle stretched toward the point (x, y) by a share of the way.
Rect StretchToward(const Rect& rect, double x, double y, double share) {
  Rect stretched = rect;
  stretched.minX = std::min(rect.minX, rect.minX + share * (x - rect.minX));
  stretched.minY = std::min(rect.minY, rect.minY + share * (y - rect.minY));
  stretched.maxX = std::max(rect.maxX, rect.maxX + share * (x - rect.maxX));
  stretched.maxY = std::max(rect.maxY, rect.maxY + share * (y - rect.maxY));
  return stretched;
}

/// The ground under which lies everything that can hide a cell of `rect` from the camera. A sight
/// line is above the highest surface beyond this share of its way to the camera.
bool GroundThatHides(const TqImage& image, const GeoCoefficients& file, double noData,
                     const Rect& rect, const tqfd::Point3_T<double>& camera, Rect& ground) {
  ground = rect;
  const Rect whole = StretchToward(rect, camera.x, camera.y, 1);
  if (whole == rect) return true;
  const CellRect inside = InsideFile(file, CellsUnder(file, whole));
  if (!HasArea(inside)) return true;
  HeightRange range;
  if (!ScanHeights(image, inside, noData, range)) return false;
  // A wall's top may be reckoned half a step higher than its centre.
  const double slack = StepSurface::DefaultWallStep(file.GetResolution().x);
  const double depth = camera.z - (range.lowest - slack);
  const double share =
      range.highest + slack < camera.z ? (range.highest - range.lowest + 2 * slack) / depth : 1;
  // Without any height there is nothing to hide behind (and the share is no number).
  if (share > 0) ground = StretchToward(rect, camera.x, camera.y, std::min(share, 1.0));
  return true;
}

/// Columns and rows of the lattice from the first to the last cell centre of a rectangle.
bool LatticeOf(const Rect& rect, double gsd, VisibilityLattice& lattice) {
  if (!(gsd > 0) || !(rect.minX <= rect.maxX) || !(rect.minY <= rect.maxY)) return false;
  const double cols = std::floor((rect.maxX - rect.minX) / gsd + 0.5) + 1;
  const double rows = std::floor((rect.maxY - rect.minY) / gsd + 0.5) + 1;
  if (!(cols * rows <= kMaxMaskCells)) return false;
  lattice = {rect.minX, rect.maxY, gsd, TruncToInt(rows), TruncToInt(cols)};
  return true;
}

}  // namespace

bool ReadSurfacePart(const std::string& dsmPath, const tqfd::Rect2_T<double>& rect,
                     const tqfd::Point3_T<double>& camera, PhotoInfo& surface,
                     GeoCoefficients& coefficients) {
  return Guarded([&] {
    TqImage image;
    if (!image.Open(dsmPath, true)) return false;
    const GeoCoefficients file = image.GetGeoCoefficients();
    const auto cell = file.GetResolution();
    if (!(cell.x > 0) || !(cell.y < 0)) return false;
    const double noData = image.HasNoDataValue(0) ? image.GetNoDataValue(0) : kDefaultNoData;
    Rect ground;
    if (!GroundThatHides(image, file, noData, rect, camera, ground)) return false;
    const CellRect cells = CellsUnder(file, ground);
    const CellRect inside = InsideFile(file, cells);
    if (!HasArea(inside)) return false;
    const int cols = cells.maxX - cells.minX + 1;
    const int rows = cells.maxY - cells.minY + 1;
    if (static_cast<double>(cols) * rows > kMaxSurfaceCells) return false;

    // Around the file's own cells stays no data, so that the surface ends at their borders.
    const std::size_t count = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
    surface = PhotoInfo();
    surface.data.resize(count * sizeof(float));
    auto* heights = reinterpret_cast<float*>(surface.data.data());
    std::fill_n(heights, count, NarrowToFloat(noData));
    for (int row = inside.minY; row < inside.maxY; ++row) {
      float* first =
          heights + static_cast<std::size_t>(row - cells.minY) * cols + (inside.minX - cells.minX);
      if (!image.ReadHeights(0, {inside.minX, row, inside.maxX, row + 1}, NarrowToFloat(noData),
                             first)) {
        return false;
      }
    }
    const auto origin = file.Raster2World(cells.minX, cells.minY);
    const double transform[6] = {origin.x, cell.x, 0, origin.y, 0, cell.y};
    coefficients = GeoCoefficients(transform, cols, rows);
    coefficients.SetProjection(file.GetProjection());
    surface.width = cols;
    surface.height = rows;
    surface.bands = 1;
    surface.dataType = tqimage::kFloat32;
    surface.geoRect[0] = origin.x;
    surface.geoRect[1] = origin.y + (rows - 1) * cell.y;
    surface.geoRect[2] = origin.x + (cols - 1) * cell.x;
    surface.geoRect[3] = origin.y;
    surface.resX = cell.x;
    surface.resY = cell.y;
    surface.noData = NarrowToFloat(noData);
    surface.defaultZ = surface.noData;
    return true;
  });
}

bool JudgeVisibility(const PhotoCamera& camera, const std::string& dsmPath, const Rect& rect,
                     double gsd, const VisibilityOptions& options, std::vector<std::uint8_t>& mask,
                     int& cols, int& rows) {
  return Guarded([&] {
    VisibilityLattice lattice;
    PhotoInfo surface;
    GeoCoefficients coefficients;
    if (!LatticeOf(rect, gsd, lattice) ||
        !ReadSurfacePart(dsmPath, rect, camera.centre, surface, coefficients)) {
      return false;
    }
    const auto origin = coefficients.GetOrigin();
    const auto cell = coefficients.GetResolution();
    const StepSurface steps(
        GridView<const float>(reinterpret_cast<const float*>(surface.data.data()), surface.height,
                              surface.width),
        surface.noData, StepSurface::DefaultWallStep(cell.x));
    mask.assign(static_cast<std::size_t>(lattice.cols) * static_cast<std::size_t>(lattice.rows), 0);
    VisibilityOptions stoppable = options;
    stoppable.stop = &processStop;
    if (!ComputeVisibility(steps, {origin.x, origin.y, cell.x, -cell.y}, camera, lattice, stoppable,
                           {mask.data(), lattice.rows, lattice.cols})) {
      return false;
    }
    cols = lattice.cols;
    rows = lattice.rows;
    return true;
  });
}

bool WriteVisibility(const PhotoCamera& camera, const std::string& dsmPath, const Rect& rect,
                     double gsd, const VisibilityOptions& options, const std::string& outPath) {
  return Guarded([&] {
    VisibilityLattice lattice;
    if (!LatticeOf(rect, gsd, lattice)) return false;
    TqImage surface;
    if (!surface.Open(dsmPath, true)) return false;
    const GeoCoefficients file = surface.GetGeoCoefficients();
    surface.Close();
    const auto meetsSurface = [&](const Rect& part) {
      return HasArea(InsideFile(file, CellsUnder(file, part)));
    };
    if (!meetsSurface(rect)) return false;
    const double transform[6] = {lattice.firstX, gsd, 0, lattice.firstY, 0, -gsd};
    GeoCoefficients coefficients(transform, lattice.cols, lattice.rows);
    coefficients.SetProjection(file.GetProjection());

    TqImage out;
    if (!out.Create(outPath, lattice.cols, lattice.rows, 1, tqimage::kByte, tqimage::kGeoTiff,
                    true) ||
        !out.SetGeoCoefficients(coefficients)) {
      return false;
    }
    // Parts of whole rows; a part needs the surface under itself and toward the camera only.
    const int partRows = std::max(1, TruncToInt(kMaskCellsAtATime / lattice.cols));
    std::vector<std::uint8_t> part;
    for (int row = 0; row < lattice.rows; row += partRows) {
      const int end = std::min(row + partRows, lattice.rows);
      Rect partRect = rect;
      partRect.maxY = lattice.firstY - row * gsd;
      partRect.minY = lattice.firstY - (end - 1) * gsd;
      int partCols = 0;
      int judgedRows = 0;
      if (!meetsSurface(partRect)) {
        part.assign(static_cast<std::size_t>(lattice.cols) * (end - row), options.noHeight);
      } else if (!JudgeVisibility(camera, dsmPath, partRect, gsd, options, part, partCols,
                                  judgedRows) ||
                 partCols != lattice.cols || judgedRows != end - row) {
        return false;
      }
      if (!out.WriteImage(0, {0, row, lattice.cols, end}, tqimage::kByte, part.data())) {
        return false;
      }
    }
    return out.Close();
  });
}

}  // namespace tqtortho
