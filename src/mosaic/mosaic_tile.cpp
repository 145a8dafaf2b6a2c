// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_tile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "core/numeric.h"
#include "mosaic/hole_fill.h"
#include "mosaic/measured_cell.h"
#include "mosaic/narrow_gaps.h"
#include "mosaic/photo_choice.h"
#include "mosaic/seam_finder.h"
#include "mosaic/view_rating.h"
#include "stage/call_guard.h"
#include "tqimage/TqImage.h"
#include "visibility/step_surface.h"

namespace tqtortho::host {
namespace {

using tqimage::TqImage;

/// Cells around a tile that are looked at: holes reach for colours that far, and patches and seams
/// need their surroundings.
constexpr int kMargin = 64;

/// One photo over a tile and its margin.
struct TileView {
  const MosaicPhoto* photo = nullptr;
  std::vector<std::uint8_t> rating;
  std::vector<std::uint8_t> pixels;
  std::vector<float> offsets;  ///< of tones, at nodes; empty: colours stay
};

class TileMaker {
 public:
  TileMaker(const MosaicGrid& grid, const std::vector<MosaicPhoto>& photos, const LayerStore& store,
            const ColourModel& colours, const MosaicOptions& options, const CellSpan& span,
            TileResult& tile, std::string& error)
      : grid_(grid),
        photos_(photos),
        store_(store),
        colours_(colours),
        scale_(colours.shoulder),
        options_(options),
        tile_(tile),
        error_(error) {
    whole_ = {std::max(span.firstRow - kMargin, 0), std::max(span.firstCol - kMargin, 0),
              std::min(span.endRow + kMargin, grid.rows),
              std::min(span.endCol + kMargin, grid.cols)};
    rows_ = whole_.endRow - whole_.firstRow;
    cols_ = whole_.endCol - whole_.firstCol;
    core_ = {span.firstRow - whole_.firstRow, span.firstCol - whole_.firstCol,
             span.endRow - whole_.firstRow, span.endCol - whole_.firstCol};
  }

  bool Run() {
    const std::size_t coreCells =
        static_cast<std::size_t>(core_.endRow - core_.firstRow) * (core_.endCol - core_.firstCol);
    tile_.pixels.assign(3 * coreCells, 0);
    tile_.source.assign(coreCells, 0);
    tile_.quality.assign(coreCells, kQualityNone);
    if (!ReadRatings()) return false;
    if (views_.empty()) return true;
    std::vector<GridView<const std::uint8_t>> ratings;
    for (const TileView& view : views_) ratings.emplace_back(view.rating.data(), rows_, cols_);
    labels_.resize(Cells());
    const GridView<std::uint16_t> labels(labels_.data(), rows_, cols_);
    ChooseBestViews(ratings, labels);
    ReadHeights();
    if (!ReadPixels()) return false;
    const std::vector<MosaicView> views = BlendInputs();
    MoveSeams(views, GridView<const float>(heights_.data(), rows_, cols_), {}, labels);
    MergePatches(ratings, {}, labels);
    BlendOptions blend;
    blend.feather = options_.feather;
    pixels_.resize(3 * Cells());
    const GridView<std::uint8_t> pixels(pixels_.data(), rows_, 3 * cols_);
    BlendViews(views, labels, blend, {0, 0, rows_, cols_}, pixels);
    MeasureSeams(views, labels, core_, tile_.statistics.seams);
    Finish();
    return true;
  }

 private:
  [[nodiscard]] std::size_t Cells() const { return static_cast<std::size_t>(rows_) * cols_; }
  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * cols_ + col;
  }

  /// The part of the tile that a photo's rasters cover; cells of the tile.
  [[nodiscard]] CellSpan Covered(const MosaicPhoto& photo) const {
    return {std::max(photo.firstRow - whole_.firstRow, 0),
            std::max(photo.firstCol - whole_.firstCol, 0),
            std::min(photo.firstRow + photo.rows - whole_.firstRow, rows_),
            std::min(photo.firstCol + photo.cols - whole_.firstCol, cols_)};
  }

  /// The same in cells of the photo.
  [[nodiscard]] CellSpan InPhoto(const MosaicPhoto& photo, const CellSpan& part) const {
    const int down = whole_.firstRow - photo.firstRow;
    const int right = whole_.firstCol - photo.firstCol;
    return {part.firstRow + down, part.firstCol + right, part.endRow + down, part.endCol + right};
  }

  /// Reads the ortho under a part of the tile.
  bool ReadOrtho(const MosaicPhoto& photo, const CellSpan& part, GridView<std::uint8_t> out) {
    TqImage image;
    if (!image.Open(photo.orthoPath, true)) return false;
    const CellSpan from = InPhoto(photo, part);
    const tqfd::Rect2_T<int> rect{from.firstCol, from.firstRow, from.endCol, from.endRow};
    const int cols = part.endCol - part.firstCol;
    std::vector<std::uint8_t> band(static_cast<std::size_t>(cols) * out.rows);
    for (int b = 0; b < 3; ++b) {
      const int fileBand = image.GetBandCount() >= 3 ? b : 0;
      if (!image.ReadImage(fileBand, rect, tqimage::kByte, band.data())) return false;
      const std::uint8_t* next = band.data();
      for (int row = 0; row < out.rows; ++row) {
        std::uint8_t* to = out.Row(row) + b;
        for (int col = 0; col < cols; ++col, to += 3) *to = *next++;
      }
    }
    return true;
  }

  bool ReadRatings() {
    for (const MosaicPhoto& photo : photos_) {
      if (!photo.usable) continue;
      const CellSpan part = Covered(photo);
      if (part.firstRow >= part.endRow || part.firstCol >= part.endCol) continue;
      TileView view;
      view.photo = &photo;
      view.rating.assign(Cells(), kOutsideView);
      const GridView<std::uint8_t> out(view.rating.data() + Index(part.firstRow, part.firstCol),
                                       part.endRow - part.firstRow, part.endCol - part.firstCol,
                                       cols_);
      if (!store_.ReadRatings(static_cast<std::size_t>(photo.number), InPhoto(photo, part), out)) {
        error_ = store_.Directory() + ": a working file cannot be read";
        return false;
      }
      views_.push_back(std::move(view));
    }
    return true;
  }

  /// Pixels of the photos that supply a cell.
  bool ReadPixels() {
    std::vector<bool> used(views_.size() + 1, false);
    for (const std::uint16_t label : labels_) used[label] = true;
    for (std::size_t k = 0; k < views_.size(); ++k) {
      if (!used[k + 1]) continue;
      TileView& view = views_[k];
      const MosaicPhoto& photo = *view.photo;
      const auto number = static_cast<std::size_t>(photo.number);
      const CellSpan part = Covered(photo);
      view.pixels.assign(3 * Cells(), 0);
      const GridView<std::uint8_t> out(
          view.pixels.data() + 3 * Index(part.firstRow, part.firstCol), part.endRow - part.firstRow,
          3 * (part.endCol - part.firstCol), std::ptrdiff_t{3} * cols_);
      if (!store_.ReadPixels(number, InPhoto(photo, part), out) &&
          !(ReadOrtho(photo, part, out) &&
            store_.ReplacePixels(number, InPhoto(photo, part), out))) {
        error_ = photo.orthoPath + ": cannot be read any more";
        return false;
      }
      FindOffsets(view);
    }
    return true;
  }

  /// Surface heights of the tile's cells, with walls as sharp as visibility sees them; NaN where
  /// there is none, or none of its own; none at all when the surface cannot be read.
  void ReadHeights() {
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    heights_.assign(Cells(), kNone);
    TqImage dsm;
    TqImage origin;
    if (!dsm.Open(options_.workDir + "/dsm.tif", true)) return;
    const bool haveOrigin = origin.Open(options_.workDir + "/dsm_origin.tif", true);
    const auto at = dsm.GetGeoCoefficients();
    const tqfd::Rect2_T<double> ground{
        grid_.minX + whole_.firstCol * grid_.step, grid_.maxY - (whole_.endRow - 1) * grid_.step,
        grid_.minX + (whole_.endCol - 1) * grid_.step, grid_.maxY - whole_.firstRow * grid_.step};
    auto cells = at.World2Raster(ground, -1, -1);
    if (cells.maxX < cells.minX || cells.maxY < cells.minY) return;
    constexpr int kSurroundings = 3;  // that the place of a wall depends on
    cells = {cells.minX - kSurroundings, cells.minY - kSurroundings, cells.maxX + kSurroundings,
             cells.maxY + kSurroundings};
    const int cols = cells.maxX - cells.minX + 1;
    const int rows = cells.maxY - cells.minY + 1;
    const tqfd::Rect2_T<int> rect{cells.minX, cells.minY, cells.maxX + 1, cells.maxY + 1};
    std::vector<float> part(static_cast<std::size_t>(cols) * rows);
    std::vector<std::uint8_t> known(part.size(), 1);
    if (!dsm.ReadImage(0, rect, tqimage::kFloat32, part.data()) ||
        (haveOrigin && !ReadOriginOnCells(origin, at.GetResolution().x, rect, known))) {
      return;
    }
    const StepSurface surface(GridView<const float>(part.data(), rows, cols), dsm.GetNoDataValue(0),
                              StepSurface::DefaultWallStep(at.GetResolution().x));
    const auto corner = at.GetOrigin();
    const auto cell = at.GetResolution();
    const double measured = MeasuredCell(options_.workDir + "/dsm.tif", cell.x);
    clearance_ = std::clamp(TruncToInt(measured / grid_.step + 1.5), 2, 16);
    for (int row = 0; row < rows_; ++row) {
      const double y = grid_.maxY - (whole_.firstRow + row) * grid_.step;
      const double v = (y - corner.y) / cell.y - cells.minY;
      const int r = FloorToInt(v + 0.5);
      if (r < 0 || r >= rows) continue;
      for (int col = 0; col < cols_; ++col) {
        const double x = grid_.minX + (whole_.firstCol + col) * grid_.step;
        const double u = (x - corner.x) / cell.x - cells.minX;
        const int c = FloorToInt(u + 0.5);
        if (c < 0 || c >= cols || known[static_cast<std::size_t>(r) * cols + c] == 0) continue;
        heights_[Index(row, col)] = static_cast<float>(surface.HeightAt(v, u));
      }
    }
  }

  /// What is added to a photo's tones at the nodes of the tile.
  void FindOffsets(TileView& view) const {
    const std::size_t index = static_cast<std::size_t>(view.photo->number) - 1;
    if (colours_.photos.empty()) return;
    const int nodeCols = cols_ / kColourBlock + 2;
    const int nodeRows = rows_ / kColourBlock + 2;
    view.offsets.resize(static_cast<std::size_t>(3) * nodeRows * nodeCols);
    float* out = view.offsets.data();
    for (int i = 0; i < nodeRows; ++i) {
      for (int j = 0; j < nodeCols; ++j) {
        const int row = i * kColourBlock;
        const int col = j * kColourBlock;
        const float height = heights_[Index(std::min(row, rows_ - 1), std::min(col, cols_ - 1))];
        const double x = grid_.minX + (whole_.firstCol + col) * grid_.step;
        const double y = grid_.maxY - (whole_.firstRow + row) * grid_.step;
        const double radius =
            std::isnan(height) ? 0.5 : std::min(PhotoRadius(view.photo->camera, x, y, height), 1.0);
        for (int b = 0; b < 3; ++b) {
          *out++ = static_cast<float>(colours_.Offset(index, view.photo->cameraId, b, radius));
        }
      }
    }
  }

  [[nodiscard]] std::vector<MosaicView> BlendInputs() const {
    std::vector<MosaicView> views;
    for (const TileView& view : views_) {
      MosaicView input;
      input.rating = {view.rating.data(), rows_, cols_};
      if (!view.pixels.empty()) input.pixels = {view.pixels.data(), rows_, 3 * cols_};
      if (!view.offsets.empty()) {
        const std::size_t index = static_cast<std::size_t>(view.photo->number) - 1;
        input.tones.scale = &scale_;
        for (int b = 0; b < 3; ++b) {
          input.tones.slope[static_cast<std::size_t>(b)] =
              static_cast<float>(colours_.Slope(index, b));
        }
        input.tones.offsets = {view.offsets.data(), rows_ / kColourBlock + 2,
                               3 * (cols_ / kColourBlock + 2)};
        input.tones.step = kColourBlock;
      }
      views.push_back(input);
    }
    return views;
  }

  /// Fills holes and cuts the core out.
  void Finish() {
    std::vector<std::uint8_t> seen(Cells(), 0);
    std::vector<std::uint8_t> wanted(Cells(), 0);
    std::vector<std::uint8_t> filled(Cells(), 0);
    bool any = false;
    for (std::size_t i = 0; i < Cells(); ++i) {
      seen[i] = labels_[i] != kNoView ? 1 : 0;
      if (seen[i] != 0 || std::isnan(heights_[i])) continue;
      // Cells outside all frames stay empty: the product ends there.
      wanted[i] = std::any_of(views_.begin(), views_.end(),
                              [i](const TileView& view) { return view.rating[i] == kHiddenView; });
      any = any || wanted[i] != 0;
    }
    TileStatistics& sum = tile_.statistics;
    std::vector<std::uint8_t> fillable = wanted;
    if (any && options_.fill == HoleFilling::kSmall) {
      KeepNarrowGaps({seen.data(), rows_, cols_}, options_.fillWidth / grid_.step,
                     {fillable.data(), rows_, cols_});
    }
    if (any && options_.fill != HoleFilling::kNone) {
      HoleFillOptions fill;
      fill.clearance = clearance_;
      FillHoles({fillable.data(), rows_, cols_}, {seen.data(), rows_, cols_},
                {heights_.data(), rows_, cols_}, fill, {pixels_.data(), rows_, 3 * cols_},
                {filled.data(), rows_, cols_});
    }
    std::size_t out = 0;
    for (int row = core_.firstRow; row < core_.endRow; ++row) {
      for (int col = core_.firstCol; col < core_.endCol; ++col, ++out) {
        const std::size_t i = Index(row, col);
        std::copy_n(pixels_.begin() + 3 * i, 3, tile_.pixels.begin() + 3 * out);
        if (labels_[i] != kNoView) {
          const auto views = std::count_if(views_.begin(), views_.end(), [i](const TileView& view) {
            return IsSeen(view.rating[i]);
          });
          tile_.source[out] = static_cast<std::uint16_t>(views_[labels_[i] - 1U].photo->number);
          tile_.quality[out] = views == 1 ? kQualitySeenOnce : kQualitySeen;
          ++sum.seen;
          sum.seenByOne += views == 1 ? 1 : 0;
        } else if (filled[i] != 0) {
          tile_.quality[out] = kQualityFilled;
          ++sum.filled;
        } else if (wanted[i] != 0) {
          ++sum.neverCovered;
        }
      }
    }
  }

  const MosaicGrid& grid_;
  const std::vector<MosaicPhoto>& photos_;
  const LayerStore& store_;
  const ColourModel& colours_;
  const ToneScale scale_;
  const MosaicOptions& options_;
  TileResult& tile_;
  std::string& error_;
  CellSpan whole_;  ///< of the grid
  CellSpan core_;   ///< of the tile with its margin
  int rows_ = 0;
  int cols_ = 0;
  int clearance_ = 4;  ///< of holes, in cells: a surface cell and a bit
  std::vector<TileView> views_;
  std::vector<std::uint16_t> labels_;
  std::vector<std::uint8_t> pixels_;
  std::vector<float> heights_;
};

}  // namespace

void TileStatistics::Add(const TileStatistics& other) {
  seen += other.seen;
  seenByOne += other.seenByOne;
  filled += other.filled;
  neverCovered += other.neverCovered;
  seams.cells += other.seams.cells;
  seams.compared += other.seams.compared;
  seams.stepBefore += other.seams.stepBefore;
  seams.stepAfter += other.seams.stepAfter;
}

bool MakeMosaicTile(const MosaicGrid& grid, const std::vector<MosaicPhoto>& photos,
                    const LayerStore& store, const ColourModel& colours,
                    const MosaicOptions& options, const CellSpan& span, TileResult& tile,
                    std::string& error) {
  if (Guarded([&] {
        return TileMaker(grid, photos, store, colours, options, span, tile, error).Run();
      })) {
    return true;
  }
  if (error.empty()) error = "not enough memory for the mosaic; use fewer --threads";
  return false;
}

std::vector<std::uint8_t> AlphaOf(const MosaicGrid& grid,
                                  const std::vector<tqfd::Point2_T<double>>& area,
                                  const TileResult& tile, const CellSpan& span) {
  std::vector<std::uint8_t> alpha(tile.quality.size());
  for (std::size_t i = 0; i < alpha.size(); ++i) {
    alpha[i] = tile.quality[i] != kQualityNone ? 255 : 0;
  }
  if (area.size() < 3) return alpha;
  std::size_t i = 0;
  std::vector<double> crossings;
  for (int row = span.firstRow; row < span.endRow; ++row) {
    const double y = grid.maxY - row * grid.step;
    crossings.clear();
    for (std::size_t k = 0; k < area.size(); ++k) {
      const auto& a = area[k];
      const auto& b = area[(k + 1) % area.size()];
      if ((a.y > y) != (b.y > y)) crossings.push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
    }
    std::sort(crossings.begin(), crossings.end());
    for (int col = span.firstCol; col < span.endCol; ++col, ++i) {
      const double x = grid.minX + col * grid.step;
      const auto left = std::upper_bound(crossings.begin(), crossings.end(), x);
      if ((left - crossings.begin()) % 2 == 0) alpha[i] = 0;
    }
  }
  return alpha;
}

}  // namespace tqtortho::host
