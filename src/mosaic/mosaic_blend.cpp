// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <utility>
#include <vector>

#include "mosaic/view_rating.h"
#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

using Colour = std::array<float, 3>;

Colour ColourAt(const MosaicView& view, int row, int col) {
  const std::uint8_t* p = view.pixels.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
  const Colour colour{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
  return Adjusted(view.tones, colour, row, col);
}

/// 255 where a cell of another label is not farther than `reach` cells.
cv::Mat NearSeams(GridView<const std::uint16_t> labels, int reach) {
  cv::Mat seam = cv::Mat::zeros(labels.rows, labels.cols, CV_8U);
  for (int row = 0; row < labels.rows; ++row) {
    const std::uint16_t* label = labels.Row(row);
    const std::uint16_t* next = labels.Row(std::min(row + 1, labels.rows - 1));
    auto* out = seam.ptr<std::uint8_t>(row);
    for (int col = 0; col < labels.cols; ++col) {
      const bool right = col + 1 < labels.cols && label[col + 1] != label[col];
      if (right || next[col] != label[col]) out[col] = 255;
    }
  }
  cv::Mat near;
  cv::dilate(seam, near,
             cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * reach + 1, 2 * reach + 1)));
  return near;
}

/// The labels around a cell and how many cells each supplies.
struct LabelShares {
  static constexpr int kMost = 8;
  std::array<std::uint16_t, kMost> labels{};
  std::array<int, kMost> counts{};
  int size = 0;

  void Add(std::uint16_t label, int count) {
    for (int i = 0; i < size; ++i) {
      if (labels[i] == label) {
        counts[i] += count;
        return;
      }
    }
    if (size < kMost) {
      labels[size] = label;
      counts[size++] = count;
    }
  }
};

/// The shares around the cells of one row, which change little from a cell to the next.
class ShareWindow {
 public:
  ShareWindow(GridView<const std::uint16_t> labels, int feather)
      : labels_(labels), feather_(feather) {}

  void StartRow(int row) {
    firstRow_ = std::max(row - feather_, 0);
    endRow_ = std::min(row + feather_ + 1, labels_.rows);
    last_ = -2;
  }

  /// Cells of a row in increasing order.
  const LabelShares& At(int row, int col) {
    if (col == last_ + 1) {
      Count(col + feather_, 1);
      Count(col - feather_ - 1, -1);
    } else {
      all_.clear();
      for (int c = col - feather_; c <= col + feather_; ++c) Count(c, 1);
    }
    last_ = col;
    // The cell's own label first: never left out, however many others there are.
    shares_.size = 0;
    shares_.Add(labels_.At(row, col), 1);
    for (const auto& [label, count] : all_) {
      if (count > 0) shares_.Add(label, count);
    }
    return shares_;
  }

 private:
  void Count(int col, int change) {
    if (col < 0 || col >= labels_.cols) return;
    for (int r = firstRow_; r < endRow_; ++r) {
      const std::uint16_t label = labels_.At(r, col);
      if (label == 0) continue;
      auto entry = all_.begin();
      while (entry != all_.end() && entry->first != label) ++entry;
      if (entry == all_.end()) {
        all_.emplace_back(label, change);
      } else {
        entry->second += change;
      }
    }
  }

  GridView<const std::uint16_t> labels_;
  int feather_;
  int firstRow_ = 0;
  int endRow_ = 0;
  int last_ = -2;
  std::vector<std::pair<std::uint16_t, int>> all_;  ///< labels met in the row, with counts
  LabelShares shares_;
};

Colour Mixed(const std::vector<MosaicView>& views, const LabelShares& shares, int slack, int row,
             int col) {
  Colour sum{};
  float total = 0;
  const int limit =
      std::min<int>(views[shares.labels[0] - 1U].rating.At(row, col) + slack, kWorstView);
  for (int i = 0; i < shares.size; ++i) {
    const MosaicView& view = views[shares.labels[i] - 1U];
    if (view.rating.At(row, col) > limit) continue;
    const Colour colour = ColourAt(view, row, col);
    const auto share = static_cast<float>(shares.counts[i]);
    for (int b = 0; b < 3; ++b) sum[b] += share * colour[b];
    total += share;
  }
  for (float& value : sum) value /= total;
  return sum;
}

}  // namespace

std::array<float, 3> Adjusted(const ToneField& field, std::array<float, 3> colour, int row,
                              int col) {
  if (field.scale == nullptr) return colour;
  const int i = row / field.step;
  const int j = col / field.step;
  const float v = static_cast<float>(row - i * field.step) / static_cast<float>(field.step);
  const float u = static_cast<float>(col - j * field.step) / static_cast<float>(field.step);
  const float* upper = field.offsets.Row(i) + static_cast<std::ptrdiff_t>(3) * j;
  const float* lower = field.offsets.Row(i + 1) + static_cast<std::ptrdiff_t>(3) * j;
  for (int b = 0; b < 3; ++b) {
    if (!(colour[b] >= 1 && colour[b] < 255)) continue;
    const float offset = (1 - v) * ((1 - u) * upper[b] + u * upper[b + 3]) +
                         v * ((1 - u) * lower[b] + u * lower[b + 3]);
    const float tone = field.scale->ToneBetween(colour[b]);
    colour[b] = std::clamp(field.scale->ValueOf(field.slope[b] * tone + offset), 1.0F, 254.0F);
  }
  return colour;
}

void BlendViews(const std::vector<MosaicView>& views, GridView<const std::uint16_t> labels,
                const BlendOptions& options, const CellSpan& area, GridView<std::uint8_t> out) {
  const cv::Mat near = NearSeams(labels, options.feather);
  ShareWindow window(labels, options.feather);
  for (int row = area.firstRow; row < area.endRow; ++row) {
    std::uint8_t* to = out.Row(row - area.firstRow);
    const auto* nearRow = near.ptr<std::uint8_t>(row);
    window.StartRow(row);
    for (int col = area.firstCol; col < area.endCol; ++col, to += 3) {
      const std::uint16_t label = labels.At(row, col);
      if (label == 0) {
        std::fill_n(to, 3, std::uint8_t{0});
        continue;
      }
      const MosaicView& view = views[label - 1U];
      if (nearRow[col] == 0 && view.tones.scale == nullptr) {
        const std::uint8_t* from = view.pixels.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
        for (int b = 0; b < 3; ++b) to[b] = std::max<std::uint8_t>(from[b], 1);
        continue;
      }
      const Colour colour = nearRow[col] == 0
                                ? ColourAt(view, row, col)
                                : Mixed(views, window.At(row, col), options.slack, row, col);
      for (int b = 0; b < 3; ++b) {
        to[b] = static_cast<std::uint8_t>(std::clamp(colour[b] + 0.5F, 1.0F, 255.0F));
      }
    }
  }
}

void MeasureSeams(const std::vector<MosaicView>& views, GridView<const std::uint16_t> labels,
                  const CellSpan& area, SeamStatistics& statistics) {
  const auto compare = [&](int row, int col, std::uint16_t first, std::uint16_t second) {
    const MosaicView& a = views[first - 1U];
    const MosaicView& b = views[second - 1U];
    if (!IsSeen(a.rating.At(row, col)) || !IsSeen(b.rating.At(row, col))) return;
    const Colour colourA = ColourAt(a, row, col);
    const Colour colourB = ColourAt(b, row, col);
    const std::uint8_t* p = a.pixels.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
    const std::uint8_t* q = b.pixels.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
    ++statistics.compared;
    for (int i = 0; i < 3; ++i) {
      statistics.stepBefore += std::abs(p[i] - q[i]) / 3.0;
      statistics.stepAfter += std::fabs(colourA[i] - colourB[i]) / 3.0;
    }
  };
  for (int row = area.firstRow; row < area.endRow; ++row) {
    for (int col = area.firstCol; col < area.endCol; ++col) {
      const std::uint16_t label = labels.At(row, col);
      const auto pair = [&](int r, int c) {
        if (!labels.Contains(r, c)) return;
        const std::uint16_t other = labels.At(r, c);
        if (label == 0 || other == 0 || other == label) return;
        ++statistics.cells;
        compare(row, col, label, other);
      };
      pair(row, col + 1);
      pair(row + 1, col);
    }
  }
}

}  // namespace tqtortho
