// SPDX-License-Identifier: Apache-2.0
#include "host/sample_town.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

SampleOptions Tiny(const std::string& folder) {
  SampleOptions o;
  o.outDir = folder;
  o.seed = 5;
  o.sizeM = 36;
  o.photoCount = 3;
  o.dsmCellM = 0.5;
  o.photoGsdM = 0.15;
  o.truthCellM = 0.15;
  return o;
}

std::map<std::string, std::string> FilesIn(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    files[fs::relative(entry.path(), folder).string()] = ReadText(entry.path().string());
  }
  return files;
}

struct Raster {
  tqorkit::PhotoInfo image;
  tqimage::GeoCoefficients geo;
  explicit Raster(const std::string& path) {
    EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, &geo)) << path;
  }
  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) +
           static_cast<std::size_t>(col);
  }
  [[nodiscard]] double Byte(int row, int col, int band) const {
    return image.data[Index(row, col) * static_cast<std::size_t>(image.bands) +
                      static_cast<std::size_t>(band)];
  }
  [[nodiscard]] float Height(int row, int col) const {
    return reinterpret_cast<const float*>(image.data.data())[Index(row, col)];
  }
  [[nodiscard]] double Bilinear(double row, double col, int band) const {
    const int r = static_cast<int>(row), c = static_cast<int>(col);
    const double v = row - r, u = col - c;
    return (Byte(r, c, band) * (1 - u) + Byte(r, c + 1, band) * u) * (1 - v) +
           (Byte(r + 1, c, band) * (1 - u) + Byte(r + 1, c + 1, band) * u) * v;
  }
};

TEST(SampleTownTest, TheSameSeedGivesTheSameBytesWithAnyNumberOfThreads) {
  const TempDir one, two, other;
  std::string error;
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  ASSERT_TRUE(WriteSampleTown(Tiny(one.Path()), error, {})) << error;
  omp_set_num_threads(2);
  ASSERT_TRUE(WriteSampleTown(Tiny(two.Path()), error, {})) << error;
  omp_set_num_threads(threads);
  const auto first = FilesIn(one.Path()), second = FilesIn(two.Path());
  EXPECT_THAT(first.size(), 7 + 2 * 3);
  ASSERT_EQ(first.size(), second.size());
  for (const auto& [name, bytes] : first) {
    EXPECT_TRUE(second.count(name) == 1 && second.at(name) == bytes) << name << " differs";
  }
  SampleOptions options = Tiny(other.Path());
  options.seed = 6;
  ASSERT_TRUE(WriteSampleTown(options, error, {})) << error;
  EXPECT_NE(FilesIn(other.Path()).at("truth/ortho.tif"), first.at("truth/ortho.tif"));
}

/// What a reader of the lists knows, read with nothing but streams.
struct Lists {
  double w = 0, h = 0, f = 0, sw = 0, sh = 0, px = 0, py = 0, k[8] = {};
  int model = 0;
  struct Photo {
    std::string name;
    double x = 0, y = 0, z = 0, omega = 0, phi = 0, kappa = 0;
  };
  std::vector<Photo> photos;

  explicit Lists(const std::string& folder) {
    std::istringstream cameras(ReadText(folder + "/cameras.txt"));
    std::string line;
    for (int i = 0; i < 3; ++i) std::getline(cameras, line);
    cameras >> w >> h >> f >> sw >> sh >> px >> py >> model;
    for (double& c : k) cameras >> c;
    EXPECT_TRUE(cameras) << "sixteen values";
    std::istringstream list(ReadText(folder + "/photos.txt"));
    int blocks = 0, count = 0, camera = 0;
    list >> blocks >> count >> line;
    EXPECT_EQ(blocks, 1);
    EXPECT_EQ(line, "photos");
    for (int i = 0; i < count; ++i) {
      Photo p;
      list >> p.name >> p.x >> p.y >> p.z >> p.omega >> p.phi >> p.kappa >> camera;
      EXPECT_TRUE(list) << "eight values";
      photos.push_back(p);
    }
  }

  /// Collinearity and lens, word for word; column and downward row of the recorded photo.
  void Project(const Photo& p, double X, double Y, double Z, double& column, double& row) const {
    const double sp = std::sin(p.phi), cp = std::cos(p.phi), so = std::sin(p.omega),
                 co = std::cos(p.omega), sk = std::sin(p.kappa), ck = std::cos(p.kappa);
    const double a1 = cp * ck - sp * so * sk, a2 = -cp * sk - sp * so * ck, a3 = -sp * co;
    const double b1 = co * sk, b2 = co * ck, b3 = -so;
    const double c1 = sp * ck + cp * so * sk, c2 = -sp * sk + cp * so * ck, c3 = cp * co;
    const double dX = X - p.x, dY = Y - p.y, dZ = Z - p.z;
    const double den = a3 * dX + b3 * dY + c3 * dZ, s = sw / w;
    const double x0 = (px - 0.5 * w) * s, y0 = (py - 0.5 * h) * s;
    column = (-f * (a1 * dX + b1 * dY + c1 * dZ) / den + x0) / s + w * 0.5;
    double u = (-f * (a2 * dX + b2 * dY + c2 * dZ) / den + y0) / s + h * 0.5;
    const double cx = w * 0.5 + x0 / s, cy = h * 0.5 + y0 / s;
    if (model == 1) {
      double dx = 0, dy = 0;
      for (int i = 0; i < 40; ++i) {
        const double x = column - dx - cx, y = u - dy - cy, r2 = x * x + y * y;
        const double rad = k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2;
        dx = k[3] * (2 * x * x + r2) + rad * x + 2 * k[4] * x * y + k[5] * x + k[6] * y;
        dy = k[4] * (2 * y * y + r2) + rad * y + 2 * k[3] * x * y;
      }
      column -= dx;
      u -= dy;
    } else if (model == 3) {
      const double fp = f / s, x = (column - cx) / fp, y = (h - u - cy) / fp, r2 = x * x + y * y;
      const double rad = k[0] * r2 + k[1] * r2 * r2 + k[2] * r2 * r2 * r2;
      column = (x + rad * x + k[4] * (2 * x * x + r2) + 2 * k[3] * x * y) * fp + cx;
      u = h - ((y + rad * y + k[3] * (2 * y * y + r2) + 2 * k[4] * x * y) * fp + cy);
    }
    row = h - u;
  }
};

class SampleTownLensTest : public ::testing::TestWithParam<int> {};

// Everything is read back from the files as a stranger would: where the truth says that a photo
// sees a cell, the pixel at its projection has the cell's colour, and no hidden cell's has in
// general.
TEST_P(SampleTownLensTest, EverySeenCellOfTheTruthHasItsColourInThePhoto) {
  const TempDir folder;
  SampleOptions options = Tiny(folder.Path());
  options.lensModel = GetParam();
  options.attitudeDeg = 4;
  std::string error;
  ASSERT_TRUE(WriteSampleTown(options, error, {})) << error;
  const Lists lists(folder.Path());
  EXPECT_EQ(lists.model, GetParam());
  EXPECT_NE(lists.px, 0.5 * lists.w);
  const Raster ortho(folder.File("truth/ortho.tif")), height(folder.File("truth/height.tif"));
  const Raster classes(folder.File("truth/class.tif"));
  double worstPhoto = 0;
  int hidden = 0, roofs = 0;
  for (const Lists::Photo& p : lists.photos) {
    const Raster photo(folder.File("photos/" + p.name));
    const std::string stem = fs::path(p.name).stem().string();
    const Raster visibility(folder.File("truth/visibility/" + stem + ".tif"));
    double seen = 0, sum = 0, far = 0;
    for (int row = 0; row < ortho.image.height; ++row) {
      for (int col = 0; col < ortho.image.width; ++col) {
        const auto at = ortho.geo.Raster2World(col, row);
        double c = 0, r = 0;
        lists.Project(p, at.x, at.y, height.Height(row, col), c, r);
        const bool inside = c >= 0 && r >= 0 && c < lists.w - 1 && r < lists.h - 1;
        const double state = visibility.Byte(row, col, 0);
        if (std::abs(c) > 0.1 && std::abs(r) > 0.1 && std::abs(c - lists.w + 1) > 0.1 &&
            std::abs(r - lists.h + 1) > 0.1) {
          ASSERT_EQ(inside, state != 128) << c << " " << r;
        }
        hidden += state == 255 ? 1 : 0;
        if (state != 0 || !inside) continue;
        roofs += classes.Byte(row, col, 0) == 2 ? 1 : 0;
        double difference = 0;
        for (int band = 0; band < 3; ++band) {
          difference += std::abs(photo.Bilinear(r, c, band) - ortho.Byte(row, col, band)) / 3;
        }
        seen += 1;
        sum += difference;
        far += difference > 40 ? 1 : 0;
      }
    }
    ASSERT_GT(seen, 10000);
    worstPhoto = std::max(worstPhoto, sum / seen);
    EXPECT_LT(far / seen, 0.01);
  }
  // Half a pixel of error would triple this.
  EXPECT_LT(worstPhoto, 3.5);
  EXPECT_GT(hidden, 500);
  EXPECT_GT(roofs, 2000);
}

INSTANTIATE_TEST_SUITE_P(LensModels, SampleTownLensTest, ::testing::Values(0, 1, 3));

TEST(SampleTownTest, TheDsmHoldsTheSurfaceAtItsCellCentres) {
  const TempDir folder;
  SampleOptions options = Tiny(folder.Path());
  options.photoCount = 1;
  options.dsmCellM = 0.45;  // three cells of the truth: every centre is one of its centres
  std::string error;
  ASSERT_TRUE(WriteSampleTown(options, error, {})) << error;
  const Raster dsm(folder.File("dsm.tif")), truth(folder.File("truth/height.tif"));
  EXPECT_EQ(dsm.image.width, 80);
  EXPECT_NEAR(dsm.geo.GetOrigin().x, 500000.225, 1e-6);
  EXPECT_NEAR(dsm.geo.GetOrigin().y, 5400000 + 36 - 0.225, 1e-6);
  EXPECT_THAT(dsm.geo.GetProjection(), ::testing::HasSubstr("UTM zone 33N"));
  for (int row = 0; row < 80; ++row) {
    for (int col = 0; col < 80; ++col) {
      const auto at = dsm.geo.Raster2World(col, row);
      const auto cell = truth.geo.World2Raster(at.x, at.y, -1, -1);
      ASSERT_NEAR(dsm.Height(row, col), truth.Height(cell.y, cell.x), 1e-3);
    }
  }
}

TEST(SampleTownTest, RefusesWhatMakesNoTownInOneLine) {
  const TempDir folder;
  const auto refused = [&](auto change) {
    SampleOptions o = Tiny(folder.File("never"));
    change(o);
    std::string error;
    return !WriteSampleTown(o, error, {}) && !error.empty() &&
           error.find('\n') == std::string::npos && !fs::exists(folder.File("never"));
  };
  EXPECT_TRUE(refused([](SampleOptions& o) { o.sizeM = 19; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.sizeM = std::nan(""); }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.photoCount = 0; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.photoGsdM = 0; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.lensModel = 2; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.attitudeDeg = 60; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.sizeM = 2000, o.truthCellM = 0.02; }));
  EXPECT_TRUE(refused([](SampleOptions& o) { o.sizeM = 2000, o.photoCount = 1; }));
}

TEST(SampleTownTest, StopsWhenAskedAndCountsUpToOne) {
  const TempDir folder;
  std::vector<double> told;
  std::string error;
  EXPECT_FALSE(WriteSampleTown(Tiny(folder.File("a")), error, [&](double done) {
    told.push_back(done);
    return told.size() < 6;
  }));
  EXPECT_EQ(told.size(), 6U);
  EXPECT_EQ(error, "stopped");
  told.clear();
  EXPECT_TRUE(WriteSampleTown(Tiny(folder.File("b")), error, [&](double done) {
    told.push_back(done);
    return true;
  }));
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
  EXPECT_NEAR(told.back(), 1, 0.01);
}

}  // namespace
}  // namespace tqtortho::host
