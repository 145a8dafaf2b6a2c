// SPDX-License-Identifier: Apache-2.0
#include "rectify/footprint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
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

// Corners are searched in turn, and each starts where the one before it ended.
TEST_F(FootprintTest, CornersSettleOnTheGroundAndLendEachOtherTheirHeight) {
  const auto corner = [](int x, int y) { return x < -20 && y > 20; };  // below the first one
  const auto far = [](int x, int y) { return std::max(std::abs(x), std::abs(y)) > 40; };
  const struct {
    const char* what;
    std::function<double(int, int)> height;
    double byDefault, start;
    double box[4];
  } cases[] = {
      {"flat ground, from below", [](int, int) { return 10; }, 0, -30, {-40, -40, 40, 40}},
      {"flat ground, from just under the camera",
       [](int, int) { return 10; },
       0,
       49,
       {-40, -40, 40, 40}},
      // The first corner settles on 0; the others start settled and never look at their 20.
      {"a settled corner lends its height",
       [&](int x, int y) { return corner(x, y) ? 0 : 20; },
       0,
       0,
       {-50, -50, 50, 50}},
      {"one without data makes the next search again",
       [&](int x, int y) { return corner(x, y) ? -9999 : 20; },
       5,
       0,
       {-45, -30, 30, 45}},
      {"a search that jumps for ever takes the default",
       [&](int x, int y) { return far(x, y) ? 20 : 0; },
       7,
       0,
       {-43, -43, 43, 43}},
      {"no number leads inside by the default and is tested again",
       [&](int x, int y) { return far(x, y) ? NAN : 20; },
       15,
       0,
       {-30, -30, 30, 30}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Raise(c.height);
    scene.dsm.defaultZ = c.byDefault;
    ExpectBox(c.box[0], c.box[1], c.box[2], c.box[3], c.start);
  }
  testing::SetFlatTile(scene, 24, 20, 1.0, -10, -12, 10);  // what lies beyond takes the nearest
  scene.camera.offsetX = 5;
  scene.camera.offsetY = -8;
  ExpectBox(-44, -33.6, 36, 46.4);
}

TEST_F(FootprintTest, SenselessInputAndPhotosThatDoNotSeeTheirNadirAreEmpty) {
  scene.camera.focalLength = 500;
  scene.pose.position[3] = 0.5;
  ExpectEmpty();
  scene = NadirScene(100, 50);
  ExpectEmpty(std::numeric_limits<double>::quiet_NaN());
  scene.pose.position[0] = std::numeric_limits<double>::infinity();
  ExpectEmpty();
  scene.pose.position[0] = 0;
  scene.dsm.width = 0;
  ExpectEmpty();
}

}  // namespace
}  // namespace tqtortho
