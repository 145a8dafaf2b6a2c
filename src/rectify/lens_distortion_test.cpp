// SPDX-License-Identifier: Apache-2.0
#include "rectify/lens_distortion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

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

TEST(LensDistortionTest, OtherModelsReturnTheInputBitForBit) {
  const Point odd{0.1F, std::nextafter(123.0F, 124.0F)};
  for (const int model : {0, 2, 4, -1, 1000}) {
    LensDistortion lens = Lens(model);
    lens.k1 = 1;
    EXPECT_EQ(RecordedFromIdeal(lens, odd), odd) << model;
  }
}

TEST(LensDistortionTest, Model1LeavesUpToATenthOfAPixelIn) {
  LensDistortion lens = Lens(1);
  EXPECT_EQ(RecordedFromIdeal(lens, {700, 400}), (Point{700, 400}));
  lens.b1 = 0.0004;  // 0.08 pixel at x = 200
  EXPECT_EQ(RecordedFromIdeal(lens, {700, 400}), (Point{700, 400}));
  lens.b1 = 0.001;  // 0.2 pixel: one correction, computed from the uncorrected point
  EXPECT_EQ(RecordedFromIdeal(lens, {700, 400}), (Point{699.8F, 400}));
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

TEST(LensDistortionTest, Model1InvertsItsCorrection) {
  LensDistortion lens = Lens(1);
  lens.k1 = 1e-7;
  lens.k2 = -2e-14;
  lens.p1 = 2e-6;
  lens.p2 = -3e-6;
  lens.b1 = 1e-4;
  lens.b2 = -2e-4;
  std::mt19937 random(9);
  std::uniform_real_distribution<float> col(0, 1000), up(0, 800);
  for (int round = 0; round < 500; ++round) {
    const Point p{col(random), up(random)};
    const Point q = RecordedFromIdeal(lens, p);
    const double x = q.x - 500.0, y = q.y - 400.0, r2 = x * x + y * y;
    const double radial = lens.k1 * r2 + lens.k2 * r2 * r2;
    EXPECT_NEAR(q.x + radial * x + lens.p1 * (3 * x * x + y * y) + 2 * lens.p2 * x * y +
                    lens.b1 * x + lens.b2 * y,
                p.x, 0.11);
    EXPECT_NEAR(q.y + radial * y + lens.p2 * (3 * y * y + x * x) + 2 * lens.p1 * x * y, p.y, 0.11);
  }
}

TEST(LensDistortionTest, Model3WithoutCoefficientsReturnsTheInput) {
  LensDistortion lens = Lens(3);
  lens.centreUp = 431;  // off the middle: both flips must cancel
  for (const Point p : {Point{0, 0}, Point{999.5F, 799.25F}, Point{123.4F, 700.1F}}) {
    EXPECT_FLOAT_EQ(RecordedFromIdeal(lens, p).x, p.x);
    EXPECT_NEAR(RecordedFromIdeal(lens, p).y, p.y, 1e-4);
  }
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

// Kept: the centre of model 3 is the mirrored principal point row. With an upward offset of 30 the
// undistorted point lies 30 below the middle, not above.
TEST(LensDistortionTest, Model3TurnsAboutTheMirroredRow) {
  LensDistortion lens = Lens(3);
  lens.centreUp = 430;
  lens.k1 = 0.5;
  EXPECT_EQ(RecordedFromIdeal(lens, {500, 370}), (Point{500, 370}));
  EXPECT_GT(std::fabs(RecordedFromIdeal(lens, {600, 430}).y - 430), 0.1);
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
