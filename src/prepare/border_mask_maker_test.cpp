// SPDX-License-Identifier: Apache-2.0
#include "prepare/border_mask_maker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "geo/Crs.h"
#include "stage/border_mask.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "testing/town_data.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using Bytes = std::vector<std::uint8_t>;
constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

/// The mask of a 60 x 60 surface given as a function of row and column.
Bytes Mark(const std::function<double(int, int)>& height, const BorderMaskOptions& options = {},
           double cellSize = 0.5) {
  std::vector<float> heights;
  for (int row = 0; row < 60; ++row) {
    for (int col = 0; col < 60; ++col) heights.push_back(static_cast<float>(height(row, col)));
  }
  Bytes mask(heights.size(), 7);
  MarkTallBorders({heights.data(), 60, 60}, cellSize, options, {mask.data(), 60, 60});
  return mask;
}

int Count(const Bytes& mask) {
  EXPECT_EQ(
      std::count(mask.begin(), mask.end(), 0) + std::count(mask.begin(), mask.end(), kTallBorder),
      static_cast<std::ptrdiff_t>(mask.size()));
  return static_cast<int>(std::count(mask.begin(), mask.end(), kTallBorder));
}

bool InBox(int row, int col) { return row >= 20 && row < 40 && col >= 15 && col < 45; }

TEST(MarkTallBordersTest, ABuildingIsTwoCellsOfBorderAllAround) {
  const Bytes mask = Mark([](int row, int col) { return InBox(row, col) ? 10.0 : 0.0; });
  for (int row = 0; row < 60; ++row) {
    for (int col = 0; col < 60; ++col) {
      // The median rounds the corners by a cell, so the corners are left open here.
      const int toRow = std::min(std::abs(row - 19), std::abs(row - 39));
      const int toCol = std::min(std::abs(col - 14), std::abs(col - 44));
      if (std::min(toRow, std::abs(row - 20)) < 3 && toCol < 4) continue;
      if (std::min(toRow, std::abs(row - 40)) < 3 && toCol < 4) continue;
      const bool beside =
          (row == 19 || row == 20 || row == 39 || row == 40) && col > 17 && col < 42;
      const bool along = (col == 14 || col == 15 || col == 44 || col == 45) && row > 22 && row < 37;
      EXPECT_EQ(mask[row * 60 + col] == kTallBorder, beside || along) << row << ' ' << col;
    }
  }
}

struct Scene {
  const char* name;
  std::function<double(int, int)> height;
  bool hasBorder;
};

TEST(MarkTallBordersTest, OnlyStepsBetweenLevelSidesCount) {
  std::mt19937 random(77);
  std::normal_distribution<double> noise(0, 0.4);
  std::vector<double> rough(3600);
  for (double& r : rough) r = noise(random);
  const auto cone = [](int row, int col) {
    return std::max(0.0, 14 - 1.2 * std::hypot(row - 30.0, col - 30.0));
  };
  const std::vector<Scene> scenes = {
      {"level ground", [](int, int) { return 5.0; }, false},
      {"step just below the threshold", [](int r, int c) { return InBox(r, c) ? 2.5 : 0.0; },
       false},
      {"step just above it", [](int r, int c) { return InBox(r, c) ? 2.6 : 0.0; }, true},
      {"hill side of 70 degrees", [](int r, int) { return 1.4 * r; }, false},
      {"cone of a tree", cone, false},
      {"dome of a tree",
       [](int r, int c) {
         return std::max(0.0, 12 - 0.15 * ((r - 30) * (r - 30) + (c - 30) * (c - 30)));
       },
       false},
      {"single spikes", [](int r, int c) { return r % 7 == 3 && c % 7 == 3 ? 30.0 : 0.0; }, false},
      {"single pits", [](int r, int c) { return r % 7 == 3 && c % 7 == 3 ? -30.0 : 0.0; }, false},
      {"noise", [&](int r, int c) { return 2 * rough[r * 60 + c]; }, false},
      {"house in noise", [&](int r, int c) { return rough[r * 60 + c] + (InBox(r, c) ? 8 : 0); },
       true},
      {"gabled house", [](int r, int c) { return InBox(r, c) ? 9 - 0.2 * std::abs(r - 29.5) : 0; },
       true},
      {"house on a slope", [](int r, int c) { return 0.4 * r + (InBox(r, c) ? 7 : 0); }, true},
      {"a hut of too short a border",
       [](int r, int c) { return r >= 30 && r < 33 && c >= 30 && c < 33 ? 9.0 : 0.0; }, false},
      {"no heights at all", [](int, int) { return kNone; }, false},
      {"edge of the heights", [](int r, int) { return r < 30 ? 50.0 : kNone; }, false},
  };
  for (const Scene& scene : scenes) {
    SCOPED_TRACE(scene.name);
    const int border = Count(Mark(scene.height));
    EXPECT_TRUE(scene.hasBorder ? border > 100 : border == 0) << border;
  }
}

TEST(MarkTallBordersTest, OptionsChangeWhatCounts) {
  const auto slope = [](int row, int) { return 1.4 * row; };
  const auto with = [](auto member, auto value) {
    BorderMaskOptions options;
    options.*member = value;
    return options;
  };
  EXPECT_GT(Count(Mark(slope, with(&BorderMaskOptions::slopeFactor, 0))), 3000);
  const auto house = [](int row, int col) { return InBox(row, col) ? 6.0 : 0.0; };
  EXPECT_EQ(Count(Mark(house, with(&BorderMaskOptions::stepM, 6.5))), 0);
  EXPECT_GT(Count(Mark(house, with(&BorderMaskOptions::widenCells, 3))), 3 * Count(Mark(house)));
  // A wall softened over eight cells of 0.1 is found over a reach of a metre, not over 0.2.
  const auto soft = [](int row, int) { return std::clamp((row - 26.0) * 0.8, 0.0, 6.4); };
  EXPECT_EQ(Count(Mark(soft, with(&BorderMaskOptions::reachM, 0), 0.1)), 0);
  EXPECT_GT(Count(Mark(soft, {}, 0.1)), 100);
  BorderMaskOptions all = with(&BorderMaskOptions::median, false);
  all.minBorderCells = 0;
  const auto hut = [](int r, int c) { return r >= 30 && r < 34 && c >= 30 && c < 34 ? 9.0 : 0.0; };
  EXPECT_GT(Count(Mark(hut, all)), 0);
}

/// Writes a DSM of 0.25 cells, first centre at (500, 900).
void WriteDsm(const std::string& path, int cols, int rows,
              const std::function<double(int, int)>& height) {
  std::vector<float> heights;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) heights.push_back(static_cast<float>(height(row, col)));
  }
  const tqtortho::testing::RasterPlace place{500, 900, 0.25, geo::CrsToWkt("EPSG:32651")};
  ASSERT_TRUE(tqtortho::testing::WriteHeights(path, heights.data(), cols, rows, place));
}

/// The mask of a DSM as it was written, and where it lies.
Bytes Written(const std::string& dsm, const std::string& out, const BorderMaskOptions& options,
              GeoCoefficients* at = nullptr, BorderMaskReport* report = nullptr) {
  std::string error;
  EXPECT_TRUE(WriteBorderMask(dsm, out, options, error, report)) << error;
  tqorkit::PhotoInfo mask;
  EXPECT_TRUE(TqImage::QuickReadImage(out, mask, at));
  return mask.data;
}

TEST(WriteBorderMaskTest, TheMaskLiesOnTwiceTheCells) {
  const testing::TempDir dir;
  const std::string out = dir.File("deep/er/mask.tif");
  // Cells with a height beside cells without one: the wall is found up to the hole.
  WriteDsm(dir.File("dsm.tif"), 121, 99, [](int row, int col) {
    if (row > 60 && col > 90) return -9999.0;
    return col >= 40 && col < 80 ? 20.0 : 10.0;
  });
  BorderMaskReport report;
  GeoCoefficients at;
  const Bytes mask = Written(dir.File("dsm.tif"), out, {}, &at, &report);
  EXPECT_EQ(at.GetWidth(), 61);
  EXPECT_EQ(at.GetHeight(), 50);
  EXPECT_EQ(at.GetOrigin(), (tqfd::Point2_T<double>{500.125, 899.875}));
  EXPECT_EQ(at.GetResolution(), (tqfd::Point2_T<double>{0.5, -0.5}));
  EXPECT_FALSE(at.GetProjection().empty());
  for (int row = 0; row < 50; ++row) {
    for (const int col : {19, 20, 39, 40}) EXPECT_EQ(mask[row * 61 + col], kTallBorder);
  }
  EXPECT_EQ(std::count(mask.begin(), mask.end(), kTallBorder), 4 * 50);
  EXPECT_EQ(report.borderCells, 4 * 50);
  EXPECT_EQ(report.cells, 61 * 50);
  // Full cells of no data: rows 61 / 2 + 1 on, columns 46 on.
  EXPECT_EQ(report.heightCells, 61 * 50 - 15 * 19);
}

// Rows are worked through in strips: a mask of many strips has to be the mask of the whole.
TEST(WriteBorderMaskTest, StripsLeaveNoSeams) {
  const testing::TempDir dir;
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0, 1);
  constexpr int kCols = 160;
  constexpr int kRows = 3000;
  std::vector<float> tops(kRows / 10 + 1);
  for (float& top : tops) top = static_cast<float>(8 * unit(random));
  WriteDsm(dir.File("dsm.tif"), kCols, kRows, [&](int row, int col) {
    return (row / 23 + col / 31) % 2 == 0 ? tops[row / 10] : 0.0F;
  });
  BorderMaskOptions options;
  options.widenCells = 1;
  options.stripCells = 1000;
  const Bytes mask = Written(dir.File("dsm.tif"), dir.File("mask.tif"), options);
  tqorkit::PhotoInfo dsm;
  ASSERT_TRUE(TqImage::QuickReadImage(dir.File("dsm.tif"), dsm, nullptr));
  std::vector<float> half(static_cast<std::size_t>(kRows) / 2 * kCols / 2);
  HalveHeights({reinterpret_cast<const float*>(dsm.data.data()), kRows, kCols}, -9999,
               {half.data(), kRows / 2, kCols / 2});
  Bytes whole(half.size());
  MarkTallBorders({half.data(), kRows / 2, kCols / 2}, 0.5, options,
                  {whole.data(), kRows / 2, kCols / 2});
  EXPECT_EQ(mask, whole);
  EXPECT_GT(std::count(whole.begin(), whole.end(), kTallBorder), 5000);
  // The other codes mark the same borders as lines, and all other ground with 200 or not at all.
  for (auto& cell : whole) cell = cell == kTallBorder ? kBorderLine : kTallBorder;
  options.code = BorderCode::kTraceEverywhere;
  EXPECT_EQ(Written(dir.File("dsm.tif"), dir.File("mask.tif"), options), whole);
  for (auto& cell : whole) cell = cell == kTallBorder ? 0 : cell;
  options.code = BorderCode::kSmoothOnly;
  EXPECT_EQ(Written(dir.File("dsm.tif"), dir.File("mask.tif"), options), whole);
}

TEST(WriteBorderMaskTest, RefusalsSayWhy) {
  const testing::TempDir dir;
  const std::string out = dir.File("mask.tif");
  WriteDsm(dir.File("dsm.tif"), 20, 20, [](int, int) { return 1.0; });
  std::string error;
  EXPECT_FALSE(WriteBorderMask(dir.File("missing.tif"), out, {}, error));
  EXPECT_NE(error.find("missing.tif"), std::string::npos);
  BorderMaskOptions bad;
  bad.stepM = std::nan("");
  error.clear();
  EXPECT_FALSE(WriteBorderMask(dir.File("dsm.tif"), out, bad, error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(std::filesystem::exists(out));
}

// A real drone survey over hills and trees with low buildings: a plain step test calls a large part
// of it border (0.35), the test against slopes little (0.06).
TEST(WriteBorderMaskTest, ARealSurveyOfTreesIsNoTown) {
  const std::string shared = tqtortho::testing::SharedData();
  if (shared.empty()) GTEST_SKIP() << "the real survey is not there";
  const testing::TempDir dir;
  const auto share = [&](double slopeFactor) {
    BorderMaskOptions options;
    options.slopeFactor = slopeFactor;
    BorderMaskReport report;
    Written(shared + "/odm-field/odm_dem/dsm.tif", dir.File("m.tif"), options, nullptr, &report);
    return static_cast<double>(report.borderCells) / static_cast<double>(report.heightCells);
  };
  EXPECT_GT(share(0), 0.3);
  EXPECT_LT(share(BorderMaskOptions().slopeFactor), 0.08);
}

}  // namespace
}  // namespace tqtortho::host
