// SPDX-License-Identifier: Apache-2.0
#include "report/report_layers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/limits.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "geo/ImageCodec.h"
#include "report/hillshade.h"

namespace tqtortho::host {
namespace {

constexpr float kNoHeight = std::numeric_limits<float>::quiet_NaN();

ReportGrid ChooseGrid(const ReportFiles& files, const std::vector<GroundPhoto>& photos,
                      double cell) {
  ReportGrid grid;
  for (const std::string* file : {&files.mosaic, &files.source, &files.quality}) {
    if (GridOverRaster(*file, limits::kReportSide, grid)) return grid;
  }
  tqfd::Rect2_T<double> all;
  for (const GroundPhoto& photo : photos) FoldInto(all, photo.ground);
  ReportGrid ofDsm;
  const bool surface = GridOverRaster(files.dsm, limits::kReportSide, ofDsm);
  if (HasArea(all)) {
    grid = GridOver(all, cell > 0 ? cell : ofDsm.cellX, limits::kReportSide);
    grid.projection = ofDsm.projection;
    return grid;
  }
  return surface ? ofDsm : ReportGrid{};
}

void ReadMosaic(const std::string& path, ReportLayers& layers) {
  const ReportGrid& grid = layers.grid;
  std::vector<std::uint8_t> band;
  for (int b = 0; b < 3; ++b) {
    if (!ReadOnGrid<std::uint8_t>(path, b + 1, grid, geo::Scaling::kSmooth, 0, band)) {
      layers.mosaic.clear();
      return;
    }
    layers.mosaic.resize(3 * grid.Count());
    for (std::size_t i = 0; i < grid.Count(); ++i) {
      layers.mosaic[3 * i + static_cast<std::size_t>(b)] = band[i];
    }
  }
  if (!ReadOnGrid<std::uint8_t>(path, 0, grid, geo::Scaling::kNearest, 0, layers.alpha)) {
    layers.alpha.clear();
  }
}

/// Heights of all cells, NaN where the DSM has none; empty without a DSM.
std::vector<float> ReadHeights(const std::string& path, const ReportGrid& grid) {
  std::vector<float> heights;
  constexpr float kNone = static_cast<float>(kDefaultNoData);
  if (!ReadOnGrid<float>(path, 1, grid, geo::Scaling::kSmooth, kNone, heights)) return {};
  for (float& h : heights) {
    if (!(std::fabs(h) < 1e6F) || h == kNone) h = kNoHeight;
  }
  return heights;
}

template <class T>
void AddPlane(const std::string& name, const std::vector<T>& cells,
              std::vector<EncodedLayer>& encoded) {
  if (cells.empty()) return;
  std::string bytes = geo::Deflate(cells.data(), cells.size() * sizeof(T));
  if (!bytes.empty()) encoded.push_back({name, "plane", 8 * sizeof(T), std::move(bytes)});
}

}  // namespace

ReportLayers MakeReportLayers(const ReportFiles& files, const std::vector<GroundPhoto>& photos,
                              double cell) {
  ReportLayers layers;
  layers.grid = ChooseGrid(files, photos, cell);
  const ReportGrid& grid = layers.grid;
  if (grid.cols == 0) return layers;
  ReadMosaic(files.mosaic, layers);
  if (!ReadOnGrid<std::uint16_t>(files.source, 1, grid, geo::Scaling::kNearest, 0, layers.source)) {
    layers.source.clear();
  }
  if (!ReadOnGrid<std::uint8_t>(files.quality, 1, grid, geo::Scaling::kNearest, 0,
                                layers.quality)) {
    layers.quality.clear();
  }
  layers.heights = ReadHeights(files.dsm, grid);
  const std::vector<float>& heights = layers.heights;
  if (heights.empty()) return layers;
  layers.relief.resize(grid.Count());
  ShadeRelief({heights.data(), grid.rows, grid.cols}, grid.cellX, grid.cellY, {},
              {layers.relief.data(), grid.rows, grid.cols});
  if (photos.empty()) return layers;
  layers.coverage = FindCoverage(grid, heights, photos);
  layers.naive = DrawNearest(grid, heights, photos, layers.coverage.nearest);
  const auto& drawn = layers.coverage.nearest;
  if (std::all_of(drawn.begin(), drawn.end(), [](std::uint16_t n) { return n == 0; })) {
    layers.naive.clear();
  }
  return layers;
}

std::vector<EncodedLayer> EncodeLayers(const ReportLayers& layers, std::size_t budget) {
  std::vector<EncodedLayer> encoded;
  const int cols = layers.grid.cols, rows = layers.grid.rows;
  for (const int quality : {85, 75, 62, 45}) {
    encoded.clear();
    std::size_t total = 0;
    const auto add = [&](const char* name, const std::vector<std::uint8_t>& pixels, int bands) {
      if (pixels.empty()) return;
      std::string bytes = geo::EncodeJpeg(pixels.data(), cols, rows, bands, quality);
      total += bytes.size();
      if (!bytes.empty()) encoded.push_back({name, "jpeg", 8, std::move(bytes)});
    };
    add("mosaic", layers.mosaic, 3);
    add("naive", layers.naive, 3);
    add("relief", layers.relief, 1);
    if (total <= budget) break;
  }
  AddPlane("alpha", layers.alpha, encoded);
  AddPlane("source", layers.source, encoded);
  AddPlane("quality", layers.quality, encoded);
  AddPlane("nearest", layers.coverage.nearest, encoded);
  AddPlane("frames", layers.coverage.frames, encoded);
  AddPlane("hidden", layers.coverage.hidden, encoded);
  std::vector<std::uint8_t> known;
  for (const std::uint8_t shade : layers.relief) known.push_back(shade > 0 ? 1 : 0);
  AddPlane("known", known, encoded);
  return encoded;
}

}  // namespace tqtortho::host
