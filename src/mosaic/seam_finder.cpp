// SPDX-License-Identifier: Apache-2.0
#include "mosaic/seam_finder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "mosaic/max_flow.h"
#include "mosaic/view_rating.h"

namespace tqtortho {
namespace {

/// One photo on the nodes.
struct NodeView {
  std::size_t view = 0;
  std::vector<std::uint8_t> best;            ///< best rating
  std::vector<float> cost;                   ///< mean rating; infinite where it sees nothing
  std::vector<std::array<float, 3>> colour;  ///< mean over the cells that it sees
};

class SeamMover {
 public:
  SeamMover(const std::vector<MosaicView>& views, GridView<const float> heights,
            const SeamOptions& options, GridView<std::uint16_t> labels)
      : options_(options), labels_(labels), side_(std::max(options.nodeSide, 1)) {
    rows_ = (labels.rows + side_ - 1) / side_;
    cols_ = (labels.cols + side_ - 1) / side_;
    CountCells();
    for (std::size_t k = 0; k < views.size(); ++k) {
      if (!views[k].pixels.Empty()) AddView(views[k], k);
    }
    FindSteps(heights);
  }

  void Run(const std::vector<MosaicView>& views) {
    if (nodeViews_.size() < 2) return;
    label_.assign(Nodes(), kNobody);
    for (int i = 0; i < Nodes(); ++i) {
      float least = std::numeric_limits<float>::infinity();
      for (std::size_t k = 0; k < nodeViews_.size(); ++k) {
        if (nodeViews_[k].cost[i] < least) {
          least = nodeViews_[k].cost[i];
          label_[i] = static_cast<int>(k);
        }
      }
    }
    for (int sweep = 0; sweep < options_.sweeps; ++sweep) {
      bool changed = false;
      for (std::size_t k = 0; k < nodeViews_.size(); ++k) {
        changed = Expand(static_cast<int>(k)) || changed;
      }
      if (!changed) break;
    }
    TakeOver(views);
  }

 private:
  static constexpr int kNobody = -1;

  [[nodiscard]] int Nodes() const { return rows_ * cols_; }

  /// Cells of each node that anybody sees.
  void CountCells() {
    cells_.assign(static_cast<std::size_t>(Nodes()), 0);
    for (int r = 0; r < labels_.rows; ++r) {
      const std::uint16_t* label = labels_.Row(r);
      int* cells = cells_.data() + static_cast<std::ptrdiff_t>(r / side_) * cols_;
      for (int j = 0; j < cols_; ++j) {
        const int end = std::min((j + 1) * side_, labels_.cols);
        for (int c = j * side_; c < end; ++c) cells[j] += label[c] != 0 ? 1 : 0;
      }
    }
  }

  void AddView(const MosaicView& view, std::size_t index) {
    NodeView node;
    node.view = index;
    node.cost.assign(static_cast<std::size_t>(Nodes()), std::numeric_limits<float>::infinity());
    node.colour.assign(node.cost.size(), {});
    node.best.assign(node.cost.size(), kHiddenView);
    for (int i = 0; i < rows_; ++i) {
      for (int j = 0; j < cols_; ++j) {
        const std::ptrdiff_t n = std::ptrdiff_t{i} * cols_ + j;
        const NodeSums sums = SumsOf(view, i, j);
        if (sums.seen == 0 || cells_[n] == 0) continue;
        node.best[n] = sums.best;
        node.cost[n] = static_cast<float>(
            (sums.rating + options_.unseen * (cells_[n] - sums.seen)) / cells_[n]);
        std::array<float, 3> mean{};
        for (std::size_t b = 0; b < 3; ++b) {
          mean[b] = static_cast<float>(static_cast<double>(sums.colour[b]) / sums.seen);
        }
        node.colour[n] = Adjusted(view.tones, mean, i * side_, j * side_);
      }
    }
    nodeViews_.push_back(std::move(node));
  }

  /// Over the cells of a node that a view sees.
  struct NodeSums {
    int seen = 0;
    int rating = 0;
    std::uint8_t best = kHiddenView;
    std::array<int, 3> colour{};
  };

  /// Whoever sees a cell can supply it, so a cell that a view sees has a label.
  [[nodiscard]] NodeSums SumsOf(const MosaicView& view, int i, int j) const {
    NodeSums sums;
    const int first = j * side_;
    const int end = std::min(first + side_, labels_.cols);
    const int endRow = std::min((i + 1) * side_, labels_.rows);
    for (int r = i * side_; r < endRow; ++r) {
      const std::uint8_t* ratings = view.rating.Row(r);
      int seen = 0;
      for (int c = first; c < end; ++c) seen += IsSeen(ratings[c]) ? 1 : 0;
      if (seen == 0) continue;
      sums.seen += seen;
      const std::uint8_t* p = view.pixels.Row(r) + std::ptrdiff_t{3} * first;
      for (int c = first; c < end; ++c, p += 3) {
        if (seen < end - first && !IsSeen(ratings[c])) continue;
        sums.rating += ratings[c];
        sums.best = std::min(sums.best, ratings[c]);
        for (std::size_t b = 0; b < 3; ++b) sums.colour[b] += p[b];
      }
    }
    return sums;
  }

  void FindSteps(GridView<const float> heights) {
    step_.assign(static_cast<std::size_t>(Nodes()), 0);
    for (int i = 0; i < rows_; ++i) {
      for (int j = 0; j < cols_; ++j) {
        float low = std::numeric_limits<float>::infinity();
        float high = -low;
        for (int r = i * side_; r < std::min((i + 1) * side_, labels_.rows); ++r) {
          for (int c = j * side_; c < std::min((j + 1) * side_, labels_.cols); ++c) {
            low = std::min(low, heights.At(r, c));
            high = std::max(high, heights.At(r, c));
          }
        }
        step_[std::ptrdiff_t{i} * cols_ + j] = high - low > options_.step ? 1 : 0;
      }
    }
  }

  /// Difference of two photos at a node.
  [[nodiscard]] float Difference(int a, int b, int node) const {
    const NodeView& first = nodeViews_[a];
    const NodeView& second = nodeViews_[b];
    const auto most = static_cast<float>(options_.mostGreys);
    if (std::isinf(first.cost[node]) || std::isinf(second.cost[node])) return most;
    float sum = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      sum += std::fabs(first.colour[node][c] - second.colour[node][c]);
    }
    return std::min(sum / 3, most);
  }

  /// What a seam between nodes p and q costs.
  [[nodiscard]] float Seam(int a, int b, int p, int q) const {
    if (a == b) return 0;
    const float steps = step_[p] != 0 || step_[q] != 0 ? static_cast<float>(options_.atStep) : 0;
    return static_cast<float>(options_.length) + steps +
           static_cast<float>(options_.perGrey) * 0.5F *
               (Difference(a, b, p) + Difference(a, b, q));
  }

  /// Offers photo `alpha` to all nodes that it sees; whether any took it.
  bool Expand(int alpha) {
    const NodeView& offered = nodeViews_[alpha];
    place_.assign(static_cast<std::size_t>(Nodes()), -1);
    int count = 0;
    for (int i = 0; i < Nodes(); ++i) {
      if (label_[i] != kNobody && label_[i] != alpha && !std::isinf(offered.cost[i])) {
        place_[i] = count++;
      }
    }
    if (count == 0) return false;
    // The sink's side takes the photo.
    MaxFlow flow(count);
    for (int i = 0; i < Nodes(); ++i) {
      if (place_[i] >= 0) {
        flow.AddSourceSideCost(place_[i], nodeViews_[label_[i]].cost[i]);
        flow.AddSinkSideCost(place_[i], offered.cost[i]);
      }
      if (i % cols_ + 1 < cols_) AddPair(alpha, i, i + 1, flow);
      if (i + cols_ < Nodes()) AddPair(alpha, i, i + cols_, flow);
    }
    flow.Solve();
    bool changed = false;
    for (int i = 0; i < Nodes(); ++i) {
      if (place_[i] < 0 || !flow.OnSinkSide(place_[i])) continue;
      label_[i] = alpha;
      changed = true;
    }
    return changed;
  }

  void AddPair(int alpha, int p, int q, MaxFlow& flow) const {
    const int a = label_[p];
    const int b = label_[q];
    if (a == kNobody || b == kNobody || (place_[p] < 0 && place_[q] < 0)) return;
    const float stay = Seam(a, b, p, q);
    const float secondTakes = Seam(a, alpha, p, q);
    const float firstTakes = Seam(alpha, b, p, q);
    if (place_[p] < 0) {
      flow.AddSourceSideCost(place_[q], stay);
      flow.AddSinkSideCost(place_[q], secondTakes);
      return;
    }
    if (place_[q] < 0) {
      flow.AddSourceSideCost(place_[p], stay);
      flow.AddSinkSideCost(place_[p], firstTakes);
      return;
    }
    // Both taking it costs nothing. Seam costs obey the triangle inequality, so the edge is not
    // negative but for rounding.
    flow.AddSinkSideCost(place_[p], firstTakes - stay);
    flow.AddSinkSideCost(place_[q], -firstTakes);
    flow.AddEdge(place_[p], place_[q], std::max(secondTakes + firstTakes - stay, 0.0F), 0);
  }

  /// The best rating of a node's photo in and around the node: the one without what borders cost.
  [[nodiscard]] int BestAround(const NodeView& view, int node) const {
    constexpr int kAround = 2;
    const int row = node / cols_;
    const int col = node % cols_;
    int best = kHiddenView;
    for (int i = std::max(row - kAround, 0); i <= std::min(row + kAround, rows_ - 1); ++i) {
      for (int j = std::max(col - kAround, 0); j <= std::min(col + kAround, cols_ - 1); ++j) {
        best = std::min<int>(best, view.best[i * cols_ + j]);
      }
    }
    return best;
  }

  /// Cells follow their node where its photo sees them well.
  void TakeOver(const std::vector<MosaicView>& views) {
    std::vector<int> limit(label_.size(), 0);
    for (int i = 0; i < Nodes(); ++i) {
      if (label_[i] != kNobody) limit[i] = BestAround(nodeViews_[label_[i]], i) + options_.slack;
    }
    for (int row = 0; row < labels_.rows; ++row) {
      std::uint16_t* label = labels_.Row(row);
      for (int col = 0; col < labels_.cols; ++col) {
        const int node = row / side_ * cols_ + col / side_;
        if (label[col] == 0 || label_[node] == kNobody) continue;
        const std::size_t view = nodeViews_[label_[node]].view;
        const int own = views[label[col] - 1U].rating.At(row, col);
        const std::uint8_t rating = views[view].rating.At(row, col);
        if (IsSeen(rating) && rating <= std::max(own + options_.slack, limit[node])) {
          label[col] = static_cast<std::uint16_t>(view + 1);
        }
      }
    }
  }

  const SeamOptions& options_;
  GridView<std::uint16_t> labels_;
  int side_;
  int rows_ = 0;
  int cols_ = 0;
  std::vector<int> cells_;  ///< of the nodes, with a label
  std::vector<NodeView> nodeViews_;
  std::vector<std::uint8_t> step_;
  std::vector<int> label_;  ///< of the nodes, an index into nodeViews_
  std::vector<int> place_;  ///< of the nodes in the current graph, -1 for none
};

}  // namespace

void MoveSeams(const std::vector<MosaicView>& views, GridView<const float> heights,
               const SeamOptions& options, GridView<std::uint16_t> labels) {
  if (labels.Empty()) return;
  SeamMover(views, heights, options, labels).Run(views);
}

}  // namespace tqtortho
