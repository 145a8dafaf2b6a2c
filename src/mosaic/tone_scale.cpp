// SPDX-License-Identifier: Apache-2.0
#include "mosaic/tone_scale.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tqtortho {
namespace {

constexpr double kWhite = 255;
constexpr double kLeast = 0.5;
constexpr double kMost = 254.75;

}  // namespace

ToneScale::ToneScale(double shoulder) : shoulder_(shoulder) {
  for (std::size_t value = 0; value < tones_.size(); ++value) {
    tones_[value] = static_cast<float>(ToneOf(static_cast<double>(value)));
  }
  const double brightest = ToneOf(kMost);
  for (double tone = kDarkest; tone < brightest + 2.0 * kStep; tone += kStep) {
    const double odds = std::exp(-shoulder_ * tone);
    values_.push_back(static_cast<float>(kWhite * std::pow(1 + odds, -1 / shoulder_)));
  }
}

double ToneScale::ToneOf(double value) const {
  const double u = std::clamp(value, kLeast, kMost) / kWhite;
  return std::log(u) - std::log1p(-std::pow(u, shoulder_)) / shoulder_;
}

float ToneScale::ValueOf(float tone) const {
  const float place = (tone - kDarkest) * (1 / kStep);
  if (!(place > 0)) return std::isnan(tone) ? 0 : values_.front();
  const auto last = static_cast<float>(values_.size() - 1);
  if (place >= last) return values_.back();
  const auto i = static_cast<std::size_t>(place);
  return values_[i] + (place - static_cast<float>(i)) * (values_[i + 1] - values_[i]);
}

}  // namespace tqtortho
