// SPDX-License-Identifier: Apache-2.0
#include "report/naive_mosaic.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "testing/raster_file.h"
#include "testing/tiny_job.h"

namespace tqtortho::host {
namespace {

using tqtortho::testing::TinyJob;

/// Level ground under photos whose colours tell the place, one unit per cell.
class NaiveMosaicTest : public ::testing::Test {
 protected:
  NaiveMosaicTest() {
    grid_ = GridOver({TinyJob::kX0, TinyJob::kY0 - 28, TinyJob::kX0 + 38, TinyJob::kY0}, 1.0, 100);
    heights_.assign(grid_.Count(), 0.0F);
  }
  void AddPhoto(const char* name, double east, double south) {
    job_.AddPhoto(name, east, south);
    GroundPhoto photo;
    photo.number = static_cast<int>(photos_.size()) + 1;
    photo.photoPath = job_.dir.File("photos") + "/" + name;
    photo.camera.centre = {TinyJob::kX0 + east, TinyJob::kY0 - south, TinyJob::kFlight};
    photo.camera.focal = 160;  // 0.25 units per pixel from 40 units
    photo.camera.pixelSize = 1;
    photo.camera.width = 96;
    photo.camera.height = 72;
    photo.ground = {photo.camera.centre.x - 13, photo.camera.centre.y - 10,
                    photo.camera.centre.x + 13, photo.camera.centre.y + 10};
    photos_.push_back(photo);
  }
  /// Whether a photo's frame, 24 x 18 units, holds a point, left and upper edge included.
  static bool Holds(const GroundPhoto& photo, double x, double y) {
    const double dx = x - photo.camera.centre.x, dy = y - photo.camera.centre.y;
    return dx >= -12 && dx < 12 && dy > -9 && dy <= 9;
  }

  TinyJob job_;
  ReportGrid grid_;
  std::vector<float> heights_;
  std::vector<GroundPhoto> photos_;
};

TEST_F(NaiveMosaicTest, EachCellShowsItsOwnGroundFromTheNearestPhotoThatHoldsIt) {
  AddPhoto("a.tif", 12, 10);
  AddPhoto("b.tif", 22, 14);
  AddPhoto("c.tif", 26, 18);
  heights_[grid_.Index(12, 20)] = std::numeric_limits<float>::quiet_NaN();
  PhotoCoverage coverage = FindCoverage(grid_, heights_, photos_);
  EXPECT_TRUE(coverage.hidden.empty());  // there are no masks
  const auto colours = DrawNearest(grid_, heights_, photos_, coverage.nearest);
  int shown = 0;
  for (int row = 0; row < grid_.rows; ++row) {
    for (int col = 0; col < grid_.cols; ++col) {
      const double x = grid_.X(col), y = grid_.Y(row);
      int nearest = 0, frames = 0;
      double best = 1e9;
      for (const GroundPhoto& photo : photos_) {
        if (!Holds(photo, x, y) || (row == 12 && col == 20)) continue;
        ++frames;
        const double d = std::hypot(x - photo.camera.centre.x, y - photo.camera.centre.y);
        if (d < best - 1e-9) {
          best = d;
          nearest = photo.number;
        }
      }
      const std::size_t i = grid_.Index(row, col);
      ASSERT_EQ(coverage.nearest[i], nearest) << row << " " << col;
      ASSERT_EQ(coverage.frames[i], frames) << row << " " << col;
      if (nearest == 0) {
        EXPECT_EQ(colours[3 * i] + colours[3 * i + 1] + colours[3 * i + 2], 0);
        continue;
      }
      ++shown;
      const int red = TinyJob::Colour(20 + 5 * (x - TinyJob::kX0));
      const int green = TinyJob::Colour(250 - 5 * (TinyJob::kY0 - y));
      // A reduced pixel is one unit wide, five grey values; on the rim its middle is not reached.
      EXPECT_LE(std::abs(colours[3 * i] - red), 3) << row << " " << col;
      EXPECT_LE(std::abs(colours[3 * i + 1] - green), 3) << row << " " << col;
    }
  }
  EXPECT_GT(shown, 400);
}

TEST_F(NaiveMosaicTest, MasksAreCountedAndAnUnreadablePhotoLeavesItsCellsEmpty) {
  AddPhoto("a.tif", 12, 10);
  AddPhoto("b.tif", 16, 10);
  std::vector<std::uint8_t> mask(38 * 28, 0);
  for (int row = 0; row < 28; ++row) mask[static_cast<std::size_t>(row * 38 + 9)] = 255;
  for (const char* name : {"a.tif", "b.tif"}) {
    photos_[name[0] - 'a'].maskPath = job_.dir.File(name);
    ASSERT_TRUE(tqtortho::testing::WriteRaster(job_.dir.File(name), tqimage::kByte, mask.data(), 38,
                                               28, {TinyJob::kX0 + 0.5, TinyJob::kY0 - 0.5, 1, ""},
                                               nullptr));
  }
  photos_[1].photoPath = job_.dir.Write("broken.jpg", "no picture");
  PhotoCoverage coverage = FindCoverage(grid_, heights_, photos_);
  (void)DrawNearest(grid_, heights_, photos_, coverage.nearest);
  ASSERT_EQ(coverage.hidden.size(), grid_.Count());
  for (int row = 0; row < grid_.rows; ++row) {
    for (int col = 0; col < grid_.cols; ++col) {
      const std::size_t i = grid_.Index(row, col);
      EXPECT_EQ(coverage.hidden[i], col == 9 ? coverage.frames[i] : 0) << row << " " << col;
      EXPECT_LE(coverage.nearest[i], 1);
    }
  }
}

}  // namespace
}  // namespace tqtortho::host
