// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_prior.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/numeric.h"

namespace tqtortho {
namespace {

constexpr int kMiddle = WallPrior::kBins / 2;

double CentreOf(int bin) { return (bin - kMiddle) * WallPrior::kBinWidth; }

}  // namespace

WallPrior::WallPrior() {
  constexpr double kUnsure = 0.15;
  for (int bin = 0; bin < kBins; ++bin) {
    upper_[static_cast<std::size_t>(bin)] =
        static_cast<float>(1 / (1 + std::exp(CentreOf(bin) / kUnsure)));
  }
}

WallPrior::WallPrior(const std::array<std::int64_t, kBins>& upper,
                     const std::array<std::int64_t, kBins>& lower)
    : WallPrior() {
  constexpr double kWeight = 20;  // of the line half way up, in cells
  constexpr std::int64_t kEnough = 500;
  std::int64_t all = 0;
  for (int bin = 0; bin < kBins; ++bin) all += upper[bin] + lower[bin];
  if (all < kEnough) return;
  // Pools neighbouring bins until shares fall outwards.
  struct Pool {
    double share, weight;
    int bins;
  };
  std::vector<Pool> pools;
  for (int bin = 0; bin < kBins; ++bin) {
    const double weight = static_cast<double>(upper[bin] + lower[bin]) + kWeight;
    pools.push_back({(static_cast<double>(upper[bin]) + kWeight * upper_[bin]) / weight, weight, 1});
    while (pools.size() > 1 && pools[pools.size() - 2].share < pools.back().share) {
      const Pool last = pools.back();
      pools.pop_back();
      Pool& before = pools.back();
      const double sum = before.weight + last.weight;
      before.share = (before.share * before.weight + last.share * last.weight) / sum;
      before.weight = sum;
      before.bins += last.bins;
    }
  }
  int bin = 0;
  for (const Pool& pool : pools) {
    for (int k = 0; k < pool.bins; ++k) upper_[bin++] = static_cast<float>(pool.share);
  }
  learned_ = true;
}

int WallPrior::BinOf(double offset) {
  return std::clamp(FloorToInt(offset / kBinWidth + 0.5) + kMiddle, 0, kBins - 1);
}

float WallPrior::Upper(double offset) const {
  const double at = std::clamp(offset / kBinWidth + kMiddle, 0.0, kBins - 1.0);
  const int bin = std::min(TruncToInt(at), kBins - 2);
  const auto t = static_cast<float>(at - bin);
  return upper_[bin] + t * (upper_[bin + 1] - upper_[bin]);
}

double WallPrior::Displacement() const {
  for (int bin = 0; bin + 1 < kBins; ++bin) {
    if (upper_[bin] >= 0.5F && upper_[bin + 1] < 0.5F) {
      const double t = (upper_[bin] - 0.5) / (upper_[bin] - upper_[bin + 1]);
      return CentreOf(bin) + t * kBinWidth;
    }
  }
  return 0;
}

float PhotosFavourUpper(const WallCell& cell) {
  constexpr float kSure = 12;   // grey values
  constexpr float kNoise = 3;   // below this spread photos agree
  const bool upperKnown = cell.onUpper.photos >= 2;
  const bool lowerKnown = cell.onLower.photos >= 2;
  if (!upperKnown || !lowerKnown) return 0;
  const float upper = std::max(cell.onUpper.spread, kNoise);
  const float lower = std::max(cell.onLower.spread, kNoise);
  return std::clamp((lower - upper) / kSure, -1.0F, 1.0F);
}

void CountSureCells(const std::vector<WallCell>& cells,
                    std::array<std::int64_t, WallPrior::kBins>& upper,
                    std::array<std::int64_t, WallPrior::kBins>& lower) {
  constexpr float kSure = 0.6F;
  for (const WallCell& cell : cells) {
    if (cell.onUpper.photos < 3 || cell.onLower.photos < 3) continue;
    const float favour = PhotosFavourUpper(cell);
    const auto bin = static_cast<std::size_t>(WallPrior::BinOf(cell.offset));
    if (favour > kSure) ++upper[bin];
    if (favour < -kSure) ++lower[bin];
  }
}

}  // namespace tqtortho
