// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <vector>

#include "stage/photo_files.h"
#include "testing/output_dir.h"
#include "testing/raster_file.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;
using tqimage::GeoCoefficients;

class Job : public tqTORProc {
 public:
  using tqTORProc::RefineOcclusion;
};

struct Raster {
  int cols = 0;
  int rows = 0;
  double x = 0;  // centre of the first cell
  double y = 0;
  double cell = 1;
  Bytes cells;

  Raster(int colCount, int rowCount, double originX, double originY, double cellSize)
      : cols(colCount), rows(rowCount), x(originX), y(originY), cell(cellSize) {
    cells.assign(static_cast<std::size_t>(cols * rows), 0);
  }
  std::uint8_t& At(int row, int col) { return cells[static_cast<std::size_t>(row * cols + col)]; }
  [[nodiscard]] std::uint8_t Or(int row, int col, std::uint8_t outside) const {
    if (row < 0 || col < 0 || row >= rows || col >= cols) return outside;
    return cells[static_cast<std::size_t>(row * cols + col)];
  }
  void Save(const std::string& path) const {
    ASSERT_TRUE(testing::WriteRaster(path, tqimage::kByte, cells.data(), cols, rows,
                                     {x, y, cell, ""}, nullptr));
  }
};

/// The largest (or smallest) value within `reach` rows and columns; outside there is nothing.
Raster Extreme(const Raster& in, int reach, bool largest) {
  Raster out = in;
  for (int row = 0; row < in.rows; ++row) {
    for (int col = 0; col < in.cols; ++col) {
      std::uint8_t best = largest ? 0 : 255;
      for (int r = row - reach; r <= row + reach; ++r) {
        for (int c = col - reach; c <= col + reach; ++c) {
          best = largest ? std::max(best, in.Or(r, c, 0)) : std::min(best, in.Or(r, c, 255));
        }
      }
      out.At(row, col) = best;
    }
  }
  return out;
}

struct Refined {
  Raster reach, border, mask;
};

/// The whole operation cell by cell, without OpenCV and files.
Refined Twin(Raster mask, const Raster& borderMask) {
  const double ratio = mask.cell / borderMask.cell;
  const int firstCol =
      static_cast<int>(std::floor((mask.x - borderMask.x) / borderMask.cell + 0.5));
  const int firstRow =
      static_cast<int>(std::floor((borderMask.y - mask.y) / borderMask.cell + 0.5));
  const int cols = static_cast<int>(mask.cols * ratio);
  const int rows = static_cast<int>(mask.rows * ratio);
  // The nearest cell as OpenCV rounds it: the factor is an inverse of the inverse.
  const double stepX = 1.0 / (static_cast<double>(mask.cols) / cols);
  const double stepY = 1.0 / (static_cast<double>(mask.rows) / rows);
  Raster border = mask;
  for (int row = 0; row < mask.rows; ++row) {
    for (int col = 0; col < mask.cols; ++col) {
      const int c = std::min(static_cast<int>(col * stepX), cols - 1);
      const int r = std::min(static_cast<int>(row * stepY), rows - 1);
      border.At(row, col) = borderMask.Or(firstRow + r, firstCol + c, 0);
    }
  }
  const Raster reach = Extreme(mask, 15, true);
  for (std::size_t i = 0; i < mask.cells.size(); ++i) {
    if (reach.cells[i] > 0) border.cells[i] = 0;
    if (border.cells[i] > 0) mask.cells[i] = 255;
  }
  return {reach, border, Extreme(Extreme(mask, 1, true), 1, false)};
}

class BorderRefineTest : public ::testing::Test {
 protected:
  bool Refine(const Raster& mask) {
    mask.Save(Path());
    return Job().RefineOcclusion(Path());
  }
  void ExpectTwin(const Raster& mask, const Raster& borderMask) {
    borderMask.Save(BorderMaskPath());
    ASSERT_TRUE(Refine(mask));
    const Refined truth = Twin(mask, borderMask);
    EXPECT_EQ(Load(Path() + "_dilate.tif", mask), truth.reach.cells);
    EXPECT_EQ(Load(Path() + "_border.tif", mask), truth.border.cells);
    EXPECT_EQ(Load(Path() + "_refine.tif", mask), truth.mask.cells);
    EXPECT_EQ(Load(Path(), mask), mask.cells) << "the mask itself stays";
  }
  static Bytes Load(const std::string& path, const Raster& like) {
    tqorkit::PhotoInfo image;
    GeoCoefficients geo;
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, &geo)) << path;
    // Files keep corners, so the centre comes back within rounding.
    EXPECT_DOUBLE_EQ(geo.GetOrigin().x, like.x);
    EXPECT_DOUBLE_EQ(geo.GetOrigin().y, like.y);
    EXPECT_EQ(geo.GetResolution(), (tqfd::Point2_T<double>{like.cell, -like.cell}));
    return image.data;
  }
  [[nodiscard]] std::string Path() const { return dir_.File("a_0.jpg_obs.tif"); }
  [[nodiscard]] bool WroteAnything() const {
    for (const char* suffix : {"_dilate.tif", "_border.tif", "_refine.tif"}) {
      if (std::filesystem::exists(Path() + suffix)) return true;
    }
    return false;
  }

  testing::OutputDir dir_;
};

TEST_F(BorderRefineTest, EqualsTheLiteralTwinOnRandomMasks) {
  std::mt19937 random(20240719);  // fixed seed: a failure must repeat
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  // Ratio of cell sizes; origins of the mask in cells of the border mask, also partly and wholly
  // outside.
  for (const double ratio : {1.0, 0.5, 2.0, 1.0 / 3, 1.25}) {
    for (const int shift : {0, 5, -9, 30, 200}) {
      Raster borderMask(70, 60, 1000, 2000, 0.5);
      Raster mask(20 + below(60), 20 + below(40), 1000 + shift * 0.5, 2000 - shift * 0.5,
                  0.5 * ratio);
      for (int n = 0; n < 40; ++n) borderMask.At(below(60), below(70)) = n % 3 == 0 ? 1 : 200;
      for (int n = below(5); n > 0; --n) {
        mask.At(below(mask.rows), below(mask.cols)) = n % 2 == 0 ? 255 : 17;
      }
      SCOPED_TRACE(::testing::Message() << "ratio " << ratio << " shift " << shift);
      ExpectTwin(mask, borderMask);
    }
  }
}

TEST_F(BorderRefineTest, AMissingMaskOrBorderMaskWritesNothing) {
  const Raster mask(30, 30, 100, 200, 1);
  EXPECT_FALSE(Refine(mask)) << "no border mask";
  mask.Save(BorderMaskPath());
  EXPECT_FALSE(Job().RefineOcclusion(dir_.File("none.tif")));
  EXPECT_FALSE(WroteAnything());
  const Bytes colours(3 * 30 * 30, 255);
  ASSERT_TRUE(
      tqorkit::TqFSManager::SaveImageFile(colours.data(), 30, 30, 3, Path(), true, nullptr));
  EXPECT_FALSE(Job().RefineOcclusion(Path())) << "three bands";
  EXPECT_FALSE(WroteAnything());
  EXPECT_FALSE(Refine(Raster(30, 30, 100, 200, 1e4))) << "a region of 9e10 cells";
}

}  // namespace
}  // namespace tqtortho
