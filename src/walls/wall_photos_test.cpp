// SPDX-License-Identifier: Apache-2.0
// Photos of a box on a plain, rendered by geometry alone, against a surface that draws the box too
// wide: do the photos put its walls where they stand?
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "visibility/step_surface.h"
#include "walls/half_cells.h"
#include "walls/wall_cut.h"
#include "walls/wall_evidence.h"
#include "walls/wall_prior.h"
#include "walls/wall_veto.h"
#include "walls/wall_zone.h"

namespace tqtortho {
namespace {

constexpr float kNone = -9999;
constexpr double kCell = 0.25;
constexpr int kCells = 120;
constexpr double kRoof = 9;
constexpr double kLow = 11;  // the box, ground units on both axes
constexpr double kHigh = 19;

bool InBox(double x, double y) { return x > kLow && x < kHigh && y > kLow && y < kHigh; }

/// A texture without repetition, 12 cm fine.
std::uint8_t Texture(double x, double y, int salt) {
  const double scale = 1 / 0.12;
  auto noise = [salt](double i, double j) {
    const double s = std::sin(i * 12.9898 + j * 78.233 + salt * 37.7) * 43758.5453;
    return s - std::floor(s);
  };
  const double fine = noise(std::floor(x * scale), std::floor(y * scale));
  const double coarse = noise(std::floor(x * 2), std::floor(y * 2));
  return static_cast<std::uint8_t>(60 + 50 * fine + 80 * coarse);
}

PhotoCamera CameraAt(double x, double y) {
  PhotoCamera camera;
  camera.centre = {x, y, 60};
  camera.focal = 1;
  camera.pixelSize = 0.0012;  // 7 cm on the ground
  camera.width = camera.height = 800;
  return camera;
}

std::uint8_t Ray(const PhotoCamera& camera, double imageX, double imageY) {
  const auto roof = GroundFromImage(camera, imageX, imageY, kRoof);
  if (InBox(roof.x, roof.y)) return Texture(roof.x, roof.y, 1);
  const auto ground = GroundFromImage(camera, imageX, imageY, 0);
  for (int k = 1; k <= 40; ++k) {
    const double x = roof.x + (ground.x - roof.x) * k / 40;
    const double y = roof.y + (ground.y - roof.y) * k / 40;
    if (InBox(x, y)) return 230;  // the facade is of one colour
  }
  return Texture(ground.x, ground.y, 2);
}

struct Scene {
  std::vector<std::vector<std::uint8_t>> pixels;
  std::vector<PhotoWindow> photos;

  explicit Scene(const std::vector<std::pair<double, double>>& centres) {
    for (const auto& [x, y] : centres) {
      PhotoWindow photo;
      photo.camera = CameraAt(x, y);
      photo.cols = photo.rows = 800;
      photo.bands = 1;
      pixels.emplace_back(800U * 800U);
      for (int row = 0; row < 800; ++row) {
        for (int col = 0; col < 800; ++col) {
          pixels.back()[static_cast<std::size_t>(row) * 800 + static_cast<std::size_t>(col)] =
              Ray(photo.camera, (col - 400) * photo.camera.pixelSize,
                  (400 - row) * photo.camera.pixelSize);
        }
      }
      photos.push_back(photo);
    }
    for (std::size_t k = 0; k < photos.size(); ++k) photos[k].pixels = pixels[k].data();
  }
};

/// Share of half cells near the box whose height is wrong by more than a metre.
double WrongShare(const std::vector<PhotoWindow>& photos, double tooWide, bool ask,
                  std::int64_t& judged, std::vector<WallCell>* asked = nullptr) {
  std::vector<float> heights;
  for (int row = 0; row < kCells; ++row) {
    for (int col = 0; col < kCells; ++col) {
      const double x = col * kCell;
      const double y = 30 - row * kCell;
      const bool roof =
          x > kLow - tooWide && x < kHigh + tooWide && y > kLow - tooWide && y < kHigh + tooWide;
      heights.push_back(roof ? kRoof : 0);
    }
  }
  const GridView<const float> whole(heights.data(), kCells, kCells);
  std::vector<float> fine = OnHalfCells(whole, kNone, StepSurface::DefaultWallStep(kCell));
  const int side = HalfCells(kCells);
  WallGround ground;
  ground.whole = whole;
  ground.part = {fine.data(), side, side};
  ground.originY = 30;
  ground.cell = kCell;
  ground.noData = kNone;
  ground.highest = kRoof;
  WallZoneOptions options;
  options.cell = kCell;
  options.noData = kNone;
  const WallZone zone = FindWallZone(whole, ground.part, options);
  std::vector<std::vector<WallCell>> parts{ListWallCells(ground.part, zone)};
  std::vector<WallCell>& cells = parts[0];
  if (ask) {
    AskPhotos(ground, zone, photos, BrightnessGains(ground, zone, photos), nullptr, cells);
  }
  if (asked != nullptr) *asked = cells;
  WallCutOptions cut;
  cut.agreement = SpreadOfAgreement(parts);
  std::array<std::int64_t, WallPrior::kBins> upper{}, lower{};
  CountSureCells(cells, cut.agreement, upper, lower);
  const WallPrior prior(upper, lower);
  std::vector<std::uint8_t> isUpper = CutWalls(ground.part, cells, prior, cut);
  TakeBackUnsupported(ground.part, cells, prior, cut.agreement, isUpper);
  judged = 0;
  for (std::size_t k = 0; k < cells.size(); ++k) {
    const WallCell& c = cells[k];
    fine[static_cast<std::size_t>(c.row) * static_cast<std::size_t>(side) +
         static_cast<std::size_t>(c.col)] =
        HeightOnSide(c.height, c.upper, c.lower, isUpper[k] != 0);
    judged += c.onUpper.photos >= 2 && c.onLower.photos >= 2 ? 1 : 0;
  }
  int wrong = 0, near = 0;
  for (int row = 0; row < side; ++row) {
    for (int col = 0; col < side; ++col) {
      const double x = ground.X(col);
      const double y = ground.Y(row);
      if (x < kLow - 1.5 || x > kHigh + 1.5 || y < kLow - 1.5 || y > kHigh + 1.5) continue;
      ++near;
      const double truth = InBox(x, y) ? kRoof : 0;
      if (std::fabs(fine[static_cast<std::size_t>(row) * static_cast<std::size_t>(side) +
                         static_cast<std::size_t>(col)] -
                    truth) > 1) {
        ++wrong;
      }
    }
  }
  return static_cast<double>(wrong) / near;
}

TEST(WallPhotosTest, PutTheWallsOfATooWideBoxBack) {
  const Scene scene({{3, 3}, {27, 3}, {3, 27}, {27, 27}, {15, 15}, {15, 2}, {2, 15}});
  std::int64_t judged = 0;
  EXPECT_LT(WrongShare(scene.photos, 0, true, judged), 0.03) << "right walls stay";
  for (const double tooWide : {0.4, 0.25}) {
    const double before = WrongShare(scene.photos, tooWide, false, judged);
    EXPECT_EQ(judged, 0);
    const double after = WrongShare(scene.photos, tooWide, true, judged);
    EXPECT_GT(judged, 2000);
    // A ring one half cell wide around the box has a share of 0.034.
    EXPECT_GT(before, 0.045);
    EXPECT_LT(after, 0.034) << "too wide by " << tooWide << ": " << before;
  }
}

// Photos from the south look across the roof to its northern wall, and not to its southern one.
TEST(WallPhotosTest, CountTheViewsAcrossTheRoof) {
  const Scene scene({{14, 2}, {17, 3}});
  std::int64_t judged = 0;
  std::vector<WallCell> cells;
  (void)WrongShare(scene.photos, 0, true, judged, &cells);
  int north = 0, south = 0;
  for (const WallCell& cell : cells) {
    const double x = 0.5 * kCell * cell.col, y = 30 - 0.5 * kCell * cell.row;
    // At the outermost cells the way to the lower side is not known.
    const bool atWall = std::min(std::fabs(y - kLow), std::fabs(y - kHigh)) < 0.3;
    if (!atWall || x < kLow + 2 || x > kHigh - 2 || cell.onUpper.photos == 0) continue;
    (y > 15 ? north : south) += cell.onUpper.photos;
    EXPECT_EQ(cell.onUpper.across, y > 15 ? cell.onUpper.photos : 0) << x << " " << y;
  }
  EXPECT_GT(north, 50);
  EXPECT_GT(south, 50);
}

// No photo, one photo, photos that look elsewhere: what the surface alone says stays.
TEST(WallPhotosTest, ChangeNothingWithoutSupport) {
  std::int64_t judged = 0;
  const double alone = WrongShare({}, 0.4, false, judged);
  EXPECT_EQ(WrongShare({}, 0.4, true, judged), alone);
  const Scene one({{15, 2}});
  EXPECT_EQ(WrongShare(one.photos, 0.4, true, judged), alone);
  EXPECT_EQ(judged, 0);
  Scene away({{3, 3}, {27, 27}});
  for (PhotoWindow& photo : away.photos) photo.camera.centre.x += 1000;
  EXPECT_EQ(WrongShare(away.photos, 0.4, true, judged), alone);
}

TEST(PhotosFavourUpperTest, TakesTwoPhotosForAWordAndBothSidesForAStrongOne) {
  WallCell cell;
  const auto favour = [&](SideEvidence upper, SideEvidence lower) {
    cell.onUpper = upper;
    cell.onLower = lower;
    return PhotosFavourUpper(cell, 2);
  };
  EXPECT_EQ(favour({0, 1, 0}, {50, 5, 0}), 0);  // one photo always agrees
  EXPECT_EQ(favour({0, 0, 0}, {0, 0, 0}), 0);
  EXPECT_GT(favour({1, 4, 2}, {20, 4, 0}), 0.9F);                         // roof
  EXPECT_LT(favour({30, 4, 2}, {1, 4, 0}), -0.9F);                        // ground
  EXPECT_GT(favour({1, 4, 2}, {1, 4, 0}), 0.5F);                          // a facade agrees below
  EXPECT_LT(favour({1, 4, 0}, {1, 4, 0}), favour({1, 4, 2}, {1, 4, 0}));  // all from outside
  EXPECT_LT(favour({30, 4, 2}, {0, 1, 0}), -0.5F);                        // nobody sees the ground
}

TEST(WallPriorTest, LearnsWhereWallsStandAndFallsOutwards) {
  std::array<std::int64_t, WallPrior::kBins> upper{}, lower{};
  for (int bin = 0; bin < WallPrior::kBins; ++bin) (bin < 10 ? upper : lower)[bin] = 300;
  upper[20] = 90;  // a tree: pooled away
  const WallPrior prior(upper, lower);
  EXPECT_TRUE(prior.Learned());
  EXPECT_NEAR(prior.Displacement(), -2.5 * WallPrior::kBinWidth, 0.02);
  for (double offset = -3; offset < 3; offset += 0.05) {
    EXPECT_GE(prior.Upper(offset), prior.Upper(offset + 0.05));
  }
  EXPECT_FALSE(WallPrior({}, {}).Learned());
  EXPECT_NEAR(WallPrior().Displacement(), 0, 1e-6);
}

}  // namespace
}  // namespace tqtortho
