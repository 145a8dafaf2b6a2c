// SPDX-License-Identifier: Apache-2.0
#include "mosaic/colour_balance.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>

#include "mosaic/tone_scale.h"

namespace tqtortho {
namespace {

constexpr int kRobustRounds = 4;
constexpr int kMostSteps = 300;
/// Differences of tone beyond this are doubted.
constexpr double kDoubtful = 0.06;
/// Vignettes of real lenses stay within this; the prior on their terms is 1 over its square.
constexpr double kVignetteSize = 1.0;
/// Weight of "contrasts add up to none", in blocks.
constexpr double kGauge = 100;
/// No photo is adjusted by more than this, whatever it shares with others.
constexpr double kMostBrightness = 1.5;
constexpr double kMostContrast = 0.6;

/// The scales that are tried, the plain one first: another must be better by a hundredth.
constexpr std::array<double, 4> kShoulders = {16, 4, 2, 1};
constexpr double kClearlyBetter = 0.99;
/// Comparisons by which the scale is chosen.
constexpr std::size_t kTrialComparisons = 20'000;

/// A block as one photo sees it.
struct Look {
  std::uint32_t photo;
  float r2;  ///< square of the radius
  std::array<float, 3> value;
};

/// One block as two photos see it.
struct Comparison {
  Look first;
  Look second;
};

struct Entry {
  std::uint32_t block;
  std::uint32_t photo;
  const ColourSample* sample;
};

Look LookOf(const Entry& entry) {
  Look look{entry.photo, 0, {}};
  const double radius = entry.sample->radius / 65535.0;
  look.r2 = static_cast<float>(radius * radius);
  for (std::size_t band = 0; band < 3; ++band) {
    look.value[band] = static_cast<float>(entry.sample->mean[band]) / 256;
  }
  return look;
}

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
      comparisons.push_back({LookOf(entries[begin + i]), LookOf(entries[begin + (i + 1) % count])});
    }
  }
  return comparisons;
}

/// What is asked of one band: that the photos' tones agree, and that the contrasts add up to none,
/// without which photos would agree best where all are made flat. The unknowns in one vector:
/// brightness and contrast of each photo, then two vignette terms of each camera.
class System {
 public:
  System(const std::vector<Comparison>& comparisons, std::size_t band, const ToneScale& scale,
         double pivot, const std::vector<std::size_t>& cameraOf, std::size_t cameras,
         const ColourBalanceOptions& options)
      : photos_(cameraOf.size()), options_(options) {
    size_ = 2 * photos_ + 2 * cameras;
    rows_.reserve(2 * comparisons.size());
    for (const Comparison& c : comparisons) {
      for (const Look* look : {&c.first, &c.second}) {
        rows_.push_back({static_cast<std::uint32_t>(2 * look->photo),
                         static_cast<std::uint32_t>(2 * (photos_ + cameraOf[look->photo])),
                         static_cast<float>(scale.ToneOf(double{look->value[band]}) - pivot),
                         look->r2});
      }
    }
    weights_.assign(comparisons.size(), 1.0F);
  }

  [[nodiscard]] std::size_t Size() const { return size_; }
  [[nodiscard]] std::size_t Comparisons() const { return weights_.size(); }
  std::vector<float>& Weights() { return weights_; }

  /// By how much the photos of a comparison differ as they are ...
  [[nodiscard]] double Difference(std::size_t k) const {
    return double{rows_[2 * k].tone} - double{rows_[2 * k + 1].tone};
  }
  /// ... and by how much the model says that they do.
  [[nodiscard]] double Predict(std::size_t k, const std::vector<double>& x) const {
    return Excess(rows_[2 * k], x) - Excess(rows_[2 * k + 1], x);
  }

  /// Adds `value` times the comparison's row of the design matrix.
  void AddRow(std::size_t k, double value, std::vector<double>& out) const {
    AddHalf(rows_[2 * k], value, out);
    AddHalf(rows_[2 * k + 1], -value, out);
  }

  void Apply(const std::vector<double>& x, std::vector<double>& out) const {
    double contrasts = 0;
    for (std::size_t p = 0; p < photos_; ++p) contrasts += x[2 * p + 1];
    for (std::size_t i = 0; i < size_; ++i) out[i] = PriorOf(i) * x[i];
    for (std::size_t p = 0; p < photos_; ++p) out[2 * p + 1] += kGauge * contrasts;
    for (std::size_t k = 0; k < Comparisons(); ++k) AddRow(k, weights_[k] * Predict(k, x), out);
  }

  [[nodiscard]] std::vector<double> Diagonal() const {
    std::vector<double> diagonal(size_);
    for (std::size_t i = 0; i < size_; ++i) diagonal[i] = PriorOf(i);
    for (std::size_t p = 0; p < photos_; ++p) diagonal[2 * p + 1] += kGauge;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      const Half& half = rows_[i];
      const double w = weights_[i / 2], r2 = half.r2, tone = half.tone;
      diagonal[half.photo] += w;
      diagonal[half.photo + 1] += w * tone * tone;
      diagonal[half.camera] += w * r2 * r2;
      diagonal[half.camera + 1] += w * r2 * r2 * r2 * r2;
    }
    return diagonal;
  }

 private:
  struct Half {
    std::uint32_t photo;   ///< place of its unknowns
    std::uint32_t camera;  ///< likewise
    float tone;            ///< from the pivot
    float r2;
  };

  /// How far the model says that a tone lies above the job's.
  static double Excess(const Half& half, const std::vector<double>& x) {
    const double r2 = half.r2;
    return x[half.photo] + half.tone * x[half.photo + 1] +
           r2 * (x[half.camera] + r2 * x[half.camera + 1]);
  }
  static void AddHalf(const Half& half, double value, std::vector<double>& out) {
    const double r2 = half.r2;
    out[half.photo] += value;
    out[half.photo + 1] += value * half.tone;
    out[half.camera] += value * r2;
    out[half.camera + 1] += value * r2 * r2;
  }
  [[nodiscard]] double PriorOf(std::size_t i) const {
    if (i >= 2 * photos_) return 1 / (kVignetteSize * kVignetteSize);
    return i % 2 == 0 ? options_.prior : options_.contrastPrior;
  }

  std::vector<Half> rows_;
  std::size_t photos_;
  std::size_t size_ = 0;
  ColourBalanceOptions options_;
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

std::vector<double> SolveBand(System& system) {
  std::vector<double> x(system.Size(), 0.0);
  auto& weights = system.Weights();
  for (int round = 0; round < kRobustRounds; ++round) {
    std::vector<double> right(system.Size(), 0.0);
    for (std::size_t k = 0; k < system.Comparisons(); ++k) {
      system.AddRow(k, weights[k] * system.Difference(k), right);
    }
    SolveFrom(system, right, x);
    for (std::size_t k = 0; k < system.Comparisons(); ++k) {
      const double off = (system.Difference(k) - system.Predict(k, x)) / kDoubtful;
      weights[k] = static_cast<float>(1 / (1 + off * off));
    }
  }
  return x;
}

/// The cameras of photos, each once, and which of them each photo has.
struct Cameras {
  std::vector<int> ids;
  std::vector<std::size_t> of;

  explicit Cameras(const std::vector<PhotoColours>& photos) {
    std::map<int, std::size_t> places;
    for (const PhotoColours& photo : photos) {
      const auto [place, isNew] = places.emplace(photo.camera, ids.size());
      if (isNew) ids.push_back(photo.camera);
      of.push_back(place->second);
    }
  }
};

ColourModel Solve(const std::vector<Comparison>& comparisons, const Cameras& cameras,
                  double shoulder, const ColourBalanceOptions& options) {
  const std::size_t photos = cameras.of.size();
  ColourModel model;
  model.shoulder = shoulder;
  model.photos.assign(photos, {});
  for (const int id : cameras.ids) model.vignettes.push_back({id, {}});
  if (comparisons.empty()) return model;
  const ToneScale scale(shoulder);
  for (std::size_t band = 0; band < 3; ++band) {
    double pivot = 0;
    for (const Comparison& c : comparisons) {
      pivot += scale.ToneOf(double{c.first.value[band]}) / static_cast<double>(comparisons.size());
    }
    System system(comparisons, band, scale, pivot, cameras.of, cameras.ids.size(), options);
    const std::vector<double> x = SolveBand(system);
    double brightness = 0, contrast = 0;
    for (std::size_t p = 0; p < photos; ++p) {
      brightness += x[2 * p] / static_cast<double>(photos);
      contrast += x[2 * p + 1] / static_cast<double>(photos);
    }
    model.pivot[band] = pivot;
    for (std::size_t p = 0; p < photos; ++p) {
      model.photos[p][band] = {x[2 * p] - brightness, x[2 * p + 1] - contrast};
    }
    // A lens darkens all colours alike.
    for (std::size_t c = 0; c < cameras.ids.size(); ++c) {
      model.vignettes[c].terms[0] += x[2 * (photos + c)] / 3;
      model.vignettes[c].terms[1] += x[2 * (photos + c) + 1] / 3;
    }
  }
  return model;
}

/// By how many grey values adjusted photos differ; great differences, of things that moved, count
/// no more than a few.
double Disagreement(const std::vector<Comparison>& comparisons, const Cameras& cameras,
                    const ColourModel& model) {
  constexpr double kMost = 20;
  const ToneScale scale(model.shoulder);
  const auto adjusted = [&](const Look& look, int band) {
    const double tone = scale.ToneOf(double{look.value[static_cast<std::size_t>(band)]});
    const int camera = cameras.ids[cameras.of[look.photo]];
    return scale.ValueOf(
        static_cast<float>(model.Slope(look.photo, band) * tone +
                           model.Offset(look.photo, camera, band, std::sqrt(look.r2))));
  };
  double sum = 0;
  for (const Comparison& c : comparisons) {
    for (int band = 0; band < 3; ++band) {
      sum += std::min(std::fabs(double{adjusted(c.first, band)} - adjusted(c.second, band)), kMost);
    }
  }
  return sum;
}

}  // namespace

double ColourModel::Slope(std::size_t photo, int band) const {
  const double contrast = photos.at(photo)[static_cast<std::size_t>(band)].contrast;
  return 1 - std::clamp(contrast, -kMostContrast, kMostContrast);
}

double ColourModel::Offset(std::size_t photo, int camera, int band, double radius) const {
  const auto b = static_cast<std::size_t>(band);
  double excess = photos.at(photo)[b].brightness;
  const double r2 = radius * radius;
  for (const Vignette& vignette : vignettes) {
    if (vignette.camera == camera) excess += r2 * (vignette.terms[0] + r2 * vignette.terms[1]);
  }
  return (1 - Slope(photo, band)) * pivot[b] -
         std::clamp(excess, -kMostBrightness, kMostBrightness);
}

ColourModel BalanceColours(const std::vector<PhotoColours>& photos,
                           const ColourBalanceOptions& options) {
  const Cameras cameras(photos);
  const std::vector<Comparison> trial =
      Compare(photos, std::min(kTrialComparisons, options.mostComparisons));
  double shoulder = kShoulders.front(), least = 0;
  for (const double tried : kShoulders) {
    const double off = Disagreement(trial, cameras, Solve(trial, cameras, tried, options));
    if (tried == kShoulders.front() || off < kClearlyBetter * least) {
      shoulder = tried;
      least = off;
    }
  }
  return Solve(Compare(photos, options.mostComparisons), cameras, shoulder, options);
}

}  // namespace tqtortho
