// SPDX-License-Identifier: Apache-2.0
// The products of whole jobs, as somebody to whom they are passed on opens them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

#include "geo/RasterTools.h"
#include "geo/ScaledRead.h"
#include "report/report_layers.h"
#include "run/run_job.h"
#include "stage/ortho_names.h"
#include "survey/survey_reader.h"
#include "testing/box_world.h"
#include "testing/quiet_observer.h"
#include "testing/vector_file.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
using tqtortho::testing::ReadText;

/// Jobs on the world of three buildings, below a directory of a telling name.
class ProductsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string File(const std::string& name) const {
    return world_.dir.File("customer_of_may/" + name);
  }
  RunReport Run(const std::string& out, const std::function<void(RunOptions&)>& with) const {
    std::vector<std::string> problems;
    auto survey = ReadSurvey(world_.Cameras(), world_.Photos(), problems);
    RunOptions options;
    options.dsmPath = world_.Dsm();
    options.outDir = File(out);
    options.gsd = 0.25;
    with(options);
    tqtortho::testing::QuietObserver silent;
    RunReport report;
    std::string error;
    EXPECT_EQ(RunJob(*survey, options, silent, report, error), RunStatus::kDone) << error;
    return report;
  }
  static std::vector<std::uint8_t> Shown(const std::string& out) {
    return MakeReportLayers({out + "/mosaic.tif", out + "/source.tif", out + "/quality.tif",
                             out + "/work/dsm.tif"},
                            {}, 0.25)
        .alpha;
  }

  tqtortho::testing::BoxWorld world_;
};

// Regions, seams and cameras in the file for geographic information systems, against the raster of
// sources and the survey that they describe.
TEST_F(ProductsTest, SeamsFileSaysWhatTheRasterOfSourcesShows) {
  Run("out", [](RunOptions&) {});
  std::vector<std::string> problems;
  const auto survey = ReadSurvey(world_.Cameras(), world_.Photos(), problems);
  std::vector<SurveyPhoto> photos;
  for (const auto& block : survey->blocks) {
    photos.insert(photos.end(), block.photos.begin(), block.photos.end());
  }
  tqimage::TqImage source;
  ASSERT_TRUE(source.Open(File("out/source.tif"), true));
  const tqimage::GeoCoefficients at = source.GetGeoCoefficients();
  const int cols = source.GetWidth(), rows = source.GetHeight();
  std::vector<std::uint16_t> cells(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows));
  ASSERT_TRUE(source.ReadImage(0, {0, 0, cols, rows}, tqimage::kUInt16, cells.data()));
  const auto number = [&](int row, int col) {
    return cells[static_cast<std::size_t>(row) * cols + col];
  };
  std::map<int, double> supplied;  // cells by photo
  double sides = 0;
  OGREnvelope shown;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const int here = number(row, col);
      if (here == 0) continue;
      supplied[here] += 1;
      const auto centre = at.Raster2World(col, row);
      shown.Merge(centre.x - 0.125, centre.y - 0.125);
      shown.Merge(centre.x + 0.125, centre.y + 0.125);
      for (const int other :
           {col + 1 < cols ? number(row, col + 1) : 0, row + 1 < rows ? number(row + 1, col) : 0}) {
        sides += other != 0 && here != other;
      }
    }
  }

  const auto file = tqtortho::testing::OpenVectors(File("out/seams.gpkg"));
  ASSERT_NE(file, nullptr);
  for (const char* name : {"regions", "seams", "footprints", "cameras"}) {
    const auto* crs = file->GetLayerByName(name)->GetSpatialRef();
    ASSERT_NE(crs, nullptr) << name;
    EXPECT_STREQ(crs->GetAuthorityCode(nullptr), "32633") << name;
  }
  double share = 0, length = 0;
  OGREnvelope regions;
  for (const auto& region : *file->GetLayerByName("regions")) {
    const int photo = region->GetFieldAsInteger("number");
    const OGRPolygon* polygon = region->GetGeometryRef()->toPolygon();
    EXPECT_NEAR(region->GetFieldAsDouble("area_m2"), polygon->get_Area(), 1e-6);
    supplied[photo] -= polygon->get_Area() / (0.25 * 0.25);
    share += region->GetFieldAsDouble("share_pct");
    OGREnvelope one;
    polygon->getEnvelope(&one);
    regions.Merge(one);
    EXPECT_EQ(region->GetFieldAsString("photo"), photos[static_cast<std::size_t>(photo - 1)].name);
  }
  for (const auto& [photo, left] : supplied) EXPECT_NEAR(left, 0, 1e-3) << photo;
  EXPECT_NEAR(std::abs(regions.MinX - shown.MinX) + std::abs(regions.MaxY - shown.MaxY), 0, 1e-6);
  EXPECT_NEAR(std::abs(regions.MaxX - shown.MaxX) + std::abs(regions.MinY - shown.MinY), 0, 1e-6);
  for (const auto& seam : *file->GetLayerByName("seams"))
    length += seam->GetFieldAsDouble("length_m");
  EXPECT_NEAR(share, 100, 1e-6);
  EXPECT_GT(length, 20);
  EXPECT_NEAR(length, sides * 0.25, 1e-6 * length);
  std::size_t next = 0;
  for (const auto& camera : *file->GetLayerByName("cameras")) {
    const auto& photo = photos[next++];
    EXPECT_EQ(camera->GetFieldAsString("photo"), photo.name);
    const OGRPoint* place = camera->GetGeometryRef()->toPoint();
    EXPECT_NEAR(
        std::hypot(place->getX() - photo.x, place->getY() - photo.y, place->getZ() - photo.z), 0,
        1e-6);
  }
  EXPECT_EQ(next, photos.size());
}

// A JPEG has a mask where the others have alpha. What the mosaic does not show is as empty in the
// report's layers and in the preview.
TEST_F(ProductsTest, WhoeverReadsTheMosaicGoesByMaskOrAlpha) {
  Run("plain", [](RunOptions&) {});
  Run("jpeg", [](RunOptions& options) { options.format.compression = "jpeg"; });
  const std::vector<std::uint8_t> plain = Shown(File("plain")), jpeg = Shown(File("jpeg"));
  ASSERT_GT(std::count(plain.begin(), plain.end(), 255), 1000);
  ASSERT_GT(std::count(plain.begin(), plain.end(), 0), 500);
  EXPECT_EQ(jpeg, plain);
  for (const char* out : {"plain", "jpeg"}) {
    geo::RasterSummary preview;
    std::string error;
    ASSERT_TRUE(geo::DescribeRaster(File(out) + "/preview.png", preview, error)) << error;
    const auto cols = static_cast<double>(preview.width),
               rows = static_cast<double>(preview.height);
    std::vector<std::uint8_t> alpha;
    ASSERT_TRUE(geo::ReadScaled(File(out) + "/preview.png", 4,
                                {0, 0, cols, rows, preview.width, preview.height},
                                geo::Scaling::kNearest, alpha));
    EXPECT_EQ(alpha, plain) << out;
  }
}

// Orthos, as rectified and as filled: named ".tif" too, 0 is no data, and masks say what they hold.
TEST_F(ProductsTest, OrthosOpenByTheirNameAndSayWhatIsNoData) {
  std::size_t aliases = 0;
  for (const Finish finish : {Finish::kNone, Finish::kFill, Finish::kTexture}) {
    const RunReport report = Run("o", [&](RunOptions& options) { options.finish = finish; });
    for (const PhotoOutcome& photo : report.photos) {
      const auto names = NamesOfOrtho(photo.orthoPath);
      aliases += names.size();
      const std::string named = names.empty() ? photo.orthoPath : names[0];
      EXPECT_TRUE(fs::equivalent(named, photo.orthoPath)) << named;
      tqimage::TqImage ortho;
      ASSERT_TRUE(ortho.Open(named, true));
      for (int band = 0; band < 3; ++band) {
        EXPECT_TRUE(ortho.HasNoDataValue(band));
        EXPECT_EQ(ortho.GetNoDataValue(band), 0);
      }
      const std::string stem = named.substr(0, named.size() - 4);
      for (const char* mask : {".msk", ".msk.tif"}) {
        const std::string text = ReadText(stem + mask);
        const bool owns = finish == Finish::kTexture && std::string(mask) == ".msk";
        EXPECT_THAT(text, HasSubstr(owns ? "the photo owns this cell" : "as rectified has data"));
      }
    }
  }
  EXPECT_GT(aliases, 0U);
}

// The default finish gives hidden cells the mosaic's colour and leaves the photo's own alone.
TEST_F(ProductsTest, FilledOrthosKeepEveryCellThatTheirPhotoSees) {
  const auto none = Run("none", [](RunOptions& options) { options.finish = Finish::kNone; });
  const auto fill = Run("fill", [](RunOptions& options) { options.fill = HoleFilling::kAll; });
  int filled = 0;
  for (std::size_t k = 0; k < fill.photos.size(); ++k) {
    tqorkit::PhotoInfo own, other, mask;
    const std::string& path = fill.photos[k].orthoPath;
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(path, own, nullptr));
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(none.photos[k].orthoPath, other, nullptr));
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(path + "_obs.tif", mask, nullptr));
    ASSERT_EQ(own.data.size(), other.data.size());
    int changed = 0;
    for (std::size_t i = 0; i < own.data.size(); ++i) {
      const std::uint8_t* before = &other.data[i / 3 * 3];
      const bool isEmpty = before[0] <= 1 && before[1] <= 1 && before[2] <= 1;  // a hole
      if (own.data[i] == other.data[i] || isEmpty) continue;
      ++changed;
      ASSERT_EQ(mask.data[i / 3], 255) << i;
    }
    filled += changed;
  }
  EXPECT_GT(filled, 1000);
}

TEST(NameOrthosTest, PhotosOfOneStemGetNamesOfTheirOwn) {
  const tqtortho::testing::TempDir dir;
  std::vector<std::string> paths, names;
  for (const char* name : {"a_0.jpg", "a_0.png", "b_0.TIF"}) paths.push_back(dir.Write(name, name));
  ASSERT_TRUE(NameOrthosForPeople(paths, names));
  EXPECT_THAT(names, UnorderedElementsAre(dir.File("a_0.tif"), dir.File("a_0.png.tif"), paths[2]));
  EXPECT_EQ(ReadText(dir.File("a_0.tif")), "a_0.jpg");
  EXPECT_EQ(ReadText(dir.File("a_0.png.tif")), "a_0.png");
}

// What people pass on tells nobody where it lay.
TEST_F(ProductsTest, NoProductNamesADirectoryUnlessAskedTo) {
  for (const bool full : {false, true}) {
    Run("p", [&](RunOptions& options) {
      options.fullPaths = full;
      options.webTiles = true;
    });
    int files = 0;
    for (fs::recursive_directory_iterator it(File("p")), end; it != end; ++it) {
      if (it->path().filename() == "work") it.disable_recursion_pending();
      if (!it->is_regular_file()) continue;
      ++files;
      const bool report = it->path().filename() == "report.html";
      EXPECT_EQ(ReadText(it->path()).find("customer_of_may") != std::string::npos, full && report)
          << it->path();
    }
    EXPECT_GT(files, 40);
  }
}

}  // namespace
}  // namespace tqtortho::host
