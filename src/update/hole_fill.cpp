// SPDX-License-Identifier: Apache-2.0
#include "update/hole_fill.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "job/cv_bridge.h"

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
        cols_(wanted.cols) {}

  void Run(GridView<std::uint8_t> filled) {
    SetStates();
    colours_.resize(3 * state_.size());
    for (int row = 0; row < rows_; ++row) {
      std::copy_n(pixels_.Row(row), static_cast<std::size_t>(3) * cols_,
                  colours_.begin() + static_cast<std::ptrdiff_t>(3) * Index(row, 0));
    }
    Spread(true);
    Spread(false);
    for (int round = 0; round < kSmoothings; ++round) Smooth();
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const std::size_t i = Index(row, col);
        const bool take = state_[i] == kDone && wanted_.At(row, col) != 0;
        filled.At(row, col) = take ? 1 : 0;
        if (!take) continue;
        std::uint8_t* out = pixels_.Row(row) + static_cast<std::ptrdiff_t>(3) * col;
        for (std::size_t b = 0; b < 3; ++b) {
          out[b] = static_cast<std::uint8_t>(std::clamp(colours_[3 * i + b] + 0.5F, 1.0F, 255.0F));
        }
      }
    }
  }

 private:
  struct Cell {
    int row;
    int col;
  };

  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * cols_ + col;
  }
  [[nodiscard]] bool SameLevel(int row, int col, int otherRow, int otherCol) const {
    return std::fabs(heights_.At(row, col) - heights_.At(otherRow, otherCol)) <
           options_.levelTolerance;
  }

  /// Trusted cells are clear of holes and steps. Seen cells that are not are filled as well, to
  /// carry colours across them, and keep their own in the end.
  void SetStates() {
    cv::Mat clear(rows_, cols_, CV_8U);
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const bool step = (row + 1 < rows_ && !SameLevel(row, col, row + 1, col)) ||
                          (col + 1 < cols_ && !SameLevel(row, col, row, col + 1));
        const bool hole = wanted_.At(row, col) != 0;
        clear.at<std::uint8_t>(row, col) = step || hole ? 0 : 255;
      }
    }
    const int side = 2 * options_.clearance + 1;
    cv::erode(clear, clear, cv::getStructuringElement(cv::MORPH_RECT, {side, side}),
              cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    cv::Mat nearHole(rows_, cols_, CV_8U);
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        nearHole.at<std::uint8_t>(row, col) = wanted_.At(row, col) != 0 ? 255 : 0;
      }
    }
    cv::dilate(nearHole, nearHole,
               cv::getStructuringElement(cv::MORPH_RECT, {2 * side + 1, 2 * side + 1}));
    state_.assign(static_cast<std::size_t>(rows_) * cols_, kIgnored);
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        std::uint8_t& state = state_[Index(row, col)];
        if (wanted_.At(row, col) != 0) {
          state = kOpen;
        } else if (seen_.At(row, col) != 0) {
          const bool trusted = clear.at<std::uint8_t>(row, col) != 0;
          state = trusted ? kSource : nearHole.at<std::uint8_t>(row, col) != 0 ? kOpen : kIgnored;
        }
      }
    }
  }

  /// Fills ring after ring. A cell joins the line when a known cell of its level is beside it.
  void Spread(bool level) {
    std::vector<Cell> ring;
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const std::uint8_t state = state_[Index(row, col)];
        if (state == kSource || state == kDone) Enqueue(row, col, level, ring);
      }
    }
    std::vector<Cell> next;
    for (int distance = 0; distance < options_.reach && !ring.empty(); ++distance) {
      for (const Cell& cell : ring) Mean(cell, level);
      for (const Cell& cell : ring) state_[Index(cell.row, cell.col)] = kDone;
      next.clear();
      for (const Cell& cell : ring) Enqueue(cell.row, cell.col, level, next);
      ring.swap(next);
    }
    for (const Cell& cell : ring) state_[Index(cell.row, cell.col)] = kOpen;
  }

  void Enqueue(int row, int col, bool level, std::vector<Cell>& ring) {
    for (int r = std::max(row - 1, 0); r <= std::min(row + 1, rows_ - 1); ++r) {
      for (int c = std::max(col - 1, 0); c <= std::min(col + 1, cols_ - 1); ++c) {
        std::uint8_t& state = state_[Index(r, c)];
        if (state != kOpen || (level && !SameLevel(row, col, r, c))) continue;
        state = kQueued;
        ring.push_back({r, c});
      }
    }
  }

  void Mean(const Cell& cell, bool level) {
    std::array<float, 3> sum{};
    float total = 0;
    for (int r = std::max(cell.row - kWindow, 0); r <= std::min(cell.row + kWindow, rows_ - 1);
         ++r) {
      for (int c = std::max(cell.col - kWindow, 0); c <= std::min(cell.col + kWindow, cols_ - 1);
           ++c) {
        const std::size_t i = Index(r, c);
        if (state_[i] != kSource && state_[i] != kDone) continue;
        if (level && !SameLevel(cell.row, cell.col, r, c)) continue;
        const auto d2 =
            static_cast<float>((r - cell.row) * (r - cell.row) + (c - cell.col) * (c - cell.col));
        for (std::size_t b = 0; b < 3; ++b) sum[b] += colours_[3 * i + b] / d2;
        total += 1 / d2;
      }
    }
    const std::size_t i = Index(cell.row, cell.col);
    for (std::size_t b = 0; b < 3; ++b) colours_[3 * i + b] = sum[b] / total;
  }

  /// One step of diffusion among filled cells of one level; sources stay.
  void Smooth() {
    if (doneCells_.empty()) {
      for (int row = 0; row < rows_; ++row) {
        for (int col = 0; col < cols_; ++col) {
          if (state_[Index(row, col)] == kDone) doneCells_.push_back({row, col});
        }
      }
    }
    std::vector<float> smoothed(3 * doneCells_.size());
    for (std::size_t k = 0; k < doneCells_.size(); ++k) {
      const auto [row, col] = doneCells_[k];
      float total = 0;
      for (int r = std::max(row - 1, 0); r <= std::min(row + 1, rows_ - 1); ++r) {
        for (int c = std::max(col - 1, 0); c <= std::min(col + 1, cols_ - 1); ++c) {
          const std::size_t i = Index(r, c);
          if (state_[i] != kSource && state_[i] != kDone) continue;
          if (!(r == row && c == col) && !SameLevel(row, col, r, c)) continue;
          for (std::size_t b = 0; b < 3; ++b) smoothed[3 * k + b] += colours_[3 * i + b];
          ++total;
        }
      }
      for (std::size_t b = 0; b < 3; ++b) smoothed[3 * k + b] /= total;
    }
    for (std::size_t k = 0; k < doneCells_.size(); ++k) {
      const std::size_t i = Index(doneCells_[k].row, doneCells_[k].col);
      std::copy_n(smoothed.begin() + static_cast<std::ptrdiff_t>(3 * k), 3,
                  colours_.begin() + static_cast<std::ptrdiff_t>(3 * i));
    }
  }

  GridView<const std::uint8_t> wanted_;
  GridView<const std::uint8_t> seen_;
  GridView<const float> heights_;
  const HoleFillOptions& options_;
  GridView<std::uint8_t> pixels_;
  int rows_;
  int cols_;
  std::vector<std::uint8_t> state_;
  std::vector<float> colours_;
  std::vector<Cell> doneCells_;
};

}  // namespace

void FillHoles(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
               GridView<const float> heights, const HoleFillOptions& options,
               GridView<std::uint8_t> pixels, GridView<std::uint8_t> filled) {
  if (wanted.Empty()) return;
  Filler(wanted, seen, heights, options, pixels).Run(filled);
}

}  // namespace tqtortho
