// SPDX-License-Identifier: Apache-2.0
#include "report/report_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "report/report_text.h"
#include "testing/raster_file.h"
#include "testing/tiny_job.h"

namespace tqtortho::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using tqtortho::testing::ReadText;
using tqtortho::testing::TinyJob;

TEST(ReportTextTest, Base64OfTheStandardsOwnExamplesAndAcrossPieces) {
  const auto coded = [](const std::string& plain) {
    std::ostringstream out;
    WriteBase64(out, plain);
    return out.str();
  };
  EXPECT_EQ(coded("") + coded("f") + " " + coded("fo") + " " + coded("foo"), "Zg== Zm8= Zm9v");
  EXPECT_EQ(coded("foobar"), "Zm9vYmFy");
  EXPECT_EQ(coded(std::string(100'000, '\xFF')), std::string(133'332, '/') + "/w==");
}

TEST(ReportTextTest, NoNameEndsTheScriptAndTheJsonStaysTheSame) {
  const nlohmann::json data = {
      {"name", "</script><b>&amp;\"\\ \xE2\x80\xA8 \xE2\x80\xA9 \xE2\x82\xAC"}};
  const std::string text = JsonForScript(data.dump());
  EXPECT_THAT(text, Not(HasSubstr("<")));
  EXPECT_THAT(text, Not(HasSubstr("\xE2\x80\xA8")));
  EXPECT_EQ(nlohmann::json::parse(text), data);
  EXPECT_EQ(HtmlText("a<b>\"&"), "a&lt;b&gt;&quot;&amp;");
}

/// A job whose files are written one by one.
class ReportPageTest : public ::testing::Test {
 protected:
  ReportPageTest() {
    tqorkit::tqPhotoCategory block;
    block.SetBlkPath(job_.dir.File("photos"));
    tqorkit::tqIntOri camera;
    tqorkit::tqIntOri::INTORI numbers;
    numbers.cameraId = 1;
    numbers.imageWidth = 96;
    numbers.imageHeight = 72;
    numbers.focalLength = 160;
    numbers.pixelSize = 1;
    camera.Set(numbers);
    input_.cameras[1] = camera;
    for (const char* name : {"a.tif", "</script>.tif"}) {
      tqorkit::tqExtOri::EXTORI pose;
      pose.photoName = name;
      pose.position[0] = TinyJob::kX0 + 12;
      pose.position[1] = TinyJob::kY0 - 10;
      pose.position[2] = TinyJob::kFlight;
      pose.cameraId = 1;
      tqorkit::tqExtOri photo;
      photo.Set(pose);
      block.InsertPhoto(photo);
      PhotoOutcome outcome;
      outcome.name = name;
      outcome.done = run_.photos.empty();
      outcome.reason = outcome.done ? "" : "cut \xFF off";
      run_.photos.push_back(outcome);
    }
    job_.AddPhoto("a.tif", 12, 10);
    block.GetPhotos()[0].SetGeoRect(
        {TinyJob::kX0, TinyJob::kY0 - 19, TinyJob::kX0 + 24, TinyJob::kY0 - 1});
    input_.blocks.push_back(block);
    run_.gsd = 0.5;
  }
  /// The page's data; the page's text goes to page_.
  nlohmann::json Write() {
    const ReportInput input{run_,
                            input_,
                            job_.dir.File("out"),
                            job_.dir.File("."),
                            "Village <north>",
                            {{"--gsd", "0.5"}},
                            {},
                            {}};
    std::string error;
    const std::string path = job_.dir.File("out/report.html");
    EXPECT_TRUE(WriteReportPage(input, path, error)) << error;
    page_ = ReadText(path);
    const std::string open = "id=\"report-data\">";
    const std::size_t from = page_.find(open) + open.size();
    return nlohmann::json::parse(page_.substr(from, page_.find("</script>", from) - from));
  }

  TinyJob job_;
  MosaicInput input_;
  RunReport run_;
  std::string page_;
};

TEST_F(ReportPageTest, WithoutAMosaicTheSurfaceAndTheNaiveMosaicAreShown) {
  const nlohmann::json data = Write();
  EXPECT_THAT(page_, HasSubstr("<title>Village &lt;north&gt;</title>"));
  for (const char* layer : {"naive", "nearest", "relief", "frames"}) {
    EXPECT_THAT(page_, HasSubstr(std::string("id=\"layer-") + layer + "\""));
  }
  for (const char* layer : {"mosaic", "source", "quality", "hidden"}) {
    EXPECT_THAT(page_, Not(HasSubstr(std::string("id=\"layer-") + layer + "\"")));
  }
  ASSERT_EQ(data["photos"].size(), 2U);
  EXPECT_EQ(data["photos"][1]["name"], "</script>.tif");
  EXPECT_EQ(data["photos"][1]["reason"], "cut \xEF\xBF\xBD off");
  EXPECT_FALSE(data["photos"][1].contains("frame"));
  // The frame of 96 x 72 pixels from 40 units at 160 pixels: 24 x 18 units around the camera.
  const double x = TinyJob::kX0 + 12, y = TinyJob::kY0 - 10;
  EXPECT_EQ(data["photos"][0]["frame"],
            nlohmann::json({{x - 12, y + 9}, {x + 12, y + 9}, {x + 12, y - 9}, {x - 12, y - 9}}));
  EXPECT_EQ(data["grid"]["cols"], 48);
  EXPECT_EQ(data["grid"]["rows"], 36);
  for (const char* forbidden : {"http-equiv=\"refresh", "src=\"http", "url(http", "@import"}) {
    EXPECT_THAT(page_, Not(HasSubstr(forbidden)));
  }
}

TEST_F(ReportPageTest, WithoutAnyRasterThePageStillComes) {
  std::filesystem::remove(job_.Dsm());
  const nlohmann::json data = Write();
  EXPECT_EQ(data["photos"].size(), 2U);
  EXPECT_THAT(page_, Not(HasSubstr("id=\"layer-")));
}

TEST_F(ReportPageTest, SuppliedSharesAndSeamsFollowTheSourceRaster) {
  std::vector<std::uint16_t> numbers(40 * 20);
  for (int i = 0; i < 800; ++i) numbers[static_cast<std::size_t>(i)] = i % 40 < 10 ? 1 : 2;
  ASSERT_TRUE(tqtortho::testing::WriteRaster(
      job_.dir.File("out/source.tif"), tqimage::kUInt16, numbers.data(), 40, 20,
      {TinyJob::kX0 + 0.25, TinyJob::kY0 - 0.25, 0.5, ""}, nullptr));
  nlohmann::json data = Write();
  EXPECT_EQ(data["photos"][0]["supplied"], 0.25);
  EXPECT_EQ(data["photos"][1]["supplied"], 0.75);
  EXPECT_EQ(data["seams"], nlohmann::json({{10, 0, 10, 20}}));
  run_.mosaic.supplied = {100, 30, 10};  // counted at full size, where there is a count
  data = Write();
  EXPECT_EQ(data["photos"][0]["supplied"], 0.75);
}

TEST_F(ReportPageTest, APageThatCannotBeWrittenIsNamed) {
  const ReportInput input{run_, input_, job_.dir.File("out"), job_.dir.File("."), "", {}, {}, {}};
  std::string error;
  EXPECT_FALSE(WriteReportPage(input, job_.dir.File("none/report.html"), error));
  EXPECT_THAT(error, HasSubstr("none/report.html: cannot be written"));
}

}  // namespace
}  // namespace tqtortho::host
