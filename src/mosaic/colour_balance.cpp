// SPDX-License-Identifier: Apache-2.0
#include "mosaic/colour_balance.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tqtortho {
namespace {

constexpr int kRobustRounds = 4;
constexpr int kMostSteps = 300;
/// Log differences beyond this are doubted.
constexpr double kDoubtful = 0.04;
/// Vignettes of real lenses stay within this; the prior on their terms is 1 over its square.
constexpr double kVignetteSize = 1.0;

/// One block as two photos see it.
struct Comparison {
  std::uint32_t first;
  std::uint32_t second;
  std::array<float, 3> difference;  // log first - log second
  float r2First;
  float r2Second;
};

struct Entry {
  std::uint32_t block;
  std::uint32_t photo;
  const ColourSample* sample;
};

/// Every block's photos compared in turn, each with the next and the last with the first.
std::vector<Comparison> Compare(const std::vector<PhotoColours>& photos, std::size_t most) {
  std::vector<Entry> entries;
  for (std::size_t p = 0; p < photos.size(); ++p) {
    for (const ColourSample& sample : photos[p].samples) {
      entries.push_back({sample.block, static_cast<std::uint32_t>(p), &sample});
    }
  }
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return a.block != b.block ? a.block < b.block : a.photo < b.photo;
  });
  const std::size_t every = entries.size() / std::max<std::size_t>(most, 1) + 1;
  std::vector<Comparison> comparisons;
  std::size_t blocks = 0;
  for (std::size_t begin = 0, end = 0; begin < entries.size(); begin = end) {
    while (end < entries.size() && entries[end].block == entries[begin].block) ++end;
    const std::size_t count = end - begin;
    if (count < 2 || blocks++ % every != 0) continue;
    for (std::size_t i = 0; i < (count == 2 ? 1 : count); ++i) {
      const Entry& a = entries[begin + i];
      const Entry& b = entries[begin + (i + 1) % count];
      Comparison c{a.photo, b.photo, {}, 0, 0};
      for (int band = 0; band < 3; ++band) {
        c.difference[band] = static_cast<float>(std::log(
            static_cast<double>(a.sample->mean[band]) / static_cast<double>(b.sample->mean[band])));
      }
      const double ra = a.sample->radius / 65535.0;
      const double rb = b.sample->radius / 65535.0;
      c.r2First = static_cast<float>(ra * ra);
      c.r2Second = static_cast<float>(rb * rb);
      comparisons.push_back(c);
    }
  }
  return comparisons;
}

/// The unknowns in one vector: a gain per photo, then two vignette terms per camera.
class System {
 public:
  System(const std::vector<Comparison>& comparisons, const std::vector<std::size_t>& cameraOf,
         std::size_t cameras, double prior)
      : comparisons_(comparisons), cameraOf_(cameraOf), photos_(cameraOf.size()), prior_(prior) {
    size_ = photos_ + 2 * cameras;
    weights_.assign(comparisons.size(), 1.0F);
  }

  [[nodiscard]] std::size_t Size() const { return size_; }
  std::vector<float>& Weights() { return weights_; }

  /// What the model says of a comparison.
  [[nodiscard]] double Predict(const Comparison& c, const std::vector<double>& x) const {
    const std::size_t a = photos_ + 2 * cameraOf_[c.first];
    const std::size_t b = photos_ + 2 * cameraOf_[c.second];
    const double r2a = c.r2First;
    const double r2b = c.r2Second;
    return x[c.first] - x[c.second] + r2a * x[a] + r2a * r2a * x[a + 1] - r2b * x[b] -
           r2b * r2b * x[b + 1];
  }

  /// Adds `value` times the comparison's row of the design matrix.
  void AddRow(const Comparison& c, double value, std::vector<double>& out) const {
    const std::size_t a = photos_ + 2 * cameraOf_[c.first];
    const std::size_t b = photos_ + 2 * cameraOf_[c.second];
    const double r2a = c.r2First;
    const double r2b = c.r2Second;
    out[c.first] += value;
    out[c.second] -= value;
    out[a] += value * r2a;
    out[a + 1] += value * r2a * r2a;
    out[b] -= value * r2b;
    out[b + 1] -= value * r2b * r2b;
  }

  [[nodiscard]] double PriorOf(std::size_t i) const {
    return i < photos_ ? prior_ : 1 / (kVignetteSize * kVignetteSize);
  }

  void Apply(const std::vector<double>& x, std::vector<double>& out) const {
    for (std::size_t i = 0; i < size_; ++i) out[i] = PriorOf(i) * x[i];
    for (std::size_t k = 0; k < comparisons_.size(); ++k) {
      AddRow(comparisons_[k], weights_[k] * Predict(comparisons_[k], x), out);
    }
  }

  [[nodiscard]] std::vector<double> Diagonal() const {
    std::vector<double> diagonal(size_);
    for (std::size_t i = 0; i < size_; ++i) diagonal[i] = PriorOf(i);
    for (std::size_t k = 0; k < comparisons_.size(); ++k) {
      const Comparison& c = comparisons_[k];
      const double w = weights_[k];
      diagonal[c.first] += w;
      diagonal[c.second] += w;
      const double r2a = c.r2First;
      const double r2b = c.r2Second;
      const std::size_t a = photos_ + 2 * cameraOf_[c.first];
      const std::size_t b = photos_ + 2 * cameraOf_[c.second];
      diagonal[a] += w * r2a * r2a;
      diagonal[a + 1] += w * r2a * r2a * r2a * r2a;
      diagonal[b] += w * r2b * r2b;
      diagonal[b + 1] += w * r2b * r2b * r2b * r2b;
    }
    return diagonal;
  }

 private:
  const std::vector<Comparison>& comparisons_;
  const std::vector<std::size_t>& cameraOf_;
  std::size_t photos_;
  std::size_t size_ = 0;
  double prior_;
  std::vector<float> weights_;
};

double Dot(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

/// Conjugate gradients, preconditioned by the diagonal, from the x given.
void SolveFrom(const System& system, const std::vector<double>& right, std::vector<double>& x) {
  const std::size_t n = system.Size();
  const std::vector<double> diagonal = system.Diagonal();
  std::vector<double> residual(n), z(n), direction(n), image(n);
  system.Apply(x, image);
  for (std::size_t i = 0; i < n; ++i) {
    residual[i] = right[i] - image[i];
    z[i] = residual[i] / diagonal[i];
  }
  direction = z;
  double rz = Dot(residual, z);
  const double enough = 1e-16 * std::max(Dot(right, right), 1e-30);
  for (int step = 0; step < kMostSteps && rz > 0 && Dot(residual, residual) > enough; ++step) {
    system.Apply(direction, image);
    const double alpha = rz / Dot(direction, image);
    for (std::size_t i = 0; i < n; ++i) {
      x[i] += alpha * direction[i];
      residual[i] -= alpha * image[i];
      z[i] = residual[i] / diagonal[i];
    }
    const double next = Dot(residual, z);
    for (std::size_t i = 0; i < n; ++i) direction[i] = z[i] + next / rz * direction[i];
    rz = next;
  }
}

std::vector<double> SolveBand(const std::vector<Comparison>& comparisons, int band,
                              System& system) {
  std::vector<double> x(system.Size(), 0.0);
  auto& weights = system.Weights();
  std::fill(weights.begin(), weights.end(), 1.0F);
  for (int round = 0; round < kRobustRounds; ++round) {
    std::vector<double> right(system.Size(), 0.0);
    for (std::size_t k = 0; k < comparisons.size(); ++k) {
      system.AddRow(comparisons[k], weights[k] * comparisons[k].difference[band], right);
    }
    SolveFrom(system, right, x);
    for (std::size_t k = 0; k < comparisons.size(); ++k) {
      const double off =
          (comparisons[k].difference[band] - system.Predict(comparisons[k], x)) / kDoubtful;
      weights[k] = static_cast<float>(1 / (1 + off * off));
    }
  }
  return x;
}

}  // namespace

double ColourModel::Factor(std::size_t photo, int camera, int band, double radius) const {
  double brightness = photo < logGain.size() ? logGain[photo][band] : 0;
  const double r2 = radius * radius;
  for (const Vignette& vignette : vignettes) {
    if (vignette.camera == camera) {
      brightness += r2 * (vignette.terms[0] + r2 * vignette.terms[1]);
    }
  }
  return std::exp(-std::clamp(brightness, -1.5, 1.5));
}

ColourModel BalanceColours(const std::vector<PhotoColours>& photos,
                           const ColourBalanceOptions& options) {
  ColourModel model;
  model.logGain.assign(photos.size(), {});
  std::vector<std::size_t> cameraOf;
  for (const PhotoColours& photo : photos) {
    std::size_t index = 0;
    while (index < model.vignettes.size() && model.vignettes[index].camera != photo.camera) ++index;
    if (index == model.vignettes.size()) model.vignettes.push_back({photo.camera, {}});
    cameraOf.push_back(index);
  }
  const std::vector<Comparison> comparisons = Compare(photos, options.mostComparisons);
  if (comparisons.empty()) return model;
  System system(comparisons, cameraOf, model.vignettes.size(), options.prior);
  for (int band = 0; band < 3; ++band) {
    const std::vector<double> x = SolveBand(comparisons, band, system);
    double mean = 0;
    for (std::size_t p = 0; p < photos.size(); ++p) mean += x[p] / photos.size();
    for (std::size_t p = 0; p < photos.size(); ++p) model.logGain[p][band] = x[p] - mean;
    // A lens darkens all colours alike.
    for (std::size_t c = 0; c < model.vignettes.size(); ++c) {
      model.vignettes[c].terms[0] += x[photos.size() + 2 * c] / 3;
      model.vignettes[c].terms[1] += x[photos.size() + 2 * c + 1] / 3;
    }
  }
  return model;
}

}  // namespace tqtortho
