// SPDX-License-Identifier: Apache-2.0
#include "camera/camera_model.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "camera/photo_camera.h"
#include "testing/photo_scene.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using Matrix = std::array<double, 9>;

Matrix Times(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) c[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
    }
  }
  return c;
}

TEST(CameraModelTest, RotationIsPhiThenOmegaThenKappaOfElementaryTurns) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> angle(-3, 3);
  for (int round = 0; round < 50; ++round) {
    const double phi = angle(random), omega = angle(random), kappa = angle(random);
    const Matrix aboutY = {std::cos(phi), 0, -std::sin(phi), 0, 1, 0,
                           std::sin(phi), 0, std::cos(phi)};
    const Matrix aboutX = {
        1, 0, 0, 0, std::cos(omega), -std::sin(omega), 0, std::sin(omega), std::cos(omega)};
    const Matrix aboutZ = {
        std::cos(kappa), -std::sin(kappa), 0, std::sin(kappa), std::cos(kappa), 0, 0, 0, 1};
    const Matrix expected = Times(Times(aboutY, aboutX), aboutZ);
    double rotation[9];
    RotationFromAngles(phi, omega, kappa, rotation);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(rotation[i], expected[i], 1e-14) << i;
  }
}

// The record holds omega before phi; the matrix must not confuse them.
TEST(CameraModelTest, RecordedAnglesAreOmegaPhiKappa) {
  testing::PhotoScene scene = testing::NadirScene(100, 50);
  scene.pose.position[3] = 0.1;  // omega: about X, so the axis leans along Y
  const PhotoCamera camera = CameraOf(scene.Interior(), scene.Exterior());
  EXPECT_EQ(camera.rotation[2], 0);
  EXPECT_DOUBLE_EQ(camera.rotation[5], -std::sin(0.1));
}

TEST(CameraModelTest, InverseCollinearityReturnsTheGroundPoint) {
  std::mt19937 random(6);
  const auto real = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  for (int round = 0; round < 200; ++round) {
    testing::PhotoScene scene = testing::NadirScene(100, 50, 500000, 4000000);
    for (int i = 3; i < 6; ++i) scene.pose.position[i] = real(-0.6, 0.6);
    tqTORectify rectify;
    TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
    const double X = 500000 + real(-20, 20), Y = 4000000 + real(-20, 20), Z = real(-10, 10);
    double x = 0, y = 0, backX = 0, backY = 0;
    TestPeer::CalcCollinearityEquation(rectify, X, Y, Z, x, y);
    TestPeer::CalcInvCollinearityEquation(rectify, x, y, Z, backX, backY);
    EXPECT_NEAR(backX, X, 1e-7);
    EXPECT_NEAR(backY, Y, 1e-7);
  }
}

// The length unit of the camera record cancels in pixels.
TEST(CameraModelTest, PixelsDoNotDependOnTheLengthUnit) {
  PhotoCamera pixels;
  pixels.focal = 3000;
  pixels.offsetX = 4;
  pixels.offsetY = -6;
  pixels.pixelSize = 1;
  pixels.width = 4000;
  pixels.height = 3000;
  pixels.centre = {0, 0, 100};
  PhotoCamera metres = pixels;
  for (double* length : {&metres.focal, &metres.offsetX, &metres.offsetY, &metres.pixelSize}) {
    *length *= 4.4e-6;
  }
  const auto a = PixelFromImage(pixels, ImageFromGround(pixels, 11, 7, 3));
  const auto b = PixelFromImage(metres, ImageFromGround(metres, 11, 7, 3));
  EXPECT_NEAR(a.x, 2000 + 4 + 3000 * 11.0 / 97, 1e-9);
  EXPECT_NEAR(a.y, 1500 - 6 + 3000 * 7.0 / 97, 1e-9);
  EXPECT_NEAR(a.x, b.x, 1e-9);
  EXPECT_NEAR(a.y, b.y, 1e-9);
}

}  // namespace
}  // namespace tqtortho
