// SPDX-License-Identifier: Apache-2.0
#include "importers/photo_agreement.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <utility>

#include "core/numeric.h"
#include "score/patch_registration.h"

namespace tqtortho::host {
namespace {

// Of the samples a displacement across the bases may have: registration and poses are good to less.
constexpr double kMostAcross = 1.5;
// Difference of the two directions of view (tangents) from which on heights show.
constexpr double kLeastParallax = 0.05;
// Samples of one pair of photos are not quite independent, hence more than the usual three.
constexpr double kSureness = 5;
constexpr int kFewestSamples = 30;
// How far from a hypothesis the share may lie: an eroded surface gives back less than the whole.
constexpr double kNear = 0.4;

/// Grey value at a position of the lens's own raster.
std::optional<double> GreyAt(const AgreeingPhoto& photo, tqfd::Point2_T<double> at) {
  const auto& grey = photo.grey;
  const double col = (at.x + 0.5) * grey.cols / photo.lens.width - 0.5;
  const double row = (at.y + 0.5) * grey.rows / photo.lens.height - 0.5;
  if (!(col >= 0 && row >= 0 && col < grey.cols - 1 && row < grey.rows - 1)) return std::nullopt;
  const int c = FloorToInt(col), r = FloorToInt(row);
  const double u = col - c, v = row - r;
  return (1 - v) * ((1 - u) * grey.At(r, c) + u * grey.At(r, c + 1)) +
         v * ((1 - u) * grey.At(r + 1, c) + u * grey.At(r + 1, c + 1));
}

std::optional<double> GreyOfGround(const AgreeingPhoto& photo, const Vector3& ground) {
  const auto at = SeenAt(photo.lens, photo.place, ground);
  return at ? GreyAt(photo, *at) : std::nullopt;
}

/// What a photo shows on a patch of the surface.
std::optional<std::vector<float>> Rectified(const AgreeingPhoto& photo, const SurfacePatch& surface,
                                            const GroundPatch& patch) {
  std::vector<float> out;
  out.reserve(static_cast<std::size_t>(patch.samples) * static_cast<std::size_t>(patch.samples));
  for (int row = 0; row < patch.samples; ++row) {
    for (int col = 0; col < patch.samples; ++col) {
      const double x = patch.x + (col - 0.5 * (patch.samples - 1)) * patch.step;
      const double y = patch.y - (row - 0.5 * (patch.samples - 1)) * patch.step;
      const double height = surface.HeightAt(x, y);
      const auto grey = std::isfinite(height) ? GreyOfGround(photo, {x, y, height}) : std::nullopt;
      if (!grey) return std::nullopt;
      out.push_back(static_cast<float>(*grey));
    }
  }
  return out;
}

}  // namespace

double SurfacePatch::HeightAt(double x, double y) const {
  const double col = (x - west) / cell, row = (north - y) / cell;
  if (!(col >= 0 && row >= 0 && col <= cols - 1 && row <= rows - 1)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  const int c = std::min(FloorToInt(col), cols - 2), r = std::min(FloorToInt(row), rows - 2);
  if (c < 0 || r < 0) return std::numeric_limits<double>::quiet_NaN();
  const double u = col - c, v = row - r;
  const float* at = heights.data() + static_cast<std::ptrdiff_t>(r) * cols + c;
  return (1 - v) * ((1 - u) * at[0] + u * at[1]) + v * ((1 - u) * at[cols] + u * at[cols + 1]);
}

std::optional<tqfd::Point2_T<double>> SeenAt(const SourceLens& lens, const CameraPlace& place,
                                             const Vector3& ground) {
  Vector3 ray{};
  for (std::size_t i = 0; i < 3; ++i) ray[i] = ground[i] - place.centre[i];
  const Vector3 seen = Product(Transposed(place.cameraToGround), ray);
  const double forward = -seen[2];
  if (!(forward > 0)) return std::nullopt;
  const tqfd::Point2_T<double> straight = {seen[0] / forward, -seen[1] / forward};
  // Far outside the frame the polynomials of any lens fold back into it.
  const double reach =
      (lens.width + lens.height) / (lens.Size() * std::min(lens.focalX, lens.focalY));
  if (!(std::hypot(straight.x, straight.y) < reach) || FoldDeterminant(lens, straight) <= 0) {
    return std::nullopt;
  }
  const auto at = RecordedFromRay(lens, straight);
  if (!(at.x >= -0.5 && at.y >= -0.5 && at.x <= lens.width - 0.5 && at.y <= lens.height - 0.5)) {
    return std::nullopt;
  }
  return at;
}

std::optional<double> HeightAboveSurface(const AgreeingPhoto& one, const AgreeingPhoto& other,
                                         const SurfacePatch& surface, const GroundPatch& patch) {
  const double middle = surface.HeightAt(patch.x, patch.y);
  if (!std::isfinite(middle) || patch.samples < 16 || !(patch.step > 0)) return std::nullopt;
  // Ground higher by one metre is found displaced by this, in the second photo against the first.
  const Vector3 &a = one.place.centre, &b = other.place.centre;
  const double east = (patch.x - b[0]) / (b[2] - middle) - (patch.x - a[0]) / (a[2] - middle);
  const double north = (patch.y - b[1]) / (b[2] - middle) - (patch.y - a[1]) / (a[2] - middle);
  const double parallax = std::hypot(east, north);
  if (!(parallax > kLeastParallax) || !std::isfinite(parallax)) return std::nullopt;
  const auto first = Rectified(one, surface, patch);
  const auto second = first ? Rectified(other, surface, patch) : std::nullopt;
  PatchShift shift;
  if (!second || !RegisterPatch({first->data(), patch.samples, patch.samples},
                                {second->data(), patch.samples, patch.samples}, shift)) {
    return std::nullopt;
  }
  // Rows run to the south.
  const double along = (shift.dx * east - shift.dy * north) / parallax;
  const double across = (shift.dx * north + shift.dy * east) / parallax;
  if (!(std::fabs(across) < kMostAcross)) return std::nullopt;
  return along * patch.step / parallax;
}

int ShareFit::Decides() const {
  if (count < kFewestSamples || !(error * kSureness < 1)) return -1;
  const double slack = std::min(kNear, 0.5 - 2 * error);
  if (std::fabs(share) < slack) return 0;
  return std::fabs(share - 1) < slack ? 1 : -1;
}

ShareFit FitShare(std::vector<RelationSample> samples) {
  ShareFit fit;
  fit.error = std::numeric_limits<double>::infinity();
  fit.count = static_cast<int>(samples.size());
  if (samples.size() < 3) return fit;
  // Each pass takes the groups' weighted means off, fits, and weighs samples anew by how far they
  // lie off the line, in units of the median distance (Cauchy weights: outliers fade, none jumps).
  fit.share = 0.5;  // prejudice for neither
  std::vector<double> weights(samples.size(), 1.0);
  for (int pass = 0; pass < 20; ++pass) {
    std::map<int, std::array<double, 3>> sums;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      auto& sum = sums[samples[i].group];
      sum[0] += weights[i];
      sum[1] += weights[i] * samples[i].expected;
      sum[2] += weights[i] * samples[i].seen;
    }
    double xx = 0, xy = 0;
    const auto reduced = [&](const RelationSample& s) {
      const auto& sum = sums[s.group];
      return std::pair(s.expected - sum[1] / sum[0], s.seen - sum[2] / sum[0]);
    };
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const auto [x, y] = reduced(samples[i]);
      xx += weights[i] * x * x;
      xy += weights[i] * x * y;
    }
    if (!(xx > 0) || !std::isfinite(xx)) return fit;
    fit.share = xy / xx;
    std::vector<double> off(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const auto [x, y] = reduced(samples[i]);
      off[i] = std::fabs(y - fit.share * x);
    }
    std::vector<double> sorted = off;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const double scale = std::max(1.5 * *middle, 1e-6);  // 1.5: the normal distribution's
    // The error that this weighting leaves, from the samples' own scatter.
    double scatter = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const auto [x, y] = reduced(samples[i]);
      scatter += std::pow(weights[i] * x * off[i], 2);
      weights[i] = 1 / (1 + std::pow(off[i] / (2 * scale), 2));
    }
    fit.error = std::sqrt(scatter) / xx;
  }
  return fit;
}

}  // namespace tqtortho::host
