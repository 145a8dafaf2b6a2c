// SPDX-License-Identifier: Apache-2.0
#include "rectify/footprint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "testing/photo_scene.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using testing::NadirScene;
using testing::PhotoScene;

/// A camera 50 above height 0 with a frame of 100 pixels and a focal length of 50: on a plane of
/// height z the corners lie 50 - z from the nadir point, on both axes.
class FootprintTest : public ::testing::Test {
 protected:
  FootprintTest() : scene(NadirScene(100, 50)) {}

  /// Height by the cell's corner position, (0, 0) at the nadir point.
  template <class HeightAt>
  void Raise(HeightAt&& heightAt) {
    for (int row = 0; row < 200; ++row) {
      for (int col = 0; col < 200; ++col) {
        scene.Height(row, col) = static_cast<float>(heightAt(col - 100, 100 - row));
      }
    }
  }
  void ExpectBox(double minX, double minY, double maxX, double maxY, double startHeight = 0) {
    tqTORectify rectify;
    TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
    double parameters[2] = {0, startHeight};
    TestPeer::CalcGeoParas(rectify, scene.photo, scene.dsm, parameters);
    const double expected[] = {minX, minY, maxX, maxY};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(scene.photo.geoRect[i], expected[i], 1e-9) << i;
  }
  void ExpectEmpty(double startHeight = 0) {
    constexpr double kMax = std::numeric_limits<double>::max();
    ExpectBox(kMax, kMax, -kMax, -kMax, startHeight);
  }
  PhotoScene scene;
};

TEST_F(FootprintTest, FlatGroundIsFoundFromAnyStartHeight) {
  for (const double start : {-30.0, 0.0, 10.0, 49.0}) {
    Raise([](int, int) { return 10; });
    ExpectBox(-40, -40, 40, 40, start);
  }
}

TEST_F(FootprintTest, PrincipalPointShiftsTheBoxTheOtherWay) {
  scene.camera.offsetX = 5;
  scene.camera.offsetY = -8;
  ExpectBox(-55, -42, 45, 58);
}

// The first corner (upper left) settles on 0; the others start settled and never look at the 20
// that lies below them.
TEST_F(FootprintTest, ASettledCornerLendsItsHeightToTheNext) {
  Raise([](int x, int y) { return x < -20 && y > 20 ? 0 : 20; });
  ExpectBox(-50, -50, 50, 50);
}

// No data below the first corner: it takes the default height and the next one searches again.
TEST_F(FootprintTest, ACornerWithoutDataMakesTheNextSearchAgain) {
  Raise([](int x, int y) { return x < -20 && y > 20 ? -9999 : 20; });
  scene.dsm.defaultZ = 5;
  ExpectBox(-45, -30, 30, 45);
}

// Every corner jumps between two heights for ever and ends on the default height.
TEST_F(FootprintTest, ASearchThatNeverSettlesTakesTheDefaultHeight) {
  Raise([](int x, int y) { return std::fmax(std::abs(x), std::abs(y)) > 40 ? 20 : 0; });
  scene.dsm.defaultZ = 7;
  ExpectBox(-43, -43, 43, 43);
}

TEST_F(FootprintTest, NanHeightsCountAsTheDefaultAndAreTestedAgain) {
  Raise([](int x, int y) { return std::fmax(std::abs(x), std::abs(y)) > 40 ? NAN : 20; });
  scene.dsm.defaultZ = 15;  // leads inside, where 20 is found
  ExpectBox(-30, -30, 30, 30);
}

TEST_F(FootprintTest, PointsBeyondTheTileTakeItsNearestCell) {
  testing::SetFlatTile(scene, 20, 20, 1.0, -10, -10, 10);
  ExpectBox(-40, -40, 40, 40);
}

TEST_F(FootprintTest, APhotoThatDoesNotSeeItsOwnNadirIsEmpty) {
  scene.camera.focalLength = 500;
  scene.pose.position[3] = 0.5;
  ExpectEmpty();
}

TEST_F(FootprintTest, SenselessInputIsEmpty) {
  ExpectEmpty(std::numeric_limits<double>::quiet_NaN());
  scene.pose.position[0] = std::numeric_limits<double>::infinity();
  ExpectEmpty();
  scene.pose.position[0] = 0;
  scene.dsm.width = 0;
  ExpectEmpty();
}

}  // namespace
}  // namespace tqtortho
