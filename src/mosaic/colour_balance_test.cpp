// SPDX-License-Identifier: Apache-2.0
#include "mosaic/colour_balance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

/// A chain of photos, each sharing most of its blocks with the next, of one camera with a vignette.
struct Flight {
  std::vector<PhotoColours> photos;
  std::vector<double> gains;

  Flight(int count, double vignette, double outliers) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> ground;
    for (int i = 0; i < 40 * count + 200; ++i) ground.push_back(60 + 100 * unit(random));
    for (int p = 0; p < count; ++p) {
      gains.push_back(0.8 + 0.4 * unit(random));
      PhotoColours photo;
      photo.camera = 3;
      for (int i = 0; i < 200; ++i) {
        ColourSample sample;
        sample.block = static_cast<std::uint32_t>(40 * p + i);
        const double radius = std::fabs(i - 100) / 100.0;
        sample.radius = static_cast<std::uint16_t>(radius * 65535);
        double value = ground[sample.block] * gains.back() * std::exp(-vignette * radius * radius);
        if (unit(random) < outliers) value *= 0.4;
        for (auto& mean : sample.mean) mean = static_cast<std::uint16_t>(value * 256);
        photo.samples.push_back(sample);
      }
      photos.push_back(photo);
    }
  }
};

TEST(BalanceColoursTest, GainsAndVignetteOfAChainAreFound) {
  for (const double outliers : {0.0, 0.1}) {
    const Flight flight(12, 0.25, outliers);
    ColourBalanceOptions options;
    options.prior = 0.01;
    const ColourModel model = BalanceColours(flight.photos, options);
    ASSERT_EQ(model.vignettes.size(), 1U);
    EXPECT_NEAR(model.vignettes[0].terms[0] + model.vignettes[0].terms[1], -0.25, 0.02);
    for (std::size_t p = 1; p < flight.gains.size(); ++p) {
      const double truth = flight.gains[p] / flight.gains[0];
      EXPECT_NEAR(model.Factor(0, 3, 1, 0.5) / model.Factor(p, 3, 1, 0.5), truth, 0.02) << p;
    }
    EXPECT_NEAR(model.Factor(2, 3, 0, 1) / model.Factor(2, 3, 0, 0), std::exp(0.25), 0.03);
  }
}

TEST(BalanceColoursTest, TheColourOfTheWholeDoesNotDrift) {
  const Flight flight(12, 0, 0);
  const ColourModel model = BalanceColours(flight.photos, {});
  double sum = 0;
  for (const auto& gain : model.logGain) sum += gain[2];
  EXPECT_NEAR(sum, 0, 1e-9);
}

TEST(BalanceColoursTest, PhotosThatShareNothingKeepTheirColours) {
  Flight flight(2, 0, 0);
  for (auto& sample : flight.photos[1].samples) sample.block += 100000;
  const ColourModel model = BalanceColours(flight.photos, {});
  EXPECT_EQ(model.Factor(0, 3, 0, 0.7), 1);
  EXPECT_EQ(model.Factor(1, 3, 0, 0.7), 1);
  EXPECT_TRUE(BalanceColours({}, {}).logGain.empty());
}

}  // namespace
}  // namespace tqtortho
