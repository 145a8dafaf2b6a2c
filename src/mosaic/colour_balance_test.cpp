// SPDX-License-Identifier: Apache-2.0
#include "mosaic/colour_balance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "mosaic/tone_scale.h"

namespace tqtortho {
namespace {

/// How the photos of a flight differ.
struct Differences {
  const char* what;
  double vignette = 0;  ///< of one camera; the other's is the opposite
  double outliers = 0;  ///< share of blocks that show something else
  double gamma = 0;     ///< spread of the photos' gammas
  bool toneMapped = false;
  double most = 0;  ///< grey values that adjusted photos may differ by, in the mean
};

/// A chain of photos, each sharing most of its blocks with the next, of two cameras in turn.
struct Flight {
  std::vector<PhotoColours> photos;
  std::vector<double> gains;
  std::vector<std::vector<bool>> outliers;

  static int CameraOf(std::size_t photo) { return photo % 3 == 0 ? 9 : 3; }
  Flight(std::size_t count, const Differences& d) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> ground;
    for (std::size_t i = 0; i < 40 * count + 200; ++i) ground.push_back(30 + 150 * unit(random));
    for (std::size_t p = 0; p < count; ++p) {
      gains.push_back(0.75 + 0.5 * unit(random));
      const double gamma = 1 + d.gamma * (unit(random) - 0.5);
      photos.push_back({CameraOf(p), {}});
      outliers.emplace_back();
      for (std::uint32_t i = 0; i < 200; ++i) {
        const double radius = std::fabs(i - 100.0) / 100.0;
        const double dark = (p % 3 == 0 ? -d.vignette : d.vignette) * radius * radius;
        double value = std::pow(ground[40 * p + i] / 128, gamma) * 128 * gains[p] * std::exp(-dark);
        if (d.toneMapped) value = 255 * (1 - std::exp(-1.6 * value / 128));
        outliers.back().push_back(unit(random) < d.outliers);
        if (outliers.back().back()) value *= 0.4;
        const auto mean = static_cast<std::uint16_t>(256 * std::min(value, 255.0));
        photos.back().samples.push_back({static_cast<std::uint32_t>(40 * p + i),
                                         {mean, mean, mean},
                                         static_cast<std::uint16_t>(radius * 65535)});
      }
    }
  }

  /// Mean difference of neighbours in the chain, in grey values, adjusted.
  [[nodiscard]] double Disagreement(const ColourModel& model) const {
    const ToneScale scale(model.shoulder);
    const auto adjusted = [&](std::size_t p, std::size_t i) {
      const ColourSample& sample = photos[p].samples[i];
      const double offset = model.Offset(p, CameraOf(p), 1, sample.radius / 65535.0);
      return scale.ValueOf(
          static_cast<float>(model.Slope(p, 1) * scale.ToneOf(sample.mean[1] / 256.0) + offset));
    };
    double sum = 0;
    int count = 0;
    for (std::size_t p = 0; p + 1 < photos.size(); ++p) {
      for (std::size_t i = 0; i < 160; ++i) {
        if (outliers[p][i + 40] || outliers[p + 1][i]) continue;
        sum += std::fabs(adjusted(p, i + 40) - adjusted(p + 1, i));
        ++count;
      }
    }
    return sum / count;
  }
};

TEST(BalanceColoursTest, PhotosAgreeAndTheJobDoesNotDrift) {
  const Differences cases[] = {{"gain", 0, 0, 0, false, 0.3},
                               {"vignette", 0.25, 0, 0, false, 0.45},
                               {"outliers", 0.25, 0.1, 0, false, 0.5},
                               {"gamma", 0, 0, 0.5, false, 0.5},
                               {"tone curve", 0, 0.1, 0, true, 1.5}};
  for (const Differences& d : cases) {
    SCOPED_TRACE(d.what);
    const Flight flight(12, d);
    const ColourModel model = BalanceColours(flight.photos, {});
    ColourModel none;
    none.photos.resize(12);
    EXPECT_GT(flight.Disagreement(none), 8);
    EXPECT_LT(flight.Disagreement(model), d.most);
    EXPECT_EQ(model.shoulder < 16, d.toneMapped);
    double brightness = 0, contrast = 0;
    for (const auto& photo : model.photos) {
      brightness += photo[2].brightness;
      contrast += photo[2].contrast;
    }
    EXPECT_NEAR(brightness, 0, 1e-9);
    EXPECT_NEAR(contrast, 0, 1e-9);
  }
}

TEST(BalanceColoursTest, GainsAndVignettesAreThoseOfTheFlight) {
  const Flight flight(12, {"vignette", 0.25, 0.1});
  const ColourModel model = BalanceColours(flight.photos, {});
  for (std::size_t p = 1; p < 12; ++p) {
    EXPECT_NEAR(model.photos[p][1].brightness - model.photos[0][1].brightness,
                std::log(flight.gains[p] / flight.gains[0]), 0.03)
        << p;
  }
  EXPECT_NEAR(model.Offset(3, 9, 0, 1) - model.Offset(3, 9, 0, 0), -0.25, 0.03);
  EXPECT_NEAR(model.Offset(2, 3, 0, 1) - model.Offset(2, 3, 0, 0), 0.25, 0.03);
}

TEST(BalanceColoursTest, PhotosThatShareNothingKeepTheirColours) {
  Flight flight(2, {"nothing shared"});
  for (auto& sample : flight.photos[1].samples) sample.block += 100000;
  const ColourModel model = BalanceColours(flight.photos, {});
  for (std::size_t p = 0; p < 2; ++p) {
    EXPECT_EQ(model.Slope(p, 0), 1);
    EXPECT_EQ(model.Offset(p, Flight::CameraOf(p), 0, 0.7), 0);
  }
  EXPECT_TRUE(BalanceColours({}, {}).photos.empty());
}

// The scale against its formula, there and back, and its ends.
TEST(ToneScaleTest, ValuesGoThereAndBackAndNeverBeyondWhite) {
  for (const double k : {1.0, 2.0, 4.0, 16.0}) {
    const ToneScale scale(k);
    for (int value = 1; value < 255; ++value) {
      const double u = value / 255.0;
      const double tone = std::log(u / std::pow(1 - std::pow(u, k), 1 / k));
      EXPECT_NEAR(scale.ToneOf(double(value)), tone, 1e-9);
      EXPECT_NEAR(scale.ValueOf(static_cast<float>(tone)), value, 0.02) << k;
      EXPECT_NEAR(scale.ToneBetween(static_cast<float>(value)), tone, 1e-5);
    }
    EXPECT_NEAR(scale.ValueOf(static_cast<float>(scale.ToneOf(40.0) + std::log(1.5))), 60,
                k < 2 ? 7 : 1)
        << "a factor in the shadows";
    EXPECT_LE(scale.ValueOf(50), 255);
    EXPECT_GE(scale.ValueOf(-50), 0);
    EXPECT_EQ(scale.ValueOf(std::nanf("")), 0);
  }
}

}  // namespace
}  // namespace tqtortho
