// SPDX-License-Identifier: Apache-2.0
#include "update/texture_block.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/numeric.h"
#include "mosaic/hole_fill.h"
#include "mosaic/photo_choice.h"
#include "mosaic/view_rating.h"
#include "stage/cv_bridge.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"
#include "update/fill_cells.h"

namespace tqtortho {
namespace {

using tqimage::TqImage;

constexpr std::uint8_t kHiddenMark = 255;  // of occlusion masks
/// Patches and gaps are no larger than this in either direction ...
constexpr int kSmallest = 100;
/// ... so that the cells around a block show all of them. Beyond them come 24 cells whose views
/// count as near the end of the data, since an ortho is read up to there only.
constexpr int kMargin = 128;

int Rows(const CellSpan& span) { return span.endRow - span.firstRow; }
int Cols(const CellSpan& span) { return span.endCol - span.firstCol; }
std::size_t CellCount(const CellSpan& span) {
  return static_cast<std::size_t>(Rows(span)) * static_cast<std::size_t>(Cols(span));
}

CellSpan Grown(const CellSpan& span, int by) {
  return {span.firstRow - by, span.firstCol - by, span.endRow + by, span.endCol + by};
}

CellSpan Common(const CellSpan& a, const CellSpan& b) {
  return {std::max(a.firstRow, b.firstRow), std::max(a.firstCol, b.firstCol),
          std::min(a.endRow, b.endRow), std::min(a.endCol, b.endCol)};
}

bool IsEmpty(const CellSpan& span) {
  return span.firstRow >= span.endRow || span.firstCol >= span.endCol;
}

/// A raster's bands under `part` of the mosaic, interleaved; the raster covers `whole` of it. False
/// when it is no byte raster of that size.
bool ReadPart(const std::string& path, const CellSpan& whole, const CellSpan& part, int bands,
              std::vector<std::uint8_t>& cells) {
  TqImage image;
  if (!image.Open(path, true) || image.GetDataType() != tqimage::kByte ||
      image.GetWidth() != Cols(whole) || image.GetHeight() != Rows(whole)) {
    return false;
  }
  const tqfd::Rect2_T<int> rect{part.firstCol - whole.firstCol, part.firstRow - whole.firstRow,
                                part.endCol - whole.firstCol, part.endRow - whole.firstRow};
  const auto perCell = static_cast<std::size_t>(bands);
  std::vector<std::uint8_t> band(CellCount(part));
  cells.resize(band.size() * perCell);
  for (std::size_t b = 0; b < perCell; ++b) {
    const int fileBand = std::min(static_cast<int>(b), image.GetBandCount() - 1);
    if (!image.ReadImage(fileBand, rect, tqimage::kByte, band.data())) return false;
    for (std::size_t i = 0; i < band.size(); ++i) cells[i * perCell + b] = band[i];
  }
  return true;
}

/// Surface heights of the mosaic's cells, those of the nearest surface cell; NaN where there is
/// none. Empty when there is no surface.
std::vector<float> ReadHeights(const TextureJob& job, const CellSpan& window) {
  TqImage dsm;
  if (!dsm.Open(job.dsmPath, true)) return {};
  const auto at = dsm.GetGeoCoefficients();
  const auto upper = job.grid.Raster2World(window.firstCol, window.firstRow);
  const auto lower = job.grid.Raster2World(window.endCol - 1, window.endRow - 1);
  const auto first = at.World2Raster(upper.x, upper.y, dsm.GetWidth(), dsm.GetHeight());
  const auto last = at.World2Raster(lower.x, lower.y, dsm.GetWidth(), dsm.GetHeight());
  if (last.x < first.x || last.y < first.y) return {};
  const int cols = last.x - first.x + 1;
  const int rows = last.y - first.y + 1;
  std::vector<float> part(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows));
  const float noData = NarrowToFloat(dsm.GetNoDataValue(0));
  if (!dsm.ReadHeights(0, {first.x, first.y, last.x + 1, last.y + 1}, noData, part.data())) {
    return {};
  }
  std::vector<float> heights(CellCount(window), std::numeric_limits<float>::quiet_NaN());
  float* out = heights.data();
  for (int row = window.firstRow; row < window.endRow; ++row) {
    for (int col = window.firstCol; col < window.endCol; ++col, ++out) {
      const auto ground = job.grid.Raster2World(col, row);
      const auto cell = at.World2Raster(ground.x, ground.y, -1, -1);
      if (cell.x < first.x || cell.x > last.x || cell.y < first.y || cell.y > last.y) continue;
      const float height = part[static_cast<std::size_t>(cell.y - first.y) * cols +
                                static_cast<std::size_t>(cell.x - first.x)];
      if (height != noData) *out = height;
    }
  }
  return heights;
}

/// One photo over the window.
struct View {
  std::uint16_t number = 0;
  std::vector<std::uint8_t> rating;
  std::vector<std::uint8_t> pixels;
};

class BlockMaker {
 public:
  BlockMaker(const TextureJob& job, const CellSpan& cells)
      : job_(job),
        grid_{0, 0, job.grid.GetHeight(), job.grid.GetWidth()},
        core_(cells),
        window_(Common(Grown(cells, kMargin), grid_)) {}

  void Run(TextureBlock& block) {
    block.colours.assign(3 * CellCount(core_), 0);
    block.numbers.assign(CellCount(core_), 0);
    ReadViews();
    if (views_.empty()) return;
    const int rows = Rows(window_);
    const int cols = Cols(window_);
    std::vector<GridView<const std::uint8_t>> ratings;
    std::vector<MosaicView> inputs;
    for (const View& view : views_) {
      ratings.emplace_back(view.rating.data(), rows, cols);
      inputs.push_back({ratings.back(), {view.pixels.data(), rows, 3 * cols}, {}});
    }
    std::vector<std::uint16_t> labels(CellCount(window_));
    const GridView<std::uint16_t> label(labels.data(), rows, cols);
    ChooseBestViews(ratings, label);
    PhotoChoiceOptions choice;
    choice.smallestPatch = kSmallest;
    MergePatches(ratings, choice, label);
    std::vector<std::uint8_t> colours(3 * labels.size());
    const GridView<std::uint8_t> colour(colours.data(), rows, 3 * cols);
    BlendViews(inputs, label, {}, {0, 0, rows, cols}, colour);
    std::vector<std::uint8_t> wanted(labels.size());
    FindWanted(label, {wanted.data(), rows, cols});
    std::vector<float> heights = ReadHeights(job_, window_);
    FillUnseen({wanted.data(), rows, cols}, label,
               {heights.data(), heights.empty() ? 0 : rows, cols}, colour);
    std::size_t out = 0;
    for (int row = core_.firstRow; row < core_.endRow; ++row) {
      for (int col = core_.firstCol; col < core_.endCol; ++col, ++out) {
        const int r = row - window_.firstRow;
        const int c = col - window_.firstCol;
        const std::uint16_t k = label.At(r, c);
        if (k != kNoView) block.numbers[out] = views_[k - 1U].number;
        std::copy_n(colour.Row(r) + static_cast<std::ptrdiff_t>(3) * c, 3,
                    block.colours.begin() + static_cast<std::ptrdiff_t>(3 * out));
      }
    }
  }

 private:
  void ReadViews() {
    for (const TexturePhoto& photo : job_.photos) {
      if (IsEmpty(Common(photo.cells, window_))) continue;
      View view;
      if (Rate(photo, view)) views_.push_back(std::move(view));
    }
  }

  /// Colours and ratings of a photo.
  bool Rate(const TexturePhoto& photo, View& view) const {
    const CellSpan part = Common(photo.cells, window_);
    std::vector<std::uint8_t> pixels;
    std::vector<std::uint8_t> rating;
    if (!ReadPart(photo.ortho, photo.cells, part, 3, pixels) ||
        !ReadPart(ObscuredMaskName(photo.ortho), photo.cells, part, 1, rating)) {
      return false;
    }
    for (std::size_t i = 0; i < rating.size(); ++i) {
      const bool hidden = rating[i] == kHiddenMark;
      rating[i] = IsEmptyCell(&pixels[3 * i], 3) ? kOutsideView : hidden ? kHiddenView : 0;
    }
    std::vector<float> heights = ReadHeights(job_, part);
    heights.resize(rating.size(), std::numeric_limits<float>::quiet_NaN());
    for (float& height : heights) {
      if (std::isnan(height)) height = NarrowToFloat(job_.startHeight);
    }
    const auto corner = job_.grid.Raster2World(part.firstCol, part.firstRow);
    ViewRatingOptions options;
    options.cellSize = job_.grid.GetResolution().x;
    RateView(photo.camera, {corner.x, corner.y, options.cellSize, Rows(part), Cols(part)},
             {heights.data(), Rows(part), Cols(part)}, options,
             {rating.data(), Rows(part), Cols(part)});
    view.number = photo.number;
    view.rating.assign(CellCount(window_), kOutsideView);
    view.pixels.assign(3 * CellCount(window_), 0);
    const auto count = static_cast<std::size_t>(Cols(part));
    for (int row = part.firstRow; row < part.endRow; ++row) {
      const std::size_t from = static_cast<std::size_t>(row - part.firstRow) * count;
      const std::size_t to = static_cast<std::size_t>(row - window_.firstRow) * Cols(window_) +
                             static_cast<std::size_t>(part.firstCol - window_.firstCol);
      std::copy_n(rating.begin() + static_cast<std::ptrdiff_t>(from), count,
                  view.rating.begin() + static_cast<std::ptrdiff_t>(to));
      std::copy_n(pixels.begin() + static_cast<std::ptrdiff_t>(3 * from), 3 * count,
                  view.pixels.begin() + static_cast<std::ptrdiff_t>(3 * to));
    }
    return true;
  }

  /// Cells to fill: hidden from every photo that covers them, or in a small gap of what photos
  /// cover. Around the product nothing is filled.
  void FindWanted(GridView<const std::uint16_t> labels, GridView<std::uint8_t> wanted) const {
    cv::Mat gaps(wanted.rows, wanted.cols, CV_8U);
    for (int row = 0; row < wanted.rows; ++row) {
      for (int col = 0; col < wanted.cols; ++col) {
        const bool seen = labels.At(row, col) != kNoView;
        const bool hidden =
            !seen && std::any_of(views_.begin(), views_.end(), [&](const View& view) {
              return view.rating[static_cast<std::size_t>(row) * wanted.cols + col] == kHiddenView;
            });
        wanted.At(row, col) = hidden ? 1 : 0;
        gaps.at<std::uint8_t>(row, col) = seen || hidden ? 0 : 1;
      }
    }
    cv::Mat numbers;
    cv::Mat boxes;
    cv::Mat centres;
    cv::connectedComponentsWithStats(gaps, numbers, boxes, centres, 4);
    const auto isSmall = [&](int k) {
      const int* box = boxes.ptr<int>(k);
      const int left = box[cv::CC_STAT_LEFT], top = box[cv::CC_STAT_TOP];
      const int width = box[cv::CC_STAT_WIDTH], height = box[cv::CC_STAT_HEIGHT];
      return left > 0 && top > 0 && left + width < wanted.cols && top + height < wanted.rows &&
             width <= kSmallest && height <= kSmallest;
    };
    for (int row = 0; row < wanted.rows; ++row) {
      const int* number = numbers.ptr<int>(row);
      for (int col = 0; col < wanted.cols; ++col) {
        if (number[col] > 0 && isSmall(number[col])) wanted.At(row, col) = 1;
      }
    }
  }

  const TextureJob& job_;
  CellSpan grid_;
  CellSpan core_;
  CellSpan window_;  ///< the core with its margin
  std::vector<View> views_;
};

}  // namespace

void MakeTextureBlock(const TextureJob& job, const CellSpan& cells, TextureBlock& block) {
  BlockMaker(job, cells).Run(block);
}

void FillUnseen(GridView<const std::uint8_t> wanted, GridView<const std::uint16_t> numbers,
                GridView<const float> heights, GridView<std::uint8_t> colours) {
  const std::size_t count = wanted.CellCount();
  std::vector<std::uint8_t> seen(count);
  for (int row = 0; row < numbers.rows; ++row) {
    std::transform(numbers.Row(row), numbers.Row(row) + numbers.cols,
                   seen.begin() + static_cast<std::ptrdiff_t>(row) * numbers.cols,
                   [](std::uint16_t number) { return number != 0 ? 1 : 0; });
  }
  const std::vector<float> flat(heights.Empty() ? count : 0);
  std::vector<std::uint8_t> filled(count);
  FillHoles(
      wanted, {seen.data(), wanted.rows, wanted.cols},
      heights.Empty() ? GridView<const float>(flat.data(), wanted.rows, wanted.cols) : heights, {},
      colours, {filled.data(), wanted.rows, wanted.cols});
}

}  // namespace tqtortho
