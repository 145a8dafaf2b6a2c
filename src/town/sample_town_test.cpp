// SPDX-License-Identifier: Apache-2.0
#include "town/sample_town.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "survey/survey_reader.h"
#include "testing/temp_dir.h"
#include "testing/threads.h"
#include "town/town_camera.h"
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
  for (const auto& [threads, path] : {std::pair{1, one.Path()}, {2, two.Path()}}) {
    const tqtortho::testing::Threads some(threads);
    ASSERT_TRUE(WriteSampleTown(Tiny(path), error, {})) << error;
  }
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

class SampleTownLensTest : public ::testing::TestWithParam<int> {};

// Everything is read back from the files: where the truth says that a photo sees a cell, the pixel
// at its projection has the cell's colour, and no hidden cell's has in general.
TEST_P(SampleTownLensTest, EverySeenCellOfTheTruthHasItsColourInThePhoto) {
  const TempDir folder;
  SampleOptions options = Tiny(folder.Path());
  options.lensModel = GetParam();
  options.attitudeDeg = 4;
  std::string error;
  ASSERT_TRUE(WriteSampleTown(options, error, {})) << error;
  std::vector<std::string> problems;
  const auto survey = ReadSurvey(folder.File("cameras.txt"), folder.File("photos.txt"), problems);
  ASSERT_TRUE(survey) << problems.front();
  const SurveyCamera& lens = survey->cameras.at(0);
  EXPECT_EQ(lens.model, GetParam());
  EXPECT_NE(lens.principalX, 0.5 * lens.width);
  const Raster ortho(folder.File("truth/ortho.tif")), height(folder.File("truth/height.tif"));
  const Raster classes(folder.File("truth/class.tif"));
  double worstPhoto = 0;
  int hidden = 0, roofs = 0;
  for (const SurveyPhoto& p : survey->blocks.at(0).photos) {
    const TownCamera camera(lens, p, 0, 0);
    const Raster photo(folder.File("photos/" + p.name));
    const std::string stem = fs::path(p.name).stem().string();
    const Raster visibility(folder.File("truth/visibility/" + stem + ".tif"));
    double seen = 0, sum = 0, far = 0;
    for (int row = 0; row < ortho.image.height; ++row) {
      for (int col = 0; col < ortho.image.width; ++col) {
        const auto at = ortho.geo.Raster2World(col, row);
        double c = 0, r = 0;
        const bool near = camera.Project(at.x, at.y, height.Height(row, col), c, r);
        const double right = lens.width - 1, bottom = lens.height - 1;
        const bool inside = near && c >= 0 && r >= 0 && c < right && r < bottom;
        const double state = visibility.Byte(row, col, 0);
        if (std::abs(c) > 0.1 && std::abs(r) > 0.1 && std::abs(c - right) > 0.1 &&
            std::abs(r - bottom) > 0.1) {
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
