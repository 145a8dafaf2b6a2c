// SPDX-License-Identifier: Apache-2.0
// The products of whole jobs, as somebody to whom they are passed on opens them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "geo/RasterTools.h"
#include "geo/ScaledRead.h"
#include "report/report_layers.h"
#include "run/run_job.h"
#include "stage/ortho_names.h"
#include "survey/survey_reader.h"
#include "testing/temp_dir.h"
#include "town/sample_town.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

class Silent : public RunObserver {
 public:
  void BeginStage(const std::string&) override {}
  void Progress(double) override {}
  void EndStage(double) override {}
  void Warn(const std::string&) override {}
  bool StopRequested() override { return false; }
};

/// A town of 30 m below a directory of a telling name, and jobs on it.
class ProductsTest : public ::testing::Test {
 protected:
  ProductsTest() {
    SampleOptions sample;
    sample.outDir = File("town");
    sample.sizeM = 30;
    sample.photoCount = 3;
    sample.photoGsdM = 0.2;
    sample.truthCellM = 0.5;
    std::string error;
    EXPECT_TRUE(WriteSampleTown(sample, error, {})) << error;
  }
  [[nodiscard]] std::string File(const std::string& name) const {
    return dir_.File("customer_of_may/" + name);
  }
  RunReport Run(const std::string& out, const std::function<void(RunOptions&)>& with) const {
    std::vector<std::string> problems;
    auto survey = ReadSurvey(File("town/cameras.txt"), File("town/photos.txt"), problems);
    RunOptions options;
    options.dsmPath = File("town/dsm.tif");
    options.outDir = File(out);
    options.gsd = 0.2;
    with(options);
    Silent silent;
    RunReport report;
    std::string error;
    EXPECT_EQ(RunJob(*survey, options, silent, report, error), RunStatus::kDone) << error;
    return report;
  }
  static ReportLayers Layers(const std::string& out) {
    return MakeReportLayers(
        {out + "/mosaic.tif", out + "/source.tif", out + "/quality.tif", out + "/work/dsm.tif"}, {},
        0.2);
  }

  TempDir dir_;
};

// A JPEG has a mask where the others have alpha. What the mosaic does not show is as empty in the
// report's layers and in the preview.
TEST_F(ProductsTest, WhoeverReadsTheMosaicGoesByMaskOrAlpha) {
  Run("plain", [](RunOptions&) {});
  Run("jpeg", [](RunOptions& options) { options.format.compression = "jpeg"; });
  const std::vector<std::uint8_t> plain = Layers(File("plain")).alpha;
  const std::vector<std::uint8_t> jpeg = Layers(File("jpeg")).alpha;
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
  for (const Finish finish : {Finish::kNone, Finish::kFill}) {
    const RunReport report = Run("o", [&](RunOptions& options) { options.finish = finish; });
    for (const PhotoOutcome& photo : report.photos) {
      const std::string named = NamesOfOrtho(photo.orthoPath).at(0);
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
        const bool owns = finish == Finish::kFill && std::string(mask) == ".msk";
        EXPECT_THAT(text, HasSubstr(owns ? "the photo owns this cell" : "as rectified has data"));
      }
    }
  }
}

TEST_F(ProductsTest, PhotosOfOneStemGetNamesOfTheirOwn) {
  for (const char* name : {"a_0.jpg", "a_0.png", "b_0.TIF"}) dir_.Write(name, name);
  std::vector<std::string> names;
  ASSERT_TRUE(NameOrthosForPeople(
      {dir_.File("a_0.jpg"), dir_.File("a_0.png"), dir_.File("b_0.TIF")}, names));
  EXPECT_THAT(names, UnorderedElementsAre(dir_.File("a_0.tif"), dir_.File("a_0.png.tif"),
                                          dir_.File("b_0.TIF")));
  EXPECT_EQ(ReadText(dir_.File("a_0.tif")), "a_0.jpg");
  EXPECT_EQ(ReadText(dir_.File("a_0.png.tif")), "a_0.png");
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
    EXPECT_GT(files, 20);
  }
}

}  // namespace
}  // namespace tqtortho::host
