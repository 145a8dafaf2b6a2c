// SPDX-License-Identifier: Apache-2.0
#include "town/town_camera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

using Vec = std::array<double, 3>;
using Mat = std::array<Vec, 3>;

Mat operator*(const Mat& a, const Mat& b) {
  Mat m{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) m[i][j] += a[i][k] * b[k][j];
    }
  }
  return m;
}

/// Elementary turns: phi about Y (positive phi turns the viewing axis to +X ... -sin), omega,
/// kappa.
Mat Phi(double a) {
  return {{{std::cos(a), 0, -std::sin(a)}, {0, 1, 0}, {std::sin(a), 0, std::cos(a)}}};
}
Mat Omega(double a) {
  return {{{1, 0, 0}, {0, std::cos(a), -std::sin(a)}, {0, std::sin(a), std::cos(a)}}};
}
Mat Kappa(double a) {
  return {{{std::cos(a), -std::sin(a), 0}, {std::sin(a), std::cos(a), 0}, {0, 0, 1}}};
}

SurveyCamera Camera(int model) {
  SurveyCamera c;
  c.width = 800;
  c.height = 600;
  c.focalLength = 24;
  c.sensorWidth = 20;  // millimetres: the lists allow any unit
  c.sensorHeight = 15;
  c.principalX = 407;
  c.principalY = 294;
  c.model = model;
  const double pixels[8] = {6e-8, -8e-14, 6e-20, 1.6e-6, -1.2e-6, 2e-4, -1.5e-4, 0};
  const double normalised[8] = {-0.06, 0.02, -0.004, 4e-4, -3e-4, 0, 0, 0};
  for (int i = 0; i < 8; ++i) c.coefficients[i] = model == 1 ? pixels[i] : normalised[i];
  if (model == 0) std::fill(std::begin(c.coefficients), std::end(c.coefficients), 0.0);
  return c;
}

SurveyPhoto Photo() {
  SurveyPhoto p;
  p.x = 500040.5;
  p.y = 5400031.25;
  p.z = 221;
  p.omega = 0.05;
  p.phi = -0.08;
  p.kappa = 3.05;
  return p;
}

class TownCameraTest : public ::testing::TestWithParam<int> {};

// The collinearity equations with the matrix as a product of elementary turns; the recorded
// position is then judged by the equation that defines it, not by solving that equation a second
// time.
TEST_P(TownCameraTest, ProjectsAsTheCameraListDefines) {
  const SurveyCamera c = Camera(GetParam());
  const SurveyPhoto p = Photo();
  const TownCamera camera(c, p, 500000, 5400000);
  const Mat m = Phi(p.phi) * Omega(p.omega) * Kappa(p.kappa);
  const double s = c.sensorWidth / c.width, f = c.focalLength;
  const double x0 = (c.principalX - 0.5 * c.width) * s, y0 = (c.principalY - 0.5 * c.height) * s;
  const double* k = c.coefficients;
  TownRandom random(11);
  int inFrame = 0;
  double largest = 0;
  for (int i = 0; i < 2000; ++i) {
    const Vec ground{random.Range(0, 90), random.Range(0, 80), random.Range(95, 150)};
    double column = 0, row = 0;
    if (!camera.Project(ground[0], ground[1], ground[2], column, row)) continue;
    const Vec d{ground[0] + 500000 - p.x, ground[1] + 5400000 - p.y, ground[2] - p.z};
    Vec n{};
    for (int j = 0; j < 3; ++j) n[j] = m[0][j] * d[0] + m[1][j] * d[1] + m[2][j] * d[2];
    const double idealColumn = (-f * n[0] / n[2] + x0) / s + 0.5 * c.width;
    const double idealU = (-f * n[1] / n[2] + y0) / s + 0.5 * c.height;
    const double u = c.height - row;
    const double cx = 0.5 * c.width + x0 / s, cy = 0.5 * c.height + y0 / s;
    if (c.model == 1) {  // recorded + correction(recorded) = ideal
      const double x = column - cx, y = u - cy, r2 = x * x + y * y;
      const double rad = k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2;
      EXPECT_NEAR(
          column + k[3] * (2 * x * x + r2) + rad * x + 2 * k[4] * x * y + k[5] * x + k[6] * y,
          idealColumn, 1e-7);
      EXPECT_NEAR(u + k[4] * (2 * y * y + r2) + rad * y + 2 * k[3] * x * y, idealU, 1e-7);
    } else if (c.model == 3) {  // forward, with the second coordinate flipped
      const double fp = f / s, x = (idealColumn - cx) / fp, y = (c.height - idealU - cy) / fp;
      const double r2 = x * x + y * y;
      const double rad = k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2;
      const double xd = x + rad * x + k[4] * (2 * x * x + r2) + 2 * k[3] * x * y;
      const double yd = y + rad * y + k[3] * (2 * y * y + r2) + 2 * k[4] * x * y;
      EXPECT_NEAR(column, xd * fp + cx, 1e-7);
      EXPECT_NEAR(u, c.height - (yd * fp + cy), 1e-7);
    } else {
      EXPECT_NEAR(std::hypot(column - idealColumn, u - idealU), 0, 1e-7);
    }
    if (!camera.InFrame(ground[0], ground[1], ground[2])) continue;
    ++inFrame;
    largest = std::max(largest, std::hypot(column - idealColumn, u - idealU));
  }
  EXPECT_GT(inFrame, 300);
  EXPECT_GE(largest, c.model == 0 ? 0 : 3) << "a lens that is worth correcting";
}

TEST_P(TownCameraTest, PointsBehindTheCameraAreNotInThePhoto) {
  const TownCamera camera(Camera(GetParam()), Photo(), 500000, 5400000);
  EXPECT_TRUE(camera.InFrame(50, 40, 100));
  EXPECT_FALSE(camera.InFrame(31, 22.5, 342));
  EXPECT_FALSE(camera.InFrame(5000, 40, 100));
}

INSTANTIATE_TEST_SUITE_P(LensModels, TownCameraTest, ::testing::Values(0, 1, 3));

}  // namespace
}  // namespace tqtortho::host
