// SPDX-License-Identifier: Apache-2.0
#include "score/patch_registration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

/// A smooth random picture, known between its cells too.
std::vector<float> Picture(int size, double shiftX, double shiftY, double gain, double offset) {
  std::vector<float> cells;
  for (int r = 0; r < size; ++r) {
    for (int c = 0; c < size; ++c) {
      const double x = c - shiftX, y = r - shiftY;
      const double grey = 120 + 25 * ValueNoise(x, y, 3.1, 1) + 30 * ValueNoise(x, y, 7.3, 2);
      cells.push_back(static_cast<float>(gain * grey + offset));
    }
  }
  return cells;
}

TEST(PatchRegistrationTest, FindsShiftsWhateverTheBrightness) {
  const struct {
    double dx, dy, gain, offset;
  } cases[] = {{0, 0, 1, 0},
               {0.5, -0.25, 1, 0},
               {-0.07, 0.9, 0.8, 30},
               {3.3, -2.6, 1.2, -20},
               {-5.5, 4.5, 1, 10}};
  const std::vector<float> reference = Picture(40, 0, 0, 1, 0);
  for (const auto& k : cases) {
    const std::vector<float> product = Picture(40, k.dx, k.dy, k.gain, k.offset);
    PatchShift shift;
    ASSERT_TRUE(RegisterPatch({reference.data(), 40, 40}, {product.data(), 40, 40}, shift))
        << k.dx << " " << k.dy;
    EXPECT_NEAR(shift.dx, k.dx, 0.02);
    EXPECT_NEAR(shift.dy, k.dy, 0.02);
  }
}

TEST(PatchRegistrationTest, RefusesWhatCannotBeTrusted) {
  const std::vector<float> reference = Picture(40, 0, 0, 1, 0);
  const std::vector<float> plain(1600, 100.0F);
  const std::vector<float> other = Picture(40, 500, 700, 1, 0);
  PatchShift shift;
  EXPECT_FALSE(RegisterPatch({reference.data(), 40, 40}, {plain.data(), 40, 40}, shift));
  EXPECT_FALSE(RegisterPatch({plain.data(), 40, 40}, {plain.data(), 40, 40}, shift));
  EXPECT_FALSE(RegisterPatch({reference.data(), 40, 40}, {other.data(), 40, 40}, shift));
  EXPECT_FALSE(RegisterPatch({reference.data(), 8, 8, 40}, {other.data(), 8, 8, 40}, shift));
}

}  // namespace
}  // namespace tqtortho::host
