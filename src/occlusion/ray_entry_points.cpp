// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/numeric.h"
#include "occlusion/tqDSM.h"
#include "stage/border_mask.h"
#include "stage/call_guard.h"
#include "stage/cv_bridge.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqExtOri.h"
#include "tqtortho/tqRayTracer.h"

namespace tqtortho {
namespace {

using tqfd::PathHelper;
using tqfd::Point3_T;
using tqfd::Rect2_T;
using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using tqorkit::tqExtOri;
using Mask = std::vector<std::uint8_t>;

/// Fine cells of the pyramid are twice the DSM's, coarse ones eight times.
constexpr float kFineScale = 2.0f;
constexpr float kCoarseOfFine = 0.25f;
/// The border rule reaches this many cells beyond the marked borders.
constexpr int kBorderReach = 3;
/// Cells of one output mask.
constexpr std::int64_t kMaxMaskCells = std::int64_t{1} << 30;

/// The grid of a photo's output, fixed by its rectangle and ground sample distances.
struct OutputGrid {
  int cols = 0;
  int rows = 0;
  double transform[6] = {};

  [[nodiscard]] GeoCoefficients Georeference(int gridCols, int gridRows,
                                             const std::string& projection) const {
    GeoCoefficients geo(transform, gridCols, gridRows);
    geo.SetProjection(projection);
    return geo;
  }
};

/// Nothing for a distance that is zero, of the wrong sign or not finite, and for an empty grid.
std::optional<OutputGrid> OutputGridOf(tqExtOri& eo) {
  const Rect2_T<double>& rect = eo.GetGeoRect();
  const auto gsd = eo.GetGSD();
  if (!(gsd.x > 0 && std::isfinite(gsd.x) && gsd.y < 0 && std::isfinite(gsd.y))) return {};
  const std::int64_t cols = TruncToInt64((rect.maxX - rect.minX) / gsd.x + 0.5) + 1;
  const std::int64_t rows = TruncToInt64((rect.minY - rect.maxY) / gsd.y + 0.5) + 1;
  if (cols < 1 || rows < 1 || cols > kMaxMaskCells || rows > kMaxMaskCells / cols) return {};
  return OutputGrid{
      static_cast<int>(cols), static_cast<int>(rows), {rect.minX, gsd.x, 0, rect.maxY, 0, gsd.y}};
}

Point3_T<double> CameraOf(const tqExtOri& eo) {
  double pose[6] = {};
  eo.GetPos(pose);
  return {pose[0], pose[1], pose[2]};
}

/// Removes an old output, so that a failure never leaves a stale mask. Refuses to when the output
/// is one of the inputs.
bool ClearOutput(const std::string& outPath, std::initializer_list<std::string> inputs) {
  for (const std::string& input : inputs) {
    std::error_code notThere;
    if (std::filesystem::equivalent(outPath, input, notThere)) return false;
  }
  PathHelper::RemoveFile(outPath);
  return true;
}

bool WriteMask(const std::string& path, const Mask& mask, int cols, int rows,
               const GeoCoefficients* geo) {
  TqImage file;
  return file.Create(path, cols, rows, 1, tqimage::kByte, tqimage::kGeoTiff, true) &&
         (geo == nullptr || file.SetGeoCoefficients(*geo)) &&
         file.WriteImage(0, {0, 0, cols, rows}, tqimage::kByte, mask.data()) && file.Close();
}

Mask Resized(const Mask& mask, int cols, int rows, const OutputGrid& grid, int interpolation) {
  Mask out(static_cast<std::size_t>(grid.cols) * static_cast<std::size_t>(grid.rows));
  cv::Mat target = AsMat(GridView<std::uint8_t>(out.data(), grid.rows, grid.cols));
  cv::resize(AsMat(GridView<const std::uint8_t>(mask.data(), rows, cols)), target, target.size(), 0,
             0, interpolation);
  return out;
}

/// Examine what lies under the coarse mask, widened by one coarse cell.
void AddCoarseHidden(const Mask& coarse, int coarseCols, int coarseRows,
                     GridView<std::uint8_t> examine) {
  cv::Mat widened;
  Dilate3x3(AsMat(GridView<const std::uint8_t>(coarse.data(), coarseRows, coarseCols)), widened);
  for (int r = 0; r < examine.rows; ++r) {
    const int coarseRow = TruncToInt(static_cast<double>(static_cast<float>(r) * kCoarseOfFine));
    if (coarseRow >= coarseRows) break;
    const std::uint8_t* marked = widened.ptr<std::uint8_t>(coarseRow);
    for (int c = 0; c < examine.cols; ++c) {
      const int coarseCol = TruncToInt(static_cast<double>(static_cast<float>(c) * kCoarseOfFine));
      if (coarseCol < coarseCols && marked[coarseCol] != 0) examine.At(r, c) = 255;
    }
  }
}

/// Examine what lies near tall borders.
///
/// Kept: row and column of the fine grid index the border tile as they are. The border mask is
/// expected to have the fine grid's cells; one with other cells marks other places.
void AddTallBorders(const Rect2_T<double>& rect, GridView<std::uint8_t> examine) {
  std::optional<BorderTile> tile = ReadBorderTile(rect);
  if (!tile || tile->cols <= 0 || tile->rows <= 0) return;
  const GridView<std::uint8_t> border(tile->cells.data(), tile->rows, tile->cols);
  cv::Mat cells = AsMat(border);
  Dilate3x3(cells, cells, kBorderReach);
  for (int r = 0; r < examine.rows && r < border.rows; ++r) {
    for (int c = 0; c < examine.cols && c < border.cols; ++c) {
      if (border.At(r, c) != 0) examine.At(r, c) = 255;
    }
  }
}

/// Leave out what the photo's ortho image does not cover: 0 in its first band.
void RemoveOutsideOrtho(const std::string& orthoPath, float cellSizeX,
                        GridView<std::uint8_t> examine) {
  PhotoInfo ortho;
  GeoCoefficients geo;
  int bands = 1;
  if (!TqImage::QuickReadImage(orthoPath, ortho, &geo, 0, &bands)) return;
  const std::size_t pixels =
      static_cast<std::size_t>(ortho.width) * static_cast<std::size_t>(ortho.height);
  if (ortho.width <= 0 || ortho.height <= 0 || ortho.data.size() < pixels) return;
  const std::size_t pixelBytes = ortho.data.size() / pixels;
  const std::size_t sampleBytes = pixelBytes / static_cast<std::size_t>(std::max(bands, 1));
  const float step = NarrowToFloat(static_cast<double>(cellSizeX) / geo.GetResolution().x);
  for (int r = 0; r < examine.rows; ++r) {
    const int row = TruncToInt(static_cast<double>(static_cast<float>(r) * step));
    if (row < 0 || row >= ortho.height) continue;
    const std::uint8_t* line =
        ortho.data.data() + static_cast<std::size_t>(row) * ortho.width * pixelBytes;
    for (int c = 0; c < examine.cols; ++c) {
      const int col = TruncToInt(static_cast<double>(static_cast<float>(c) * step));
      if (col < 0 || col >= ortho.width) continue;
      const std::uint8_t* sample = line + static_cast<std::size_t>(col) * pixelBytes;
      if (std::all_of(sample, sample + sampleBytes, [](std::uint8_t b) { return b == 0; })) {
        examine.At(r, c) = 0;
      }
    }
  }
}

/// A square of every pitch of the generated surface is a block.
bool WriteSelfTestSurface(const std::string& path) {
  constexpr int kSize = 4000;
  constexpr int kFirst = 100;
  constexpr int kPitch = 200;
  constexpr int kEnd = 3900;
  constexpr int kBlock = 50;
  std::vector<float> heights(static_cast<std::size_t>(kSize) * kSize, 0.0f);
  for (int row = kFirst; row < kEnd; row += kPitch) {
    for (int col = kFirst; col < kEnd; col += kPitch) {
      for (int r = row; r < row + kBlock; ++r) {
        std::fill_n(heights.begin() + static_cast<std::ptrdiff_t>(r) * kSize + col, kBlock, 100.0f);
      }
    }
  }
  const double transform[6] = {100, 1, 0, 100, 0, -1};
  TqImage file;
  return file.Create(path, kSize, kSize, 1, tqimage::kFloat32, tqimage::kGeoTiff, true) &&
         file.SetGeoCoefficients(GeoCoefficients(transform, kSize, kSize)) &&
         file.SetNoDataValue(0, kDefaultNoData) &&
         file.WriteImage(0, {0, 0, kSize, kSize}, tqimage::kFloat32, heights.data()) &&
         file.Close();
}

}  // namespace

bool tqRayTracer::DoRayTracingOnPyr(tqExtOri& eo, std::string dsmPath, std::string outPath,
                                    std::string orthoPath) {
  return Guarded([&] {
    if (!ClearOutput(outPath, {dsmPath, orthoPath})) return false;
    const std::optional<OutputGrid> grid = OutputGridOf(eo);
    tqDSM fine;
    if (!grid || !fine.LoadRegion(dsmPath, orthoPath, eo.GetGeoRect(), kFineScale)) return false;
    tqDSM coarse = fine;
    if (!coarse.Rescale(kCoarseOfFine)) return false;

    Point3_T<double> camera = CameraOf(eo);
    Mask mask;
    int cols = 0;
    int rows = 0;
    RayTracing(coarse, camera, mask, cols, rows, nullptr, 0);

    Mask examine(fine.heights.size(), 0);
    const GridView<std::uint8_t> examineGrid(examine.data(), fine.rows, fine.cols);
    AddCoarseHidden(mask, cols, rows, examineGrid);
    AddTallBorders(eo.GetGeoRect(), examineGrid);
    RemoveOutsideOrtho(orthoPath, fine.cellSizeX, examineGrid);
    RayTracing(fine, camera, mask, cols, rows, examine.data(), 0);

    Mask out = Resized(mask, cols, rows, *grid, cv::INTER_NEAREST);
    cv::Mat closed = AsMat(GridView<std::uint8_t>(out.data(), grid->rows, grid->cols));
    Dilate3x3(closed, closed);
    Erode3x3(closed, closed);
    const GeoCoefficients geo = grid->Georeference(grid->cols, grid->rows, fine.projection);
    return WriteMask(outPath, out, grid->cols, grid->rows, &geo);
  });
}

bool tqRayTracer::DoRayTracingOnThumbnail(tqExtOri& eo, std::string dsmPath, std::string outPath,
                                          std::string ignoredPath) {
  return Guarded([&] {
    if (!ClearOutput(outPath, {dsmPath})) return false;
    const std::optional<OutputGrid> grid = OutputGridOf(eo);
    tqDSM dsm;
    if (!grid || !dsm.LoadRegion(dsmPath, ignoredPath, eo.GetGeoRect(), 1.0f)) return false;
    Point3_T<double> camera = CameraOf(eo);
    Mask mask;
    int cols = 0;
    int rows = 0;
    RayTracing(dsm, camera, mask, cols, rows, nullptr, 0);
    const Mask out = Resized(mask, cols, rows, *grid, cv::INTER_LINEAR);
    const GeoCoefficients geo = grid->Georeference(grid->cols, grid->rows, dsm.projection);
    return WriteMask(outPath, out, grid->cols, grid->rows, &geo);
  });
}

bool tqRayTracer::DoRayTracing(tqExtOri& eo, std::string dsmPath, std::string outPath,
                               std::string maskPath) {
  return Guarded([&] {
    if (!ClearOutput(outPath, {dsmPath, maskPath})) return false;
    const std::optional<OutputGrid> grid = OutputGridOf(eo);
    tqDSM dsm;
    if (!grid || !dsm.LoadMasked(dsmPath, maskPath, eo.GetGeoRect())) return false;
    Point3_T<double> camera = CameraOf(eo);
    Mask mask;
    int cols = 0;
    int rows = 0;
    RayTracing(dsm, camera, mask, cols, rows, nullptr, 0);
    const GeoCoefficients geo = grid->Georeference(cols, rows, dsm.projection);
    return WriteMask(outPath, mask, cols, rows, &geo);
  });
}

bool tqRayTracer::DoRayTracing(std::string /*ignoredPath*/, std::string dsmPath,
                               std::string outPath) {
  return Guarded([&] {
    PathHelper::RemoveFile(outPath);
    tqDSM dsm;
    if (!WriteSelfTestSurface(dsmPath) || !dsm.Load(dsmPath)) return false;
    if (!ClearOutput(outPath, {dsmPath})) return false;
    Point3_T<double> camera{2000.0, 2000.0, 500.0};
    Mask mask;
    int cols = 0;
    int rows = 0;
    RayTracing(dsm, camera, mask, cols, rows, nullptr, 0);
    return WriteMask(outPath, mask, cols, rows, nullptr);
  });
}

}  // namespace tqtortho
