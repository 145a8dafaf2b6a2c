// SPDX-License-Identifier: Apache-2.0
#include "town/town_scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>

#include "town/town_noise.h"

namespace tqtortho::host {
namespace {

const TownScene& Scene(std::uint32_t seed) {
  static const TownScene first(PlanTown(1, 100), 0.1), second(PlanTown(2, 100), 0.1);
  return seed == 1 ? first : second;
}

/// A ray from camera height to a random point of the ground, up to 45 degrees off the vertical.
TownRay RandomRay(TownRandom& random) {
  TownRay ray;
  ray.z = random.Range(160, 240);
  ray.dz = -1;
  ray.dx = random.Range(-0.8, 0.8);
  ray.dy = random.Range(-0.8, 0.8);
  ray.x = random.Range(0, 100) - (ray.z - 100) * ray.dx;
  ray.y = random.Range(0, 100) - (ray.z - 100) * ray.dy;
  return ray;
}

// The march knows nothing but the height function: every point before the hit is above the
// surface, the point just behind it is not.
TEST(TownSceneTest, TracedRaysMeetTheHeightFunctionFirstWhereTheySay) {
  int walls = 0, roofs = 0, crowns = 0;
  for (std::uint32_t seed : {1U, 2U}) {
    const TownScene& scene = Scene(seed);
    TownRandom random(71 + seed);
    for (int i = 0; i < 1500; ++i) {
      const TownRay ray = RandomRay(random);
      const TownScene::Hit hit = scene.Trace(ray);
      ASSERT_TRUE(hit.valid);
      const auto above = [&](double t) {
        return ray.z + t * ray.dz - scene.Height(ray.x + t * ray.dx, ray.y + t * ray.dy);
      };
      for (double t = ray.z - scene.Top() - 1; t < hit.t - 1e-6; t += 0.02) {
        ASSERT_GT(above(t), -1e-6) << "ray " << i << " was inside before its hit at " << hit.t;
      }
      EXPECT_LT(above(hit.t + 1e-6), 1e-5) << "ray " << i;
      if (!hit.wall) {
        EXPECT_NEAR(above(hit.t), 0, 1e-5) << "ray " << i;
      }
      walls += hit.wall ? 1 : 0;
      if (hit.solid >= 0 && !hit.wall) {
        ++(scene.Plan().solids[static_cast<std::size_t>(hit.solid)].IsTree() ? crowns : roofs);
      }
    }
  }
  EXPECT_GT(walls, 200);
  EXPECT_GT(roofs, 500);
  EXPECT_GT(crowns, 50);
}

TEST(TownSceneTest, PointsAreHiddenExactlyWhereAMarchToTheViewerGoesThroughTheSurface) {
  const TownScene& scene = Scene(1);
  TownRandom random(5);
  int hidden = 0, missedByMarch = 0;
  const int count = 3000;
  for (int i = 0; i < count; ++i) {
    const double x = random.Range(0, 100), y = random.Range(0, 100), z = scene.Height(x, y);
    const double viewX = random.Range(0, 100), viewY = random.Range(0, 100), viewZ = 225;
    const bool answer = scene.Hidden(x, y, z, viewX, viewY, viewZ);
    bool marched = false;
    const double end = (scene.Top() - z) / (viewZ - z), step = 0.01 / (viewZ - z);
    for (double t = 1e-7; t < end && !marched; t += step) {
      marched = z + t * (viewZ - z) + 1e-7 < scene.Height(x + t * (viewX - x), y + t * (viewY - y));
    }
    ASSERT_TRUE(answer || !marched) << "at " << x << " " << y;
    hidden += answer ? 1 : 0;
    missedByMarch += answer && !marched ? 1 : 0;  // passes a corner within one step
  }
  EXPECT_GT(hidden, count / 20);
  EXPECT_LT(missedByMarch, count / 200);
}

TEST(TownSceneTest, ATownOfAHundredMetresHasEveryShapeATrueOrthoIsTestedOn) {
  for (std::uint32_t seed = 1; seed <= 12; ++seed) {
    const TownPlan plan = PlanTown(seed, 100);
    int towers = 0, gables = 0, cones = 0, spheroids = 0;
    std::set<int> flatHeights;
    for (const Solid& s : plan.solids) {
      const double height = s.Top() - GroundHeight(plan, s.x, s.y);
      EXPECT_LT(height, 51);
      towers += s.kind == SolidKind::kFlat && s.halfU > 4 && height >= 30 ? 1 : 0;
      gables += s.kind == SolidKind::kGable ? 1 : 0;
      cones += s.kind == SolidKind::kCone ? 1 : 0;
      spheroids += s.kind == SolidKind::kSpheroid ? 1 : 0;
      if (s.kind == SolidKind::kFlat) flatHeights.insert(static_cast<int>(height));
      const double reach = s.IsTree() ? s.halfU : 0;
      EXPECT_GE(std::min(s.x, s.y) - reach, 0);
      EXPECT_LE(std::max(s.x, s.y) + reach, 100);
    }
    EXPECT_THAT(towers, ::testing::AllOf(::testing::Ge(1), ::testing::Le(2))) << "seed " << seed;
    EXPECT_GE(gables, 6) << "seed " << seed;
    EXPECT_GE(cones, 3) << "seed " << seed;
    EXPECT_GE(spheroids, 10) << "seed " << seed;
    EXPECT_GE(flatHeights.size(), 6U) << "seed " << seed;
    EXPECT_NE(std::find(plan.uses.begin(), plan.uses.end(), BlockUse::kCourtyard), plan.uses.end());
    EXPECT_NE(std::find(plan.uses.begin(), plan.uses.end(), BlockUse::kCorner), plan.uses.end());
  }
}

/// Hue in degrees and saturation.
bool LooksLikeFacade(const TownColour& c) {
  const double high = std::max({c.r, c.g, c.b}), low = std::min({c.r, c.g, c.b});
  if (high < 50 || (high - low) / high < 0.5) return false;
  double hue = 0;
  if (high == c.r) hue = 60 * (c.g - c.b) / (high - low);
  if (high == c.g) hue = 120 + 60 * (c.b - c.r) / (high - low);
  if (high == c.b) hue = 240 + 60 * (c.r - c.g) / (high - low);
  if (hue < 0) hue += 360;
  return (hue > 280 && hue < 325) || (hue > 172 && hue < 202);
}

TEST(TownSceneTest, OnlyFacadesAreMagentaOrCyanAndNoColourIsACode) {
  for (std::uint32_t seed : {1U, 2U}) {
    const TownScene& scene = Scene(seed);
    TownRandom random(seed);
    for (int i = 0; i < 100000; ++i) {
      int solid = 0;
      const TownColour c = scene.ColourAt(random.Range(-10, 110), random.Range(-10, 110), solid);
      ASSERT_FALSE(LooksLikeFacade(c)) << c.r << " " << c.g << " " << c.b;
      ASSERT_GE(std::min({c.r, c.g, c.b}), 8);
      ASSERT_LE(std::max({c.r, c.g, c.b}), 247);
    }
    for (const Solid& s : scene.Plan().solids) {
      if (s.IsTree()) continue;
      for (double down = 0.1; down < 6; down += 0.3) {
        const TownColour c =
            WallColour(s, s.x + s.halfU * s.axisX, s.y + s.halfU * s.axisY, s.rim - down);
        ASSERT_TRUE(LooksLikeFacade(c)) << c.r << " " << c.g << " " << c.b;
        ASSERT_GE(std::min({c.r, c.g, c.b}), 8);
      }
    }
  }
}

TEST(TownSceneTest, TheGroundIsGentle) {
  const TownPlan plan = PlanTown(3, 200);
  TownRandom random(9);
  for (int i = 0; i < 20000; ++i) {
    const double x = random.Range(-50, 250), y = random.Range(-50, 250), d = 0.01;
    const double slope = std::hypot(GroundHeight(plan, x + d, y) - GroundHeight(plan, x, y),
                                    GroundHeight(plan, x, y + d) - GroundHeight(plan, x, y));
    ASSERT_LT(slope / d, 0.15);
  }
}

}  // namespace
}  // namespace tqtortho::host
