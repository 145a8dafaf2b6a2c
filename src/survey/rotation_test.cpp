// SPDX-License-Identifier: Apache-2.0
#include "survey/rotation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

namespace tqtortho::host {
namespace {

constexpr double kPi = std::numbers::pi;

double LargestDifference(const Matrix3& a, const Matrix3& b) {
  double largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!(std::fabs(a[i] - b[i]) <= largest)) largest = std::fabs(a[i] - b[i]);
  }
  return largest;
}

// Rotation about one axis, written from the textbook and not from the code under test.
Matrix3 AboutX(double a) {
  return {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)};
}
Matrix3 AboutY(double a) {
  return {std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)};
}
Matrix3 AboutZ(double a) {
  return {std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1};
}

Matrix3 RandomRotation(std::mt19937& random) {
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> turn(0, kPi);
  Vector3 v = {normal(random), normal(random), normal(random)};
  const double scale = turn(random) / std::hypot(v[0], v[1], v[2]);
  for (double& c : v) c *= scale;
  return RotationFromAxisAngle(v);
}

// The primary turn is about Y, and a positive phi turns the other way round than the textbook's.
TEST(RotationTest, AnglesTurnAboutYThenXThenZ) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> turn(-1.5, 1.5);
  for (int round = 0; round < 100; ++round) {
    const PhotoAngles a{turn(random), turn(random), turn(random)};
    const Matrix3 expected = Product(Product(AboutY(-a.phi), AboutX(a.omega)), AboutZ(a.kappa));
    ASSERT_LT(LargestDifference(MatrixFromAngles(a), expected), 1e-15) << "round " << round;
  }
}

TEST(RotationTest, AxisAngleAgreesWithTurnsAboutTheAxes) {
  for (const double a : {0.0, 1e-12, 9.9e-5, 1.1e-4, 0.3, 2.0, kPi, 4.0, -0.7}) {
    EXPECT_LT(LargestDifference(RotationFromAxisAngle({a, 0, 0}), AboutX(a)), 1e-15) << a;
    EXPECT_LT(LargestDifference(RotationFromAxisAngle({0, a, 0}), AboutY(a)), 1e-15) << a;
    EXPECT_LT(LargestDifference(RotationFromAxisAngle({0, 0, a}), AboutZ(a)), 1e-15) << a;
  }
}

TEST(RotationTest, AnglesOfRandomRotationsGiveTheRotationBack) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 2000; ++round) {
    const Matrix3 rotation = RandomRotation(random);
    const PhotoAngles a = AnglesFromMatrix(rotation);
    ASSERT_LT(LargestDifference(MatrixFromAngles(a), rotation), 2e-15) << "round " << round;
    ASSERT_LE(std::fabs(a.omega), kPi / 2);
  }
}

// A camera that looks along the ground's Y axis: phi and kappa alone mean nothing, together they
// do.
TEST(RotationTest, AnglesStayExactWhereOmegaIsNinetyDegrees) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> turn(-3, 3);
  for (const double off : {0.0, 1e-300, 1e-17, 1e-16, 1e-12, 1e-8, 1e-4}) {
    for (int round = 0; round < 50; ++round) {
      for (const double sign : {-1.0, 1.0}) {
        const Matrix3 m = MatrixFromAngles({sign * (kPi / 2 - off), turn(random), turn(random)});
        ASSERT_LT(LargestDifference(MatrixFromAngles(AnglesFromMatrix(m)), m), 4e-15) << off;
      }
    }
  }
  const Matrix3 exact = {1, 0, 0, 0, 0, -1, 0, 1, 0};
  EXPECT_LT(LargestDifference(MatrixFromAngles(AnglesFromMatrix(exact)), exact), 1e-15);
}

TEST(RotationTest, NearestRotationUndoesStretchingOnEitherSide) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    const Matrix3 rotation = RandomRotation(random);
    const Matrix3 axes = RandomRotation(random);
    // rotation * (a symmetric stretch): the polar factor is the rotation itself.
    const Matrix3 stretch =
        Product(Product(axes, Matrix3{1.0004, 0, 0, 0, 0.9, 0, 0, 0, 1.2}), Transposed(axes));
    ASSERT_LT(LargestDifference(NearestRotation(Product(rotation, stretch)), rotation), 1e-14);
    ASSERT_LT(LargestDifference(NearestRotation(Product(stretch, rotation)), rotation), 1e-14);
  }
}

TEST(RotationTest, WhatIsNoRotationComesBackUnchanged) {
  const Matrix3 flat = {1, 0, 0, 0, 1, 0, 0, 0, 0};
  const Matrix3 mirror = {1, 0, 0, 0, 1, 0, 0, 0, -1};
  EXPECT_EQ(NearestRotation(flat), flat);
  EXPECT_EQ(NearestRotation(mirror), mirror);
  const Matrix3 broken = {std::nan(""), 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_TRUE(std::isnan(NearestRotation(broken)[0]));
}

}  // namespace
}  // namespace tqtortho::host
