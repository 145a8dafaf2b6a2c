// SPDX-License-Identifier: Apache-2.0
#include "report/hillshade.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace tqtortho::host {
namespace {

constexpr int kSide = 7;

template <class Height>
std::vector<std::uint8_t> Shade(double cellX, double cellY, const Light& light, Height height) {
  std::vector<float> heights;
  for (int row = 0; row < kSide; ++row) {
    for (int col = 0; col < kSide; ++col) {
      heights.push_back(static_cast<float>(height(col * cellX, -row * cellY)));
    }
  }
  std::vector<std::uint8_t> shades(heights.size(), 77);
  ShadeRelief({heights.data(), kSide, kSide}, cellX, cellY, light, {shades.data(), kSide, kSide});
  return shades;
}

// On a plane the nine cells give its slope exactly; the shade is the cosine between normal and
// light.
TEST(HillshadeTest, PlanesAreAsBrightAsTheirAngleToTheLight) {
  const double rad = std::numbers::pi / 180;
  for (const Light light : {Light{}, Light{90, 30}, Light{200, 60}}) {
    const double toLight[] = {std::sin(light.azimuthDeg * rad) * std::cos(light.altitudeDeg * rad),
                              std::cos(light.azimuthDeg * rad) * std::cos(light.altitudeDeg * rad),
                              std::sin(light.altitudeDeg * rad)};
    for (const auto& slope : {std::pair{0.0, 0.0}, {1.0, 0.0}, {0.0, 0.7}, {-0.4, 2.0}}) {
      const double east = slope.first, north = slope.second;
      const auto shades =
          Shade(0.5, 2.0, light, [&](double x, double y) { return east * x + north * y; });
      const double cosine = (toLight[2] - east * toLight[0] - north * toLight[1]) /
                            std::sqrt(1 + east * east + north * north);
      EXPECT_NEAR(shades[3 * kSide + 3], 1 + 254 * std::max(cosine, 0.0), 0.51)
          << light.azimuthDeg << ": " << east << " " << north;
    }
  }
}

TEST(HillshadeTest, OnlyCellsWithoutHeightAreZeroAndDoNotSpread) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const auto shades =
      Shade(1, 1, {}, [&](double x, double y) { return x == 2 && y == -3 ? none : 4; });
  const auto level = static_cast<std::uint8_t>(std::lround(1 + 254 * std::sqrt(0.5)));
  for (int i = 0; i < kSide * kSide; ++i) EXPECT_EQ(shades[i], i == 3 * kSide + 2 ? 0 : level) << i;
}

}  // namespace
}  // namespace tqtortho::host
