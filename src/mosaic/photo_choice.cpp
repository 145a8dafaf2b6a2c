// SPDX-License-Identifier: Apache-2.0
#include "mosaic/photo_choice.h"

#include <algorithm>
#include <array>

#include "mosaic/view_rating.h"

namespace tqtortho {
namespace {

using Views = std::vector<GridView<const std::uint8_t>>;

/// Gives small patches of one label to their neighbours.
class PatchMerger {
 public:
  PatchMerger(const Views& views, const PhotoChoiceOptions& options, GridView<std::uint16_t> labels)
      : views_(views), options_(options), labels_(labels), visited_(labels.CellCount(), 0) {}

  void Run() {
    for (int row = 0; row < labels_.rows; ++row) {
      for (int col = 0; col < labels_.cols; ++col) {
        if (visited_[Index(row, col)] == 0 && labels_.At(row, col) != kNoView) {
          Collect(row, col);
          if (static_cast<int>(patch_.size()) < options_.smallestPatch && !atRim_) GiveAway();
        }
      }
    }
  }

 private:
  struct Cell {
    int row;
    int col;
  };
  static constexpr std::array<Cell, 4> kSteps{{{-1, 0}, {1, 0}, {0, -1}, {0, 1}}};

  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(labels_.cols) +
           static_cast<std::size_t>(col);
  }

  /// The patch of equal labels around a cell, and the labels beside it.
  void Collect(int row, int col) {
    const std::uint16_t label = labels_.At(row, col);
    patch_.assign(1, {row, col});
    neighbours_.clear();
    atRim_ = false;
    visited_[Index(row, col)] = 1;
    for (std::size_t i = 0; i < patch_.size(); ++i) {
      const Cell cell = patch_[i];
      for (const Cell& step : kSteps) {
        const int r = cell.row + step.row;
        const int c = cell.col + step.col;
        if (!labels_.Contains(r, c)) {
          // What continues beyond the tile may be large there.
          atRim_ = true;
          continue;
        }
        const std::uint16_t other = labels_.At(r, c);
        if (other == label) {
          if (visited_[Index(r, c)] == 0) {
            visited_[Index(r, c)] = 1;
            patch_.push_back({r, c});
          }
        } else if (other != kNoView &&
                   std::find(neighbours_.begin(), neighbours_.end(), other) == neighbours_.end()) {
          neighbours_.push_back(other);
        }
      }
    }
  }

  void GiveAway() {
    for (const Cell& cell : patch_) {
      std::uint16_t& label = labels_.At(cell.row, cell.col);
      int best = views_[label - 1U].At(cell.row, cell.col) + options_.patchSlack;
      for (const std::uint16_t other : neighbours_) {
        const std::uint8_t rating = views_[other - 1U].At(cell.row, cell.col);
        if (IsSeen(rating) && rating < best) {
          best = rating;
          label = other;
        }
      }
    }
  }

  const Views& views_;
  const PhotoChoiceOptions& options_;
  GridView<std::uint16_t> labels_;
  std::vector<std::uint8_t> visited_;
  std::vector<Cell> patch_;
  std::vector<std::uint16_t> neighbours_;
  bool atRim_ = false;
};

}  // namespace

void ChooseBestViews(const std::vector<GridView<const std::uint8_t>>& views,
                     GridView<std::uint16_t> labels) {
  std::vector<std::uint8_t> best(static_cast<std::size_t>(labels.cols));
  for (int row = 0; row < labels.rows; ++row) {
    std::uint16_t* label = labels.Row(row);
    std::fill_n(label, labels.cols, kNoView);
    std::fill(best.begin(), best.end(), kHiddenView);
    for (std::size_t k = 0; k < views.size(); ++k) {
      const std::uint8_t* rating = views[k].Row(row);
      for (int col = 0; col < labels.cols; ++col) {
        if (rating[col] < best[col]) {
          best[col] = rating[col];
          label[col] = static_cast<std::uint16_t>(k + 1);
        }
      }
    }
  }
}

void MergePatches(const std::vector<GridView<const std::uint8_t>>& views,
                  const PhotoChoiceOptions& options, GridView<std::uint16_t> labels) {
  PatchMerger(views, options, labels).Run();
}

}  // namespace tqtortho
