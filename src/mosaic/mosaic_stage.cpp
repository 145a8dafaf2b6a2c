// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_stage.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <optional>
#include <utility>

#include "camera/photo_camera.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "mosaic/mosaic_tile.h"
#include "stage/call_guard.h"
#include "stage/file_stamp.h"
#include "stage/job_faults.h"
#include "stage/photo_files.h"
#include "stage/surface_limit.h"
#include "tqfd/Timer.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqBinaryData.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using tqimage::TqImage;

/// More cells on a side than any survey has; keeps sizes and block numbers in range.
constexpr int kMostCells = 2'000'000;

/// Times the stages and passes progress on; the first false stops everything.
class Stages {
 public:
  Stages(const MosaicProgress& progress, MosaicReport& report)
      : progress_(progress), report_(report) {}
  void Begin(const char* name) {
    End();
    name_ = name;
    timer_.Start();
    Tell(0);
  }
  void End() {
    if (name_ == nullptr) return;
    timer_.Stop();
    report_.stages.push_back({name_, timer_.ElapsedSeconds()});
    name_ = nullptr;
  }
  /// Callable from any thread inside a critical section of the caller's.
  void Tell(double percent) {
    if (progress_ && !stopped_ && !progress_(name_, percent)) stopped_ = true;
  }
  [[nodiscard]] bool Stopped() const { return stopped_; }

 private:
  const MosaicProgress& progress_;
  MosaicReport& report_;
  tqfd::Timer timer_;
  const char* name_ = nullptr;
  std::atomic<bool> stopped_{false};
};

std::vector<MosaicPhoto> ListPhotos(const MosaicInput& input, const std::string& workDir) {
  std::vector<MosaicPhoto> photos;
  std::error_code ignored;
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      MosaicPhoto entry;
      entry.number = static_cast<int>(photos.size()) + 1;
      entry.name = photo.GetPhotoName();
      entry.cameraId = photo.GetCameraId();
      entry.photoPath = block.GetPhotoPath() + "/" + photo.GetPhotoName();
      entry.orthoPath = OrthoName(input.orthoPrefix, photo.GetPhotoName(), photo.GetImgBlkId());
      entry.maskPath = ObscuredMaskName(entry.orthoPath);
      // A finished job's orthos hold the fill, or blanks; the mosaic is made of what was rectified.
      const std::string original = OriginalOf(workDir, input.orthoPrefix, entry.orthoPath);
      if (fs::exists(original, ignored)) entry.orthoPath = original;
      const auto camera = input.cameras.find(photo.GetCameraId());
      entry.usable = HasArea(photo.GetGeoRect()) && camera != input.cameras.end();
      if (entry.usable) entry.camera = CameraOf(camera->second, photo);
      photos.push_back(std::move(entry));
    }
  }
  return photos;
}

void MakeLayers(const MosaicGrid& grid, const std::string& dsmPath,
                std::vector<MosaicPhoto>& photos, LayerStore& store,
                std::vector<PhotoColours>& colours, Stages& stages, MosaicReport& report) {
  colours.resize(photos.size());
  int finished = 0;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t i = 0; i < photos.size(); ++i) {
    if (stages.Stopped()) continue;
    std::string line;
    const bool wanted = photos[i].usable;
    if (wanted) MakeMosaicLayer(grid, dsmPath, photos[i], store, colours[i], line);
#pragma omp critical(tqtortho_host_mosaic)
    {
      if (!line.empty()) report.leftOut.push_back(line);
      stages.Tell(100.0 * ++finished / static_cast<double>(photos.size()));
    }
  }
}

/// A tile as the files want it.
struct TileParts {
  std::vector<std::uint8_t> bands[3];
  std::vector<std::uint16_t> numbers;
  std::vector<std::uint8_t> alpha;
  TileResult cut;  ///< to the area; textures and map hold all

  TileParts(const MosaicGrid& grid, const MosaicOptions& options, TileResult tile,
            const CellSpan& span)
      : numbers(tile.source), alpha(AlphaOf(grid, options.area, tile, span)) {
    for (std::size_t b = 0; b < 3; ++b) {
      bands[b].resize(tile.quality.size());
      for (std::size_t i = 0; i < bands[b].size(); ++i) bands[b][i] = tile.pixels[3 * i + b];
    }
    cut = std::move(tile);
    for (std::size_t i = 0; i < alpha.size(); ++i) {
      if (alpha[i] != 0) continue;
      cut.source[i] = 0;
      cut.quality[i] = kQualityNone;
      std::fill_n(cut.pixels.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, std::uint8_t{0});
    }
  }
};

/// The files that tiles go to.
struct Outputs {
  MosaicWriter product;
  TqImage textures;
  tqorkit::tqBinaryData map;

  bool Start(const MosaicOptions& options, const MosaicGrid& grid, std::string& error) {
    const std::string ot = options.workDir + "/tmp/ot";
    if (!product.Start(options.outDir, ot, grid, options.format, error)) return false;
    const double transform[6] = {grid.minX, grid.step, 0, grid.maxY, 0, -grid.step};
    tqimage::GeoCoefficients at(transform, grid.cols, grid.rows);
    at.SetProjection(grid.projection);
    const std::string texturePath = ot + "/textures.tif";
    if (!textures.Create(texturePath, grid.cols, grid.rows, 3, tqimage::kByte, tqimage::kGeoTiff,
                         true) ||
        !textures.SetGeoCoefficients(at)) {
      error = texturePath + ": cannot be written; is the disk full?";
      return false;
    }
    return StartMap(ot + "/pix_map.bin", grid, at, error);
  }

  bool StartMap(const std::string& path, const MosaicGrid& grid, const tqimage::GeoCoefficients& at,
                std::string& error);

  /// One thread at a time.
  bool Write(const TileParts& parts, const CellSpan& span) {
    const int cols = span.endCol - span.firstCol;
    const int rows = span.endRow - span.firstRow;
    const tqfd::Rect2_T<int> rect{span.firstCol, span.firstRow, span.endCol, span.endRow};
    for (int b = 0; b < 3; ++b) {
      if (!textures.WriteImage(b, rect, tqimage::kByte, parts.bands[b].data())) return false;
    }
    return map.SaveBlkData(span.firstCol, span.firstRow, cols, rows,
                           const_cast<std::uint16_t*>(parts.numbers.data())) &&
           product.Write({span.firstCol, span.firstRow, cols, rows, parts.cut.pixels.data(),
                          parts.alpha.data(), parts.cut.source.data(), parts.cut.quality.data()});
  }
};

bool Outputs::StartMap(const std::string& path, const MosaicGrid& grid,
                       const tqimage::GeoCoefficients& at, std::string& error) {
  if (map.Create(path, grid.cols, grid.rows, 2) && map.SetGeoCoefficients(at)) return true;
  error = path + ": cannot be written; is the disk full?";
  return false;
}

bool MakeTiles(const MosaicGrid& grid, const std::vector<MosaicPhoto>& photos,
               const LayerStore& store, const ColourModel& colours, const MosaicOptions& options,
               Outputs& outputs, Stages& stages, MosaicReport& report, std::string& error) {
  const int side = std::max(options.tileSide, 64);
  const int across = (grid.cols + side - 1) / side;
  const int down = (grid.rows + side - 1) / side;
  const int count = across * down;
  TileStatistics sum;
  report.supplied.assign(photos.size() + 1, 0);
  int finished = 0;
  std::atomic<bool> failed{false};
#pragma omp parallel for schedule(dynamic)
  for (int i = 0; i < count; ++i) {
    if (failed || stages.Stopped()) continue;
    const int row = i / across * side;
    const int col = i % across * side;
    const CellSpan span{row, col, std::min(row + side, grid.rows), std::min(col + side, grid.cols)};
    TileResult tile;
    std::string line;
    std::optional<TileParts> parts;
    const bool made =
        MakeMosaicTile(grid, photos, store, colours, options, span, tile, line) && Guarded([&] {
          parts.emplace(grid, options, std::move(tile), span);
          return true;
        });
#pragma omp critical(tqtortho_host_mosaic)
    {
      if (!made || !outputs.Write(*parts, span)) {
        failed = true;
        if (error.empty()) {
          if (line.empty()) line = "not enough memory for the mosaic; use fewer --threads";
          error = made ? options.workDir + ": cannot be written to; is the disk full?" : line;
        }
      } else {
        sum.Add(parts->cut.statistics);
        for (const std::uint16_t number : parts->numbers) ++report.supplied[number];
        stages.Tell(100.0 * ++finished / count);
      }
    }
  }
  if (failed) return false;
  report.seen = sum.seen;
  report.seenByOne = sum.seenByOne;
  report.filled = sum.filled;
  report.neverCovered = sum.neverCovered;
  report.seamLength = sum.seams.cells * grid.step;
  if (sum.seams.compared > 0) {
    report.colourStepBefore = sum.seams.stepBefore / sum.seams.compared;
    report.colourStepAfter = sum.seams.stepAfter / sum.seams.compared;
  }
  return true;
}

bool Publish(const MosaicInput& input, const MosaicReport& report, Outputs& outputs,
             const MosaicOptions& options, std::string& error) {
  if (!outputs.map.Close() || !outputs.textures.Close()) {
    error = options.workDir + "/tmp/ot: cannot be written to; is the disk full?";
    return false;
  }
  // A tile goes on without a layer that could not be read; the older mosaic is better than that.
  return AllDone(options.workDir, error) &&
         FinishMosaic(input, report.seen, outputs.product, error);
}

}  // namespace

bool FindMosaicGrid(const MosaicInput& input, const std::string& workDir, MosaicGrid& grid,
                    std::string& error) {
  const std::string dsmPath = workDir + "/dsm.tif";
  constexpr double kLargest = std::numeric_limits<double>::max();
  tqfd::Rect2_T<double> all{kLargest, kLargest, -kLargest, -kLargest};
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      if (HasArea(photo.GetGeoRect())) FoldInto(all, photo.GetGeoRect());
    }
  }
  if (!HasArea(all) || !(input.gsd > kZeroTolerance)) {
    error = "no photo of the job has an ortho image; run the job again";
    return false;
  }
  grid.minX = all.minX;
  grid.maxY = all.maxY;
  grid.step = input.gsd;
  grid.cols = TruncToInt((all.maxX - all.minX) / input.gsd + 0.5);
  grid.rows = TruncToInt((all.maxY - all.minY) / input.gsd + 0.5);
  if (grid.cols >= kMostCells || grid.rows >= kMostCells) {
    error = "the photos lie too far apart for one mosaic; check their positions";
    return false;
  }
  ++grid.cols;
  ++grid.rows;
  TqImage dsm;
  if (!dsm.Open(dsmPath, true)) {
    error = dsmPath + ": cannot be read; --work must be the work directory of a finished run";
    return false;
  }
  error = SurfaceTooLarge(dsmPath, dsm.GetWidth(), dsm.GetHeight());
  grid.projection = dsm.GetGeoCoefficients().GetProjection();
  return error.empty();
}

bool FinishMosaic(const MosaicInput& input, std::int64_t seen, MosaicWriter& product,
                  std::string& error) {
  std::vector<std::pair<int, std::string>> table;
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      table.emplace_back(static_cast<int>(table.size()) + 1, photo.GetPhotoName());
    }
  }
  return product.Finish(table, {{"CELLS_SEEN", std::to_string(seen)}}, error);
}

bool MakeMosaic(const MosaicInput& input, const MosaicOptions& options,
                const MosaicProgress& progress, MosaicReport& report, std::string& error) {
  report = {};
  Stages stages(progress, report);
  const std::string dsmPath = options.workDir + "/dsm.tif";
  MosaicGrid grid;
  if (!FindMosaicGrid(input, options.workDir, grid, error)) return false;
  report.cells = static_cast<std::int64_t>(grid.cols) * grid.rows;

  std::vector<MosaicPhoto> photos = ListPhotos(input, options.workDir);
  if (photos.size() >= std::numeric_limits<std::uint16_t>::max()) {
    error = "more than 65534 photos in one job; divide it";
    return false;
  }
  const auto stopped = [&] {
    if (stages.Stopped()) error = "interrupted";
    return stages.Stopped();
  };
  stages.Begin("views");
  std::vector<PhotoColours> samples;
  std::optional<LayerStore> store;
  store.emplace(options.workDir + "/tmp/ot/layers", photos.size() + 1, options.layerMemory);
  MakeLayers(grid, dsmPath, photos, *store, samples, stages, report);
  if (stopped()) return false;
  if (store->Failed()) {
    error = store->Directory() + ": cannot be written to; is the disk full?";
    return false;
  }
  if (std::none_of(photos.begin(), photos.end(), [](const MosaicPhoto& p) { return p.usable; })) {
    error = report.leftOut.empty() ? "no photo of the job has an ortho image; run the job again"
                                   : report.leftOut.front();
    return false;
  }
  stages.Begin("colour");
  ColourModel colours;
  if (options.balanceColours) colours = BalanceColours(samples, {});
  if (stopped()) return false;
  stages.Begin("mosaic");
  Outputs outputs;
  if (!outputs.Start(options, grid, error) ||
      !MakeTiles(grid, photos, *store, colours, options, outputs, stages, report, error)) {
    return false;
  }
  if (stopped()) return false;
  store.reset();  // overviews and the final copies need the room
  stages.Begin("write");
  if (!Publish(input, report, outputs, options, error)) return false;
  stages.Tell(100);
  stages.End();
  return true;
}

}  // namespace tqtortho::host
