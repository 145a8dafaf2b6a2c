// SPDX-License-Identifier: Apache-2.0
#include "geo/WebTiles.h"

#include <cpl_string.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

#include "core/numeric.h"
#include "core/stop_flag.h"
#include "geo/RasterTools.h"
#include "internal/gdal_raster.h"

namespace geo {
namespace {

using tqimage::DatasetPtr;
using tqimage::GdalScope;

constexpr double kHalfWorld = std::numbers::pi * 6378137.0;  // of Web Mercator, its metres
constexpr int kDeepest = 24;
constexpr int kMetaSide = 8;  // tiles that are warped at a time, in each direction

double PixelSize(int zoom) { return 2 * kHalfWorld / kWebTileSide / std::ldexp(1.0, zoom); }

/// Tiles of one zoom: first, and one past the last.
struct TileRange {
  int zoom = 0;
  int firstCol = 0, firstRow = 0, endCol = 0, endRow = 0;
  [[nodiscard]] int MetaCols() const { return (endCol - firstCol + kMetaSide - 1) / kMetaSide; }
  [[nodiscard]] int MetaRows() const { return (endRow - firstRow + kMetaSide - 1) / kMetaSide; }
};

struct MercatorBox {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
};

/// Ground of the raster in Web Mercator (and degrees, in `report`).
bool FindBounds(GDALDataset& raster, MercatorBox& box, WebTileReport& report) {
  const OGRSpatialReference* own = raster.GetSpatialRef();
  double t[6];
  if (own == nullptr || raster.GetGeoTransform(t) != CE_None) return false;
  OGRSpatialReference from(*own), mercator, degrees;
  if (mercator.importFromEPSG(3857) != OGRERR_NONE || degrees.importFromEPSG(4326) != OGRERR_NONE) {
    return false;
  }
  for (auto* crs : {&from, &mercator, &degrees}) {
    crs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  }
  const double x[2] = {t[0], t[0] + t[1] * raster.GetRasterXSize()};
  const double y[2] = {t[3] + t[5] * raster.GetRasterYSize(), t[3]};
  const auto bounds = [&](OGRSpatialReference& to, double out[4]) {
    const std::unique_ptr<OGRCoordinateTransformation> way(
        OGRCreateCoordinateTransformation(&from, &to));
    return way && way->TransformBounds(x[0], y[0], x[1], y[1], &out[0], &out[1], &out[2], &out[3],
                                       21) != 0;
  };
  double b[4], d[4];
  if (!bounds(mercator, b) || !bounds(degrees, d)) return false;
  box = {b[0], b[1], b[2], b[3]};
  report.west = d[0];
  report.south = d[1];
  report.east = d[2];
  report.north = d[3];
  return std::isfinite(b[0] + b[1] + b[2] + b[3]) && b[0] < b[2] && b[1] < b[3] &&
         std::max({-b[0], -b[1], b[2], b[3]}) <= kHalfWorld;
}

TileRange TilesOf(const MercatorBox& box, int zoom) {
  const double side = PixelSize(zoom) * kWebTileSide;
  const int last = (1 << zoom) - 1;
  TileRange range;
  range.zoom = zoom;
  range.firstCol = std::clamp(tqtortho::FloorToInt((box.minX + kHalfWorld) / side), 0, last);
  range.endCol = std::clamp(tqtortho::FloorToInt((box.maxX + kHalfWorld) / side), 0, last) + 1;
  range.firstRow = std::clamp(tqtortho::FloorToInt((kHalfWorld - box.maxY) / side), 0, last);
  range.endRow = std::clamp(tqtortho::FloorToInt((kHalfWorld - box.minY) / side), 0, last) + 1;
  return range;
}

/// The raster as it lies on the tiles of one zoom, computed where it is read.
DatasetPtr WarpedView(GDALDataset& raster, const TileRange& range) {
  const double side = PixelSize(range.zoom) * kWebTileSide;
  CPLStringList arguments;
  const auto add = [&](double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    arguments.AddString(text);
  };
  for (const char* text : {"-of", "VRT", "-t_srs", "EPSG:3857", "-r", "bilinear", "-dstalpha",
                           "-et", "0.05", "-wo", "NUM_THREADS=1", "-te"}) {
    arguments.AddString(text);
  }
  add(range.firstCol * side - kHalfWorld);
  add(kHalfWorld - range.endRow * side);
  add(range.endCol * side - kHalfWorld);
  add(kHalfWorld - range.firstRow * side);
  arguments.AddString("-ts");
  arguments.AddString(std::to_string((range.endCol - range.firstCol) * kWebTileSide).c_str());
  arguments.AddString(std::to_string((range.endRow - range.firstRow) * kWebTileSide).c_str());
  GDALWarpAppOptions* options = GDALWarpAppOptionsNew(arguments.List(), nullptr);
  if (options == nullptr) return nullptr;
  GDALDatasetH source = GDALDataset::ToHandle(&raster);
  int usageError = 0;
  DatasetPtr view(GDALDataset::FromHandle(GDALWarp("", nullptr, 1, &source, options, &usageError)));
  GDALWarpAppOptionsFree(options);
  if (!view || view->GetRasterCount() != 4) return nullptr;
  return view;
}

/// Cuts a window of the view into tiles and writes those that hold anything; the number written, or
/// -1.
int WriteTiles(GDALDataset& view, const TileRange& range, int meta, const std::string& dir) {
  const int col = range.firstCol + meta % range.MetaCols() * kMetaSide;
  const int row = range.firstRow + meta / range.MetaCols() * kMetaSide;
  const int cols = std::min(kMetaSide, range.endCol - col) * kWebTileSide;
  const int rows = std::min(kMetaSide, range.endRow - row) * kWebTileSide;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(cols) * rows * 4);
  if (view.RasterIO(GF_Read, (col - range.firstCol) * kWebTileSide,
                    (row - range.firstRow) * kWebTileSide, cols, rows, pixels.data(), cols, rows,
                    GDT_Byte, 4, nullptr, 4, static_cast<GSpacing>(4) * cols, 1,
                    nullptr) != CE_None) {
    return -1;
  }
  constexpr std::size_t kLine = 4 * static_cast<std::size_t>(kWebTileSide);
  std::vector<std::uint8_t> tile(kLine * kWebTileSide);
  int written = 0;
  for (int r = 0; r < rows; r += kWebTileSide) {
    for (int c = 0; c < cols; c += kWebTileSide) {
      bool any = false;
      for (int line = 0; line < kWebTileSide; ++line) {
        const auto* from = pixels.data() + 4 * (static_cast<std::size_t>(r + line) * cols + c);
        std::copy(from, from + kLine, tile.begin() + static_cast<std::ptrdiff_t>(line * kLine));
        for (std::size_t i = 3; i < kLine && !any; i += 4) any = from[i] != 0;
      }
      if (!any) continue;
      const std::string path = dir + "/" + std::to_string(range.zoom) + "/" +
                               std::to_string(col + c / kWebTileSide) + "/" +
                               std::to_string(row + r / kWebTileSide) + ".png";
      if (!WritePng(path, tile.data(), kWebTileSide, kWebTileSide, 4)) return -1;
      ++written;
    }
  }
  return written;
}

/// Tells of finished windows, one call at a time.
struct Teller {
  const std::function<bool(double)>& progress;
  double all = 0;
  double finished = 0;
  std::atomic<bool> stopped{false};
  void Tell() {
    if (!stopped && progress && !progress(++finished / all)) stopped = true;
  }
};

bool WriteZoom(const std::string& rasterPath, const TileRange& range, const std::string& dir,
               Teller& teller, std::int64_t& tiles) {
  std::atomic<bool> failed{false};
  const int count = range.MetaCols() * range.MetaRows();
#pragma omp parallel
  {
    GdalScope scope;
    // A dataset serves one thread; opening costs little beside a window.
    const DatasetPtr raster = tqimage::OpenRaster(rasterPath, false);
    const DatasetPtr view = raster ? WarpedView(*raster, range) : nullptr;
    if (!view) failed = true;
#pragma omp for schedule(dynamic)
    for (int meta = 0; meta < count; ++meta) {
      if (failed || teller.stopped || tqtortho::processStop.Raised()) continue;
      const int written = WriteTiles(*view, range, meta, dir);
      if (written < 0 || scope.Failed()) failed = true;
#pragma omp critical(tqtortho_web_tiles)
      {
        tiles += std::max(written, 0);
        teller.Tell();
      }
    }
  }
  return !failed;
}

}  // namespace

bool WriteWebTiles(const std::string& rasterPath, const std::string& dir,
                   const std::function<bool(double)>& progress, WebTileReport& report,
                   std::string& error) {
  report = {};
  const GdalScope scope;
  const DatasetPtr raster = tqimage::OpenRaster(rasterPath, false);
  MercatorBox box;
  if (!raster || !FindBounds(*raster, box, report)) {
    error = rasterPath + ": web tiles need a coordinate system whose place on the earth is known";
    return false;
  }
  // Pixels of the raster in Web Mercator, which stretches the ground towards the poles.
  const double own = std::sqrt((box.maxX - box.minX) / raster->GetRasterXSize() *
                               (box.maxY - box.minY) / raster->GetRasterYSize());
  while (report.maxZoom < kDeepest && PixelSize(report.maxZoom) > own * std::numbers::sqrt2) {
    ++report.maxZoom;
  }
  const double extent = std::max(box.maxX - box.minX, box.maxY - box.minY);
  while (report.minZoom < report.maxZoom &&
         PixelSize(report.minZoom + 1) * kWebTileSide >= extent) {
    ++report.minZoom;
  }
  Teller teller{progress};
  for (int zoom = report.minZoom; zoom <= report.maxZoom; ++zoom) {
    const TileRange range = TilesOf(box, zoom);
    teller.all += static_cast<double>(range.MetaCols()) * range.MetaRows();
  }
  for (int zoom = report.maxZoom; zoom >= report.minZoom; --zoom) {
    const bool written = WriteZoom(rasterPath, TilesOf(box, zoom), dir, teller, report.tiles);
    const bool stopped = teller.stopped || tqtortho::processStop.Raised();
    if (written && !stopped) continue;
    error = stopped ? "interrupted" : dir + ": cannot be written; is the disk full?";
    return false;
  }
  return true;
}

}  // namespace geo
