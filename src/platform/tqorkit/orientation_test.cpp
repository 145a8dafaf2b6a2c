// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqorkit {
namespace {

TEST(TqExtOriTest, PositionComesWithOmegaAndPhiExchanged) {
  tqExtOri::EXTORI record;
  const double listed[6] = {1, 2, 3, 0.1, 0.2, 0.3};
  std::copy(listed, listed + 6, record.position);
  tqExtOri photo;
  photo.Set(record);
  double position[6];
  photo.GetPos(position);
  EXPECT_THAT(position, ::testing::ElementsAre(1, 2, 3, 0.2, 0.1, 0.3));
}

TEST(TqIntOriTest, CameraCoefficientsArePixelsOnlyWhenAsked) {
  tqIntOri::INTORI record;
  record.focalLength = 8.8;
  record.pixelSize = 0.0044;
  record.offsetX = 0.022;
  record.offsetY = -0.011;
  tqIntOri camera;
  camera.Set(record);
  EXPECT_EQ(camera.GetCameraCoeffs(false), (tqfd::Point3_T<double>{0.022, -0.011, 8.8}));
  const auto pixels = camera.GetCameraCoeffs(true);
  EXPECT_NEAR(pixels.x, 5, 1e-9);
  EXPECT_NEAR(pixels.y, -2.5, 1e-9);
  EXPECT_NEAR(pixels.z, 2000, 1e-9);
  record.pixelSize = 0;
  camera.Set(record);
  EXPECT_FALSE(std::isfinite(camera.GetCameraCoeffs(true).z));
}

}  // namespace
}  // namespace tqorkit
