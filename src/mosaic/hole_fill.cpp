// SPDX-License-Identifier: Apache-2.0
#include "mosaic/hole_fill.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

/// Known cells this far take part in a new cell's mean.
constexpr int kWindow = 3;
constexpr int kSmoothings = 12;

/// State of a cell while holes are filled.
enum State : std::uint8_t {
  kIgnored,  ///< neither gives nor takes
  kSource,   ///< its colour is trusted
  kOpen,     ///< waits for a colour
  kQueued,   ///< stands in line for one
  kDone,     ///< got one
};

/// A colour in one register; the fourth value counts cells, with their weights. A vector type of
/// the compilers: left to themselves they take it apart.
using Four = float __attribute__((vector_size(16)));
struct SummedColour {
  Four v;
};

/// Inverse squared distances of the cells around one.
constexpr auto kWeights = [] {
  constexpr int kSide = 2 * kWindow + 1;
  std::array<float, kSide * kSide> weights{};
  for (int i = 0; i < kSide * kSide; ++i) {
    const int row = i / kSide - kWindow;
    const int col = i % kSide - kWindow;
    if (row != 0 || col != 0) weights[i] = 1.0F / static_cast<float>(row * row + col * col);
  }
  return weights;
}();

/// Works on the tile with a rim of ignored cells, so that no window leaves it.
class Filler {
 public:
  Filler(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
         GridView<const float> heights, const HoleFillOptions& options,
         GridView<std::uint8_t> pixels)
      : wanted_(wanted),
        seen_(seen),
        heights_(heights),
        options_(options),
        pixels_(pixels),
        rows_(wanted.rows),
        cols_(wanted.cols),
        stride_(std::ptrdiff_t{cols_} + 2 * kWindow) {}

  void Run(GridView<std::uint8_t> filled) {
    for (int row = 0; row < rows_; ++row) std::fill_n(filled.Row(row), cols_, std::uint8_t{0});
    SetStates();
    if (open_.empty()) return;
    TakeColours();
    Spread(true);
    Spread(false);
    Smooth();
    for (const std::ptrdiff_t i : done_) {
      const int row = static_cast<int>(i / stride_) - kWindow;
      const int col = static_cast<int>(i % stride_) - kWindow;
      if (wanted_.At(row, col) == 0) continue;
      filled.At(row, col) = 1;
      std::uint8_t* out = pixels_.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
      for (int b = 0; b < 3; ++b) {
        out[b] = static_cast<std::uint8_t>(std::clamp(colours_[i].v[b] + 0.5F, 1.0F, 255.0F));
      }
    }
  }

 private:
  [[nodiscard]] std::ptrdiff_t Index(int row, int col) const {
    return (row + kWindow) * stride_ + col + kWindow;
  }
  [[nodiscard]] bool SameLevel(float height, float other) const {
    return std::fabs(height - other) < options_.levelTolerance;
  }
  [[nodiscard]] bool IsKnown(std::ptrdiff_t i) const {
    return state_[i] == kSource || state_[i] == kDone;
  }

  /// Trusted cells are clear of holes and steps. Seen cells that are not are filled as well, to
  /// carry colours across them, and keep their own in the end.
  void SetStates() {
    cv::Mat clear(rows_, cols_, CV_8U);
    cv::Mat nearHole(rows_, cols_, CV_8U);
    for (int row = 0; row < rows_; ++row) {
      const float* here = heights_.Row(row);
      const float* below = heights_.Row(std::min(row + 1, rows_ - 1));
      const bool last = row + 1 == rows_;
      const std::uint8_t* wanted = wanted_.Row(row);
      auto* isClear = clear.ptr<std::uint8_t>(row);
      auto* isNear = nearHole.ptr<std::uint8_t>(row);
      for (int col = 0; col < cols_; ++col) {
        const bool right = col + 1 == cols_ || SameLevel(here[col], here[col + 1]);
        const bool down = last || SameLevel(here[col], below[col]);
        isClear[col] = right && down && wanted[col] == 0 ? 255 : 0;
        isNear[col] = wanted[col] != 0 ? 255 : 0;
      }
    }
    const int side = 2 * options_.clearance + 1;
    cv::erode(clear, clear, cv::getStructuringElement(cv::MORPH_RECT, {side, side}),
              cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    cv::dilate(nearHole, nearHole,
               cv::getStructuringElement(cv::MORPH_RECT, {2 * side + 1, 2 * side + 1}));
    state_.assign(static_cast<std::size_t>(stride_) * (rows_ + 2 * kWindow), kIgnored);
    for (int row = 0; row < rows_; ++row) {
      const std::uint8_t* wanted = wanted_.Row(row);
      const std::uint8_t* seen = seen_.Row(row);
      const auto* isClear = clear.ptr<std::uint8_t>(row);
      const auto* isNear = nearHole.ptr<std::uint8_t>(row);
      std::uint8_t* state = state_.data() + Index(row, 0);
      for (int col = 0; col < cols_; ++col) {
        if (wanted[col] == 0) {
          if (seen[col] == 0) continue;
          if (isClear[col] != 0) {
            state[col] = kSource;
            continue;
          }
          if (isNear[col] == 0) continue;
        }
        state[col] = kOpen;
        open_.push_back(Index(row, col));
      }
    }
  }

  /// Heights and colours of the cells that an open one can come to ask; the others' stay unset.
  void TakeColours() {
    levels_ = std::make_unique_for_overwrite<float[]>(state_.size());
    colours_ = std::make_unique_for_overwrite<SummedColour[]>(state_.size());
    cv::Mat asked(rows_, cols_, CV_8U);
    for (int row = 0; row < rows_; ++row) {
      const std::uint8_t* state = state_.data() + Index(row, 0);
      auto* out = asked.ptr<std::uint8_t>(row);
      for (int col = 0; col < cols_; ++col) out[col] = state[col] == kOpen ? 255 : 0;
    }
    constexpr int kSide = 2 * kWindow + 1;
    cv::dilate(asked, asked, cv::getStructuringElement(cv::MORPH_RECT, {kSide, kSide}));
    for (int row = 0; row < rows_; ++row) {
      const auto* isAsked = asked.ptr<std::uint8_t>(row);
      const std::uint8_t* p = pixels_.Row(row);
      const std::ptrdiff_t first = Index(row, 0);
      for (int col = 0; col < cols_; ++col, p += 3) {
        if (isAsked[col] == 0) continue;
        levels_[first + col] = heights_.At(row, col);
        colours_[first + col].v =
            Four{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]), 1};
      }
    }
  }

  /// Fills ring after ring. A cell joins the line when a known cell of its level is beside it.
  void Spread(bool level) {
    std::vector<std::ptrdiff_t> ring;
    for (const std::ptrdiff_t i : open_) {
      if (state_[i] != kOpen || !HasKnownNeighbour(i, level)) continue;
      ring.push_back(i);
    }
    for (const std::ptrdiff_t i : ring) state_[i] = kQueued;
    std::vector<std::ptrdiff_t> next;
    for (int distance = 0; distance < options_.reach && !ring.empty(); ++distance) {
      for (const std::ptrdiff_t i : ring) level ? Mean<true>(i) : Mean<false>(i);
      for (const std::ptrdiff_t i : ring) state_[i] = kDone;
      done_.insert(done_.end(), ring.begin(), ring.end());
      next.clear();
      for (const std::ptrdiff_t i : ring) Enqueue(i, level, next);
      ring.swap(next);
    }
    for (const std::ptrdiff_t i : ring) state_[i] = kOpen;
  }

  [[nodiscard]] bool HasKnownNeighbour(std::ptrdiff_t i, bool level) const {
    for (std::ptrdiff_t row = i - stride_; row <= i + stride_; row += stride_) {
      for (std::ptrdiff_t k = row - 1; k <= row + 1; ++k) {
        if (IsKnown(k) && (!level || SameLevel(levels_[i], levels_[k]))) return true;
      }
    }
    return false;
  }

  void Enqueue(std::ptrdiff_t i, bool level, std::vector<std::ptrdiff_t>& ring) {
    for (std::ptrdiff_t row = i - stride_; row <= i + stride_; row += stride_) {
      for (std::ptrdiff_t k = row - 1; k <= row + 1; ++k) {
        if (state_[k] != kOpen || (level && !SameLevel(levels_[i], levels_[k]))) continue;
        state_[k] = kQueued;
        ring.push_back(k);
      }
    }
  }

  template <bool kLevel>
  void Mean(std::ptrdiff_t i) {
    Four sum{};
    const float* weight = kWeights.data();
    for (int row = -kWindow; row <= kWindow; ++row) {
      const std::ptrdiff_t first = i + row * stride_ - kWindow;
      for (std::ptrdiff_t k = first; k <= first + 2 * kWindow; ++k, ++weight) {
        if (!IsKnown(k) || (kLevel && !SameLevel(levels_[i], levels_[k]))) continue;
        sum += *weight * colours_[k].v;
      }
    }
    colours_[i].v = sum / sum[3];
  }

  /// Steps of diffusion among filled cells of one level; sources stay.
  void Smooth() {
    // Which of the nine cells take part is the same in all steps.
    constexpr std::uint16_t kAll = 511;
    std::vector<std::uint16_t> members;
    members.reserve(done_.size());
    std::sort(done_.begin(), done_.end());
    for (const std::ptrdiff_t i : done_) {
      std::uint16_t set = 0;
      for (int k = 0; k < 9; ++k) {
        const std::ptrdiff_t other = i + (k / 3 - 1) * stride_ + k % 3 - 1;
        const bool joins = k == 4 || (IsKnown(other) && SameLevel(levels_[i], levels_[other]));
        set |= static_cast<std::uint16_t>(joins ? 1U << k : 0U);
      }
      members.push_back(set);
    }
    std::vector<SummedColour> smoothed(done_.size());
    for (int round = 0; round < kSmoothings; ++round) {
      // Columns of three cells, each of which serves three neighbours in a row.
      Four left{};
      Four middle{};
      std::ptrdiff_t columnsOf = -2;
      for (std::size_t n = 0; n < done_.size(); ++n) {
        const std::ptrdiff_t i = done_[n];
        Four sum{};
        if (members[n] == kAll) {
          if (columnsOf + 1 != i) {
            left = Column(i - 1);
            middle = Column(i);
          }
          const Four right = Column(i + 1);
          sum = left + middle + right;
          left = middle;
          middle = right;
          columnsOf = i;
        } else {
          const SummedColour* corner = colours_.get() + i - stride_ - 1;
          for (int k = 0; k < 9; ++k) {
            if ((members[n] >> k & 1) != 0) sum += corner[k / 3 * stride_ + k % 3].v;
          }
        }
        smoothed[n].v = sum / sum[3];
      }
      for (std::size_t n = 0; n < done_.size(); ++n) colours_[done_[n]] = smoothed[n];
    }
  }

  /// The sum of a cell and those above and below it.
  [[nodiscard]] Four Column(std::ptrdiff_t i) const {
    return colours_[i - stride_].v + colours_[i].v + colours_[i + stride_].v;
  }

  GridView<const std::uint8_t> wanted_;
  GridView<const std::uint8_t> seen_;
  GridView<const float> heights_;
  const HoleFillOptions& options_;
  GridView<std::uint8_t> pixels_;
  int rows_;
  int cols_;
  std::ptrdiff_t stride_;  ///< cells from one row to the next, with the rim
  std::vector<std::uint8_t> state_;
  std::unique_ptr<float[]> levels_;
  std::unique_ptr<SummedColour[]> colours_;
  std::vector<std::ptrdiff_t> open_;
  std::vector<std::ptrdiff_t> done_;
};

}  // namespace

void FillHoles(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
               GridView<const float> heights, const HoleFillOptions& options,
               GridView<std::uint8_t> pixels, GridView<std::uint8_t> filled) {
  if (wanted.Empty()) return;
  Filler(wanted, seen, heights, options, pixels).Run(filled);
}

}  // namespace tqtortho
