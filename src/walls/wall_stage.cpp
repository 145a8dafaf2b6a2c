// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_stage.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "core/numeric.h"
#include "core/stop_flag.h"
#include "stage/call_guard.h"
#include "stage/surface_limit.h"
#include "tqimage/TqImage.h"
#include "visibility/step_surface.h"
#include "walls/half_cells.h"
#include "walls/photo_windows.h"
#include "walls/wall_cut.h"
#include "walls/wall_prior.h"
#include "walls/wall_veto.h"
#include "walls/wall_zone.h"

namespace tqtortho::host {
namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using Rect = tqfd::Rect2_T<int>;  // exclusive last column and row

constexpr int kTileSide = 192;  ///< cells
constexpr double kHalo = 9;     ///< ground around a tile that is looked at with it
constexpr int kMostWindows = 24;
constexpr std::int64_t kPhotoMemory = 512LL << 20;

/// The surface as prepared, whole.
struct Surface {
  int cols = 0;
  int rows = 0;
  std::vector<float> heights;
  GeoCoefficients at;
  double cell = 0;
  double noData = 0;
  double highest = -std::numeric_limits<double>::infinity();

  [[nodiscard]] GridView<const float> View() const { return {heights.data(), rows, cols}; }
  [[nodiscard]] GridView<const float> View(const Rect& part) const {
    return {heights.data() + static_cast<std::size_t>(part.minY) * cols + part.minX,
            part.maxY - part.minY, part.maxX - part.minX, cols};
  }
  [[nodiscard]] bool IsHeight(float height) const {
    return std::isfinite(height) && std::fabs(height - noData) >= kRectifyNoDataTolerance;
  }
};

bool ReadSurface(const std::string& path, Surface& surface, std::string& error) {
  TqImage image;
  if (!image.Open(path, true)) {
    error = path + ": cannot be read back";
    return false;
  }
  surface.cols = image.GetWidth();
  surface.rows = image.GetHeight();
  error = SurfaceTooLarge(path, HalfCells(surface.cols), HalfCells(surface.rows));
  if (!error.empty()) {
    error += "; walls need half cells, --walls keep does without";
    return false;
  }
  surface.at = image.GetGeoCoefficients();
  surface.cell = surface.at.GetResolution().x;
  surface.noData = kDefaultNoData;
  surface.heights.resize(static_cast<std::size_t>(surface.cols) * surface.rows);
  if (!image.ReadHeights(0, {0, 0, surface.cols, surface.rows}, NarrowToFloat(surface.noData),
                         surface.heights.data())) {
    error = path + ": cannot be read back";
    return false;
  }
  for (const float height : surface.heights) {
    if (surface.IsHeight(height)) surface.highest = std::max<double>(surface.highest, height);
  }
  return true;
}

/// A tile with the ground around it, on half cells.
struct Tile {
  Rect own;   ///< cells of the surface
  Rect wide;  ///< the same and the halo
  std::vector<float> heights;
  WallZone zone;

  [[nodiscard]] int Rows() const { return HalfCells(wide.maxY - wide.minY); }
  [[nodiscard]] int Cols() const { return HalfCells(wide.maxX - wide.minX); }
  [[nodiscard]] GridView<const float> View() const { return {heights.data(), Rows(), Cols()}; }
};

class WallWork {
 public:
  WallWork(const Survey& survey, const Surface& surface, Walls walls)
      : surface_(surface), walls_(walls), photos_(survey, kPhotoMemory) {
    across_ = (surface.cols + kTileSide - 1) / kTileSide;
    down_ = (surface.rows + kTileSide - 1) / kTileSide;
    options_.cell = surface.cell;
    options_.noData = surface.noData;
    cells_.resize(static_cast<std::size_t>(across_) * static_cast<std::size_t>(down_));
  }

  [[nodiscard]] int Down() const { return down_; }

  /// Finds walls and asks the photos, a tile at a time. False when stopped or out of memory.
  bool Look(const std::function<bool(double)>& progress) {
    std::atomic<bool> failed{false};
    int finished = 0;
    const int count = across_ * down_;
#pragma omp parallel for schedule(dynamic)
    for (int i = 0; i < count; ++i) {
      if (failed) continue;
      if (!Guarded([&] { return LookAt(i); })) failed = true;
#pragma omp critical(tqtortho_host_walls)
      if (!progress(static_cast<double>(++finished) / count)) failed = true;
    }
    return !failed;
  }

  void Learn() {
    std::array<std::int64_t, WallPrior::kBins> upper{};
    std::array<std::int64_t, WallPrior::kBins> lower{};
    cut_.agreement = SpreadOfAgreement(cells_);
    for (const auto& cells : cells_) CountSureCells(cells, cut_.agreement, upper, lower);
    prior_ = WallPrior(upper, lower);
    // Far outside every line half way up lies ground. Where photos do not say so, they cannot tell.
    constexpr float kDiffuse = 0.3F;
    photosTell_ = prior_.Learned() && prior_.Upper(1) <= kDiffuse;
  }

  /// The half cells of a row of tiles.
  bool MakeRow(int row, std::vector<float>& strip, std::vector<std::uint8_t>& codes,
               WallReport& report) {
    const int first = row * kTileSide;
    const int end = std::min(first + kTileSide, surface_.rows);
    const int stripRows = 2 * (end - first) - (end == surface_.rows ? 1 : 0);
    const int stripCols = HalfCells(surface_.cols);
    strip.assign(static_cast<std::size_t>(stripRows) * static_cast<std::size_t>(stripCols), 0);
    codes.assign(strip.size(), kNoWall);
    const GridView<float> out(strip.data(), stripRows, stripCols);
    const GridView<std::uint8_t> outCodes(codes.data(), stripRows, stripCols);
    std::atomic<bool> failed{false};
    std::atomic<std::int64_t> all{0}, changed{0}, judged{0};
#pragma omp parallel for schedule(dynamic)
    for (int col = 0; col < across_; ++col) {
      if (failed) continue;
      const bool made = Guarded([&] {
        Make(row * across_ + col, out, outCodes, all, changed, judged);
        return !processStop.Raised();
      });
      if (!made) failed = true;
    }
    report.wallCells += all;
    report.changedCells += changed;
    report.judgedCells += judged;
    return !failed;
  }

  WallCutOptions cut_;
  [[nodiscard]] const WallPrior& Prior() const { return prior_; }
  [[nodiscard]] bool PhotosTell() const { return photosTell_; }
  [[nodiscard]] std::int64_t CellCount() const {
    return std::accumulate(cells_.begin(), cells_.end(), std::int64_t{0},
                           [](std::int64_t sum, const auto& cells) {
                             return sum + static_cast<std::int64_t>(cells.size());
                           });
  }

 private:
  void Place(int index, Tile& tile) const {
    const int halo = std::clamp(TruncToInt(kHalo / surface_.cell + 1), 4, 64);
    tile.own.minX = index % across_ * kTileSide;
    tile.own.minY = index / across_ * kTileSide;
    tile.own.maxX = std::min(tile.own.minX + kTileSide, surface_.cols);
    tile.own.maxY = std::min(tile.own.minY + kTileSide, surface_.rows);
    tile.wide = {std::max(tile.own.minX - halo, 0), std::max(tile.own.minY - halo, 0),
                 std::min(tile.own.maxX + halo, surface_.cols),
                 std::min(tile.own.maxY + halo, surface_.rows)};
    tile.heights = OnHalfCells(surface_.View(tile.wide), surface_.noData,
                               StepSurface::DefaultWallStep(surface_.cell));
  }

  [[nodiscard]] WallGround GroundOf(const Tile& tile) const {
    WallGround ground;
    ground.whole = surface_.View();
    ground.part = tile.View();
    ground.firstRow = 2 * tile.wide.minY;
    ground.firstCol = 2 * tile.wide.minX;
    ground.originX = surface_.at.GetOrigin().x;
    ground.originY = surface_.at.GetOrigin().y;
    ground.cell = surface_.cell;
    ground.noData = surface_.noData;
    ground.highest = surface_.highest;
    return ground;
  }

  bool LookAt(int index) {
    GiveUpIfRaised(&processStop);
    Tile tile;
    Place(index, tile);
    const GridView<const float> own = surface_.View(tile.wide);
    tile.zone = FindWallZone(own, tile.View(), options_);
    std::vector<WallCell> cells = ListWallCells(tile.View(), tile.zone);
    if (walls_ == Walls::kPhotos && !cells.empty()) {
      const WallGround ground = GroundOf(tile);
      tqfd::Rect2_T<double> rect{
          std::numeric_limits<double>::max(), std::numeric_limits<double>::max(),
          std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
      double lowest = std::numeric_limits<double>::max();
      double highest = std::numeric_limits<double>::lowest();
      for (const WallCell& cell : cells) {
        rect.minX = std::min(rect.minX, ground.X(cell.col));
        rect.maxX = std::max(rect.maxX, ground.X(cell.col));
        rect.minY = std::min(rect.minY, ground.Y(cell.row));
        rect.maxY = std::max(rect.maxY, ground.Y(cell.row));
        lowest = std::min<double>(lowest, cell.lower);
        highest = std::max<double>(highest, cell.upper);
      }
      const HeldWindows held = photos_.Cut(rect, lowest, highest, kMostWindows);
      const std::vector<float> gains = BrightnessGains(ground, tile.zone, held.windows);
      AskPhotos(ground, tile.zone, held.windows, gains, &processStop, cells);
    }
    cells_[static_cast<std::size_t>(index)] = std::move(cells);
    return true;
  }

  void Make(int index, const GridView<float>& out, const GridView<std::uint8_t>& outCodes,
            std::atomic<std::int64_t>& all, std::atomic<std::int64_t>& changed,
            std::atomic<std::int64_t>& judged) {
    Tile tile;
    Place(index, tile);
    const std::vector<WallCell>& cells = cells_[static_cast<std::size_t>(index)];
    std::vector<std::uint8_t> isUpper;
    if (walls_ == Walls::kPhotos) {
      isUpper = CutWalls(tile.View(), cells, prior_, cut_);
      TakeBackUnsupported(tile.View(), cells, prior_, cut_.agreement, isUpper);
    } else {
      isUpper.resize(cells.size());
      std::transform(cells.begin(), cells.end(), isUpper.begin(), [](const WallCell& cell) {
        return IsUpperByHeight(cell.height, cell.upper, cell.lower, cell.level) ? 1 : 0;
      });
    }
    const int shiftRow = 2 * (tile.own.minY - tile.wide.minY);
    const int shiftCol = 2 * (tile.own.minX - tile.wide.minX);
    const int rows = std::min(out.rows, 2 * (tile.own.maxY - tile.own.minY));
    const int cols = std::min(2 * (tile.own.maxX - tile.own.minX), out.cols - 2 * tile.own.minX);
    const GridView<float> heights(tile.heights.data(), tile.Rows(), tile.Cols());
    for (std::size_t k = 0; k < cells.size(); ++k) {
      const WallCell& cell = cells[k];
      const float height = HeightOnSide(cell.height, cell.upper, cell.lower, isUpper[k] != 0);
      heights.At(cell.row, cell.col) = height;
      const bool own = cell.row >= shiftRow && cell.row < shiftRow + rows && cell.col >= shiftCol &&
                       cell.col < shiftCol + cols;
      if (!own) continue;
      ++all;
      if (height != cell.height) ++changed;
      if (cell.onUpper.photos >= 2 && cell.onLower.photos >= 2) ++judged;
      outCodes.At(cell.row - shiftRow, cell.col - shiftCol + 2 * tile.own.minX) =
          CodeOf(cell, height, isUpper[k] != 0);
    }
    for (int row = 0; row < rows; ++row) {
      std::copy_n(heights.Row(shiftRow + row) + shiftCol, cols, out.Row(row) + 2 * tile.own.minX);
    }
  }

  [[nodiscard]] WallCode CodeOf(const WallCell& cell, float height, bool isUpper) const {
    constexpr float kDisagreement = 4;  // times what agreement looks like
    const SideEvidence& chosen = isUpper ? cell.onUpper : cell.onLower;
    if (chosen.photos >= 2 && chosen.spread > kDisagreement * cut_.agreement) return kWallDoubtful;
    if (height == cell.height) return kWallKept;
    const bool judged = cell.onUpper.photos >= 2 && cell.onLower.photos >= 2;
    return judged ? kWallMoved : kWallMovedAlone;
  }

  const Surface& surface_;
  Walls walls_;
  PhotoWindows photos_;
  WallZoneOptions options_;
  WallPrior prior_;
  bool photosTell_ = false;
  int across_ = 0;
  int down_ = 0;
  std::vector<std::vector<WallCell>> cells_;
};

bool WriteSurface(const std::string& path, const std::string& codesPath, const Surface& surface,
                  WallWork& work, const std::function<bool(double)>& progress, WallReport& report,
                  std::string& error) {
  const auto origin = surface.at.GetOrigin();
  const auto cell = surface.at.GetResolution();
  const int cols = HalfCells(surface.cols);
  const int rows = HalfCells(surface.rows);
  const double transform[6] = {origin.x, 0.5 * cell.x, 0, origin.y, 0, 0.5 * cell.y};
  GeoCoefficients at(transform, cols, rows);
  at.SetProjection(surface.at.GetProjection());
  TqImage out;
  TqImage outCodes;
  const auto fault = [&](const std::string& file) {
    if (error.empty()) error = file + ": cannot be written; is the disk full?";
    return false;
  };
  if (!out.Create(path, cols, rows, 1, tqimage::kFloat32, tqimage::kGeoTiff, true) ||
      !out.SetGeoCoefficients(at) || !out.SetNoDataValue(0, surface.noData)) {
    return fault(path);
  }
  if (!outCodes.Create(codesPath, cols, rows, 1, tqimage::kByte, tqimage::kGeoTiff, true) ||
      !outCodes.SetGeoCoefficients(at)) {
    return fault(codesPath);
  }
  std::vector<float> strip;
  std::vector<std::uint8_t> codes;
  for (int k = 0; k < work.Down(); ++k) {
    if (!work.MakeRow(k, strip, codes, report)) {
      error = path + ": walls could not be sharpened; not enough memory, or interrupted";
      return false;
    }
    const int first = 2 * k * kTileSide;
    const int end = std::min(first + 2 * kTileSide, rows);
    if (!out.WriteImage(0, {0, first, cols, end}, tqimage::kFloat32, strip.data()))
      return fault(path);
    if (!outCodes.WriteImage(0, {0, first, cols, end}, tqimage::kByte, codes.data())) {
      return fault(codesPath);
    }
    if (!progress(static_cast<double>(k + 1) / work.Down())) return false;
  }
  return (outCodes.Close() || fault(codesPath)) && (out.Close() || fault(path));
}

}  // namespace

bool SharpenWalls(const Survey& survey, const std::string& dsmPath, const std::string& codesPath,
                  Walls walls, const std::function<bool(double)>& progress, WallReport& report,
                  std::string& error) {
  report = {};
  if (walls == Walls::kKeep) return true;
  const bool done = Guarded([&] {
    Surface surface;
    if (!ReadSurface(dsmPath, surface, error)) return false;
    WallWork work(survey, surface, walls);
    if (!work.Look([&](double share) { return progress(0.8 * share); })) return false;
    if (walls == Walls::kPhotos) {
      work.Learn();
      report.photosTell = work.PhotosTell();
      report.displacement = work.Prior().Displacement();
      if (!report.photosTell) {
        report.wallCells = work.CellCount();
        return true;
      }
    }
    return WriteSurface(
        dsmPath, codesPath, surface, work,
        [&](double share) { return progress(0.8 + 0.2 * share); }, report, error);
  });
  if (!done && error.empty()) {
    error = dsmPath + ": walls could not be sharpened; not enough memory, or interrupted";
  }
  return done;
}

}  // namespace tqtortho::host
