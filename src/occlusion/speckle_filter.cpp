// SPDX-License-Identifier: Apache-2.0
#include "occlusion/speckle_filter.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

namespace tqtortho {
namespace {

/// Connected cells of one row, and a node of the forest of regions.
struct Run {
  int row;
  int begin;           ///< first column
  int end;             ///< one past the last column
  std::size_t parent;  ///< a root is its own parent
  std::int64_t cells;  ///< of the whole region, valid at the root
};

class RegionForest {
 public:
  RegionForest(GridView<const std::uint8_t> mask, int maxDifference, const StopFlag* stop)
      : mask_(mask), maxDifference_(maxDifference) {
    std::size_t aboveBegin = 0;
    for (int row = 0; row < mask.rows; ++row) {
      GiveUpIfRaised(stop);
      const std::size_t rowBegin = runs_.size();
      AppendRuns(row);
      JoinRows(aboveBegin, rowBegin);
      aboveBegin = rowBegin;
    }
  }

  [[nodiscard]] const std::vector<Run>& Runs() const { return runs_; }
  [[nodiscard]] std::int64_t RegionCells(std::size_t run) { return runs_[Root(run)].cells; }

 private:
  [[nodiscard]] bool Connected(std::uint8_t a, std::uint8_t b) const {
    return a != 0 && b != 0 && std::abs(int{a} - int{b}) <= maxDifference_;
  }

  void AppendRuns(int row) {
    const std::uint8_t* cells = mask_.Row(row);
    for (int col = 0; col < mask_.cols;) {
      if (cells[col] == 0) {
        ++col;
        continue;
      }
      const int begin = col++;
      while (col < mask_.cols && Connected(cells[col - 1], cells[col])) ++col;
      runs_.push_back({row, begin, col, runs_.size(), col - begin});
    }
  }

  /// Joins the runs from `rowBegin` on with those of the row above, [aboveBegin, rowBegin).
  void JoinRows(std::size_t aboveBegin, std::size_t rowBegin) {
    std::size_t above = aboveBegin;
    std::size_t below = rowBegin;
    while (above < rowBegin && below < runs_.size()) {
      if (Touch(runs_[above], runs_[below])) Join(above, below);
      (runs_[above].end < runs_[below].end) ? ++above : ++below;
    }
  }

  [[nodiscard]] bool Touch(const Run& above, const Run& below) const {
    const int end = std::min(above.end, below.end);
    for (int col = std::max(above.begin, below.begin); col < end; ++col) {
      if (Connected(mask_.At(above.row, col), mask_.At(below.row, col))) return true;
    }
    return false;
  }

  std::size_t Root(std::size_t run) {
    while (runs_[run].parent != run) {
      runs_[run].parent = runs_[runs_[run].parent].parent;
      run = runs_[run].parent;
    }
    return run;
  }

  void Join(std::size_t a, std::size_t b) {
    a = Root(a);
    b = Root(b);
    if (a == b) return;
    if (runs_[a].cells < runs_[b].cells) std::swap(a, b);
    runs_[b].parent = a;
    runs_[a].cells += runs_[b].cells;
  }

  GridView<const std::uint8_t> mask_;
  int maxDifference_;
  std::vector<Run> runs_;
};

}  // namespace

void RemoveSpeckles(GridView<std::uint8_t> mask, int maxCells, int maxDifference,
                    const StopFlag* stop) {
  RegionForest forest(mask, maxDifference, stop);
  GiveUpIfRaised(stop);
  for (std::size_t i = 0; i < forest.Runs().size(); ++i) {
    const Run& run = forest.Runs()[i];
    const bool speckle = forest.RegionCells(i) <= maxCells;
    std::fill(mask.Row(run.row) + run.begin, mask.Row(run.row) + run.end,
              static_cast<std::uint8_t>(speckle ? 0 : 255));
  }
}

}  // namespace tqtortho
