// SPDX-License-Identifier: Apache-2.0
#include "camera/lens_distortion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tqtortho {
namespace {

using Point = tqfd::Point2_T<float>;

/// Centre (500, 400) in a frame 800 rows high.
LensDistortion Lens(int model) {
  LensDistortion lens;
  lens.model = model;
  lens.height = 800;
  lens.centreCol = 500;
  lens.centreUp = 400;
  lens.focalPixels = 1000;
  lens.pixelSize = 0.001;
  return lens;
}

// With b1 alone the correction is the geometric series b1 * x * (1 - b1 + b1^2 - ...), so both the
// pass it settles in and the estimate it returns are known in closed form.
TEST(LensDistortionTest, Model1ReturnsTheEstimateOfThePassBefore) {
  LensDistortion lens = Lens(1);
  lens.b1 = 0.1;
  // Corrections 20, 18, 18.2, 18.18: the step from 18.2 to 18.18 settles, 18.2 is used.
  EXPECT_FLOAT_EQ(RecordedFromIdeal(lens, {700, 400}).x, 681.8F);
}

TEST(LensDistortionTest, Model1MaySettleInTheEleventhPassButNotInTheTwelfth) {
  LensDistortion lens = Lens(1);
  lens.b1 = 0.5;  // steps of x / 2, x / 4, ...; the n-th is below 0.1 from x = 0.1 * 2^n down
  const float inEleven = 500 + 150;
  const float inTwelve = 500 + 300;
  EXPECT_NEAR(RecordedFromIdeal(lens, {inEleven, 400}).x, 500 + 100, 0.1);
  EXPECT_EQ(RecordedFromIdeal(lens, {inTwelve, 400}), (Point{inTwelve, 400}));
  lens.b1 = -3;  // diverges
  EXPECT_EQ(RecordedFromIdeal(lens, {600, 400}), (Point{600, 400}));
}

// x = 0.2, y = 0.1 in normalised coordinates (y downward): each coefficient by hand.
TEST(LensDistortionTest, Model3TermsAreAsDefined) {
  const struct {
    double LensDistortion::*coefficient;
    double dx, dy;  // in normalised coordinates, y downward
  } cases[] = {
      {&LensDistortion::k1, 0.2 * 0.05, 0.1 * 0.05},
      {&LensDistortion::k2, 0.2 * 0.0025, 0.1 * 0.0025},
      {&LensDistortion::k3, 0.2 * 0.000125, 0.1 * 0.000125},
      {&LensDistortion::p1, 2 * 0.02, 2 * 0.01 + 0.05},
      {&LensDistortion::p2, 2 * 0.04 + 0.05, 2 * 0.02},
  };
  for (const auto& c : cases) {
    LensDistortion lens = Lens(3);
    lens.*c.coefficient = 0.5;
    const Point q = RecordedFromIdeal(lens, {700, 300});  // u = 800 - 400 - 100
    EXPECT_NEAR(q.x, 700 + 1000 * 0.5 * c.dx, 1e-3);
    EXPECT_NEAR(q.y, 300 - 1000 * 0.5 * c.dy, 1e-3);
  }
}

TEST(LensDistortionTest, OverflowAndNanStayDefined) {
  for (const int model : {1, 3}) {
    LensDistortion lens = Lens(model);
    lens.k3 = 1e300;
    const Point far = RecordedFromIdeal(lens, {900, 700});
    if (model == 1) {
      EXPECT_EQ(far, (Point{900, 700}));
    } else {
      EXPECT_GE(far.x, std::numeric_limits<float>::max());
    }
    lens.k1 = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(std::isnan(RecordedFromIdeal(lens, {900, 700}).x), model == 3);
  }
}

}  // namespace
}  // namespace tqtortho
