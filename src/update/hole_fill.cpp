// SPDX-License-Identifier: Apache-2.0
#include "update/hole_fill.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tqtortho {
namespace {

struct Step {
  double row;
  double col;
};

std::array<Step, 16> Directions() {
  std::array<Step, 16> steps{};
  for (int i = 0; i < 16; ++i) {
    const double angle = i * 0.39269908169872414;  // a sixteenth of the circle
    steps[static_cast<std::size_t>(i)] = {std::sin(angle), std::cos(angle)};
  }
  return steps;
}

class Filler {
 public:
  Filler(GridView<const std::uint8_t> seen, GridView<const float> heights,
         const HoleFillOptions& options, GridView<const std::uint8_t> pixels)
      : seen_(seen), heights_(heights), options_(options), pixels_(pixels) {}

  /// The colour for a cell; false when nothing is within reach.
  bool ColourFor(int row, int col, std::uint8_t* out) const {
    static const auto kDirections = Directions();
    Mix level;
    Mix any;
    const float height = heights_.At(row, col);
    for (const Step& step : kDirections) Follow(step, row, col, height, level, any);
    const Mix& mix = level.weight > 0 ? level : any;
    if (!(mix.weight > 0)) return false;
    for (int b = 0; b < 3; ++b) {
      out[b] = static_cast<std::uint8_t>(std::clamp(mix.sum[b] / mix.weight + 0.5, 1.0, 255.0));
    }
    return true;
  }

 private:
  struct Mix {
    double weight = 0;
    std::array<double, 3> sum{};
    void Add(const std::uint8_t* p, double distance) {
      const double w = 1 / (distance * distance);
      weight += w;
      for (int b = 0; b < 3; ++b) sum[b] += w * p[b];
    }
  };

  void Follow(const Step& step, int row, int col, float height, Mix& level, Mix& any) const {
    bool haveAny = false;
    for (int distance = 1; distance <= options_.reach; ++distance) {
      const int r = row + static_cast<int>(std::lround(step.row * distance));
      const int c = col + static_cast<int>(std::lround(step.col * distance));
      if (!seen_.Contains(r, c)) return;
      if (seen_.At(r, c) == 0) continue;
      const std::uint8_t* p = pixels_.Row(r) + static_cast<std::ptrdiff_t>(3) * c;
      if (std::fabs(heights_.At(r, c) - height) < options_.levelTolerance) {
        level.Add(p, distance);
        return;
      }
      if (!haveAny) any.Add(p, distance);
      haveAny = true;
    }
  }

  GridView<const std::uint8_t> seen_;
  GridView<const float> heights_;
  const HoleFillOptions& options_;
  GridView<const std::uint8_t> pixels_;
};

}  // namespace

int FillHoles(GridView<const std::uint8_t> wanted, GridView<const std::uint8_t> seen,
              GridView<const float> heights, const HoleFillOptions& options, const CellSpan& area,
              GridView<std::uint8_t> pixels, GridView<std::uint8_t> filled) {
  const Filler filler(seen, heights, options, pixels);
  int count = 0;
  for (int row = area.firstRow; row < area.endRow; ++row) {
    for (int col = area.firstCol; col < area.endCol; ++col) {
      std::uint8_t& done = filled.At(row, col);
      done = 0;
      if (wanted.At(row, col) == 0 || seen.At(row, col) != 0) continue;
      if (filler.ColourFor(row, col, pixels.Row(row) + static_cast<std::ptrdiff_t>(3) * col)) {
        done = 1;
        ++count;
      }
    }
  }
  return count;
}

}  // namespace tqtortho
