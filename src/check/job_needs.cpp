// SPDX-License-Identifier: Apache-2.0
//
// Each stage's needs are the sum of what it holds at a time. Sizes of single cells follow from the
// structures named beside them; what allocators and libraries add was measured on finished jobs
// (docs/accuracy.md), stage by stage. tests/estimate_test.py holds the sums to the truth.
#include "check/job_needs.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "core/limits.h"
#include "internal/process_memory.h"
#include "mosaic/mosaic_stage.h"

namespace tqtortho::host {
namespace {

constexpr double kMega = 1e6;

// Program, libraries, coordinate systems, survey.
constexpr double kBase = 62 * kMega;
// Surface preparation: heights in two copies, fill, origin, border mask.
constexpr double kPreparedDsmCell = 22;
// One photo on its way into the mosaic: decoded pixels of three bands; for each ortho cell colour
// 3, height 4, rating, mask, wall, replaced, and what rating needs.
constexpr double kPhotoPixel = 3;
constexpr double kLayerCell = 11;
// What is kept of it until the mosaic is made: colours 3, ratings as runs.
constexpr double kKeptPixels = 3;
constexpr double kKeptRuns = 0.6;
// A tile: labels 2, colour 3, height 4, results 8, seams and fill; and of each photo that touches
// it a rating, for some of them colours.
constexpr double kTileCell = 48;
constexpr double kTileCellOfView = 1;
constexpr double kTileMargin = 64;
// What the writers of mosaic, texture and numbers have in GDAL's cache, as far as there is room.
constexpr double kWrittenCell = 12;
// Filling an ortho from the mosaic.
constexpr double kUpdatedCell = 18;
// The report's page: its layers, and their encoded copies.
constexpr double kReportBase = 10 * kMega;
constexpr double kReportCell = 33;

// Bytes on disk. An ortho lies there twice, as rectified and as finished.
constexpr double kOrthoFiles = 2.3;
constexpr double kFinerCells = 0.2;  // cells finer than pixels compress better: by this power
constexpr double kMosaicFile = 1.75;
constexpr double kTextureFiles = 1.25;
constexpr double kDsmFiles = 2.5;
constexpr double kReportFileBase = 0.4 * kMega;
constexpr double kReportFile = 0.7;
constexpr double kPreviewFile = 1.2;
constexpr double kPreviewCells = 4 * kMega;
constexpr double kSeamsFile = 0.2 * kMega;  // and photo

// Seconds of one core.
constexpr double kSecondsPerOrthoCell = 6e-7;
constexpr double kSecondsPerMosaicCell = 8e-7;
constexpr double kSecondsPerDsmCell = 1.5e-7;
constexpr double kSecondsBase = 1;

/// The sum over as many of the photos as are in hand at a time, the costliest ones.
double InHand(const JobSizes& sizes, double perPixel, double perCell) {
  std::vector<double> bytes;
  for (const auto& photo : sizes.photos) {
    bytes.push_back(perPixel * photo.pixels + perCell * photo.orthoCells);
  }
  const auto count = std::min<std::size_t>(bytes.size(), std::max(sizes.workers, 1));
  const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(count);
  std::partial_sort(bytes.begin(), end, bytes.end(), std::greater<>());
  double sum = 0;
  for (auto at = bytes.begin(); at != end; ++at) sum += *at;
  return sum;
}

double KeptLayers(const JobSizes& sizes) {
  const auto budget = static_cast<double>(MosaicOptions{}.layerMemory);
  return std::min(kKeptRuns * sizes.orthoCells, budget) +
         std::min(kKeptPixels * sizes.orthoCells, 4 * budget);
}

double TilesInHand(const JobSizes& sizes) {
  const double side = MosaicOptions{}.tileSide + 2 * kTileMargin;
  const auto count = static_cast<double>(sizes.photos.size());
  // A photo touches a tile when its box, widened by the tile, holds the tile's middle.
  const double photoSide = std::sqrt(std::max(sizes.orthoCells / std::max(count, 1.0), 1.0));
  const double widened = (1 + side / photoSide) * (1 + side / photoSide);
  const double views = std::min(count, sizes.overlap * widened);
  const double cells = std::min(sizes.workers * side * side, 1.2 * sizes.mosaicCells);
  return cells * (kTileCell + kTileCellOfView * views);
}

/// Of all orthos: detail comes from pixels, however small the cells are made.
double OrthoFileBytes(const JobSizes& sizes) {
  double bytes = 0;
  for (const auto& photo : sizes.photos) {
    const double detail = std::min(photo.pixels / std::max(photo.orthoCells, 1.0), 1.0);
    bytes += kOrthoFiles * photo.orthoCells * std::pow(detail, kFinerCells);
  }
  return bytes;
}

double ReportCells(const JobSizes& sizes) {
  return std::min(sizes.mosaicCells,
                  static_cast<double>(limits::kReportSide) * limits::kReportSide);
}

}  // namespace

double MosaicFileBytes(const JobSizes& sizes) { return kMosaicFile * sizes.mosaicCells; }

double DiskNeeded(const JobSizes& sizes) {
  return OrthoFileBytes(sizes) + (kMosaicFile + kTextureFiles) * sizes.mosaicCells +
         kDsmFiles * sizes.dsmCells + kReportFileBase + kReportFile * ReportCells(sizes) +
         kPreviewFile * std::min(sizes.mosaicCells, kPreviewCells) +
         kSeamsFile * static_cast<double>(sizes.photos.size());
}

double MemoryNeeded(const JobSizes& sizes) {
  const double kept = KeptLayers(sizes);
  const double cache = static_cast<double>(tqimage::kRasterCacheBytes);
  return kBase +
         std::max({kPreparedDsmCell * sizes.dsmCells, kept + InHand(sizes, kPhotoPixel, kLayerCell),
                   kept + TilesInHand(sizes) + std::min(kWrittenCell * sizes.mosaicCells, cache),
                   InHand(sizes, 0, kUpdatedCell) + cache,
                   kReportBase + kReportCell * ReportCells(sizes)});
}

double SecondsNeeded(const JobSizes& sizes) {
  const double useful = std::clamp(sizes.workers, 1, omp_get_num_procs());
  return kSecondsBase + kSecondsPerDsmCell * sizes.dsmCells +
         (kSecondsPerOrthoCell * sizes.orthoCells + kSecondsPerMosaicCell * sizes.mosaicCells) /
             useful;
}

}  // namespace tqtortho::host
