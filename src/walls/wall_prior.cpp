// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_prior.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

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
    pools.push_back(
        {(static_cast<double>(upper[bin]) + kWeight * upper_[bin]) / weight, weight, 1});
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

float SpreadOfAgreement(const std::vector<std::vector<WallCell>>& parts) {
  constexpr float kLeast = 1.5F;
  constexpr float kMost = 10;
  std::vector<float> spreads;
  for (const auto& cells : parts) {
    for (const WallCell& cell : cells) {
      if (cell.onUpper.photos < 3 || cell.onLower.photos < 3) continue;
      spreads.push_back(std::min(cell.onUpper.spread, cell.onLower.spread));
    }
  }
  if (spreads.empty()) return kLeast;
  const auto half = spreads.begin() + static_cast<std::ptrdiff_t>(spreads.size() / 2);
  std::nth_element(spreads.begin(), half, spreads.end());
  return std::clamp(*half, kLeast, kMost);
}

float PhotosFavourUpper(const WallCell& cell, float agreement) {
  if (cell.onUpper.photos < 2) return 0;
  const float upper = std::max(cell.onUpper.spread, agreement);
  const float lower = std::max(cell.onLower.spread, agreement);
  const float scale = 4 * agreement;
  // Against what agreement looks like; less sure where only one side's photos take part.
  const bool around = cell.onUpper.across >= 1 && cell.onUpper.across < cell.onUpper.photos;
  const float absolute = (2.5F * agreement - upper) / (1.5F * agreement);
  const float own = std::clamp(absolute, -1.0F, around ? 1.0F : 0.3F);
  if (cell.onLower.photos < 2) return 0.7F * own;
  return std::clamp(0.6F * own + 0.6F * std::clamp((lower - upper) / scale, -1.0F, 1.0F), -1.0F,
                    1.0F);
}

void CountSureCells(const std::vector<WallCell>& cells, float agreement,
                    std::array<std::int64_t, WallPrior::kBins>& upper,
                    std::array<std::int64_t, WallPrior::kBins>& lower) {
  constexpr float kSure = 0.4F;
  for (const WallCell& cell : cells) {
    if (cell.onUpper.photos < 3 || cell.onUpper.across < 1) continue;
    const float favour = PhotosFavourUpper(cell, agreement);
    const auto bin = static_cast<std::size_t>(WallPrior::BinOf(cell.offset));
    if (favour > kSure) ++upper[bin];
    if (favour < -kSure) ++lower[bin];
  }
}

}  // namespace tqtortho
