// SPDX-License-Identifier: Apache-2.0
#include "mosaic/colour_balance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

/// A chain of photos, each sharing most of its blocks with the next, of two cameras in turn whose
/// vignettes are opposite.
struct Flight {
  std::vector<PhotoColours> photos;
  std::vector<double> gains;

  static int CameraOf(int photo) { return photo % 3 == 0 ? 9 : 3; }
  Flight(int count, double vignette, double outliers) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> ground;
    for (int i = 0; i < 40 * count + 200; ++i) ground.push_back(60 + 100 * unit(random));
    for (int p = 0; p < count; ++p) {
      gains.push_back(0.8 + 0.4 * unit(random));
      PhotoColours photo;
      photo.camera = CameraOf(p);
      for (int i = 0; i < 200; ++i) {
        ColourSample sample;
        sample.block = static_cast<std::uint32_t>(40 * p + i);
        const double radius = std::fabs(i - 100) / 100.0;
        sample.radius = static_cast<std::uint16_t>(radius * 65535);
        double value = ground[sample.block] * gains.back() *
                       std::exp((p % 3 == 0 ? -vignette : vignette) * radius * radius);
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
    ASSERT_EQ(model.vignettes.size(), 2U);
    double sum = 0;  // gains are relative, so that the colour of the whole does not drift
    for (const auto& gain : model.logGain) sum += gain[2];
    EXPECT_NEAR(sum, 0, 1e-9);
    for (std::size_t p = 1; p < flight.gains.size(); ++p) {
      const double truth = flight.gains[p] / flight.gains[0];
      const int camera = Flight::CameraOf(static_cast<int>(p));
      EXPECT_NEAR(model.Factor(0, 9, 1, 0) / model.Factor(p, camera, 1, 0), truth, 0.02) << p;
    }
    EXPECT_NEAR(model.Factor(3, 9, 0, 1) / model.Factor(3, 9, 0, 0), std::exp(0.25), 0.03);
    EXPECT_NEAR(model.Factor(2, 3, 0, 1) / model.Factor(2, 3, 0, 0), std::exp(-0.25), 0.03);
  }
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
