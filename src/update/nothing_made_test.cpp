// SPDX-License-Identifier: Apache-2.0
//
// What each public operation answers, and what the log says, when nothing could be made. Rows whose
// answer is true are those whose callers rely on it; all others must not pass for a success.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "stage/messages.h"
#include "stage/photo_files.h"
#include "testing/log_capture.h"
#include "testing/tiny_job.h"
#include "tqfd/StringConverter.h"
#include "tqtortho/tqTORProc.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::TinyJob;

/// One job with one good photo, and what a row breaks of it.
struct Bench {
  TinyJob files;
  std::string dsm = files.Dsm(), cameras = files.Cameras(), photos = files.Photos();
  std::string out = files.Out();
  double gsd = 0.5;
  bool sizing = false;
  tqTORProc job;

  Bench() { files.AddPhoto("a.tif", 13, 10); }
  [[nodiscard]] std::string Photo() const { return files.dir.File("photos") + "/a.tif"; }
  bool Run() {
    double pair[2] = {gsd, 0};
    return job.TrueOrthoPhotoProc(dsm.c_str(), cameras.c_str(), photos.c_str(), pair, out.c_str(),
                                  nullptr, 1, false, sizing, nullptr, nullptr);
  }
  void WriteBytes(const std::string& path, int dataType, int bands) const {
    tqimage::TqImage image;
    ASSERT_TRUE(image.Create(path, 96, 72, bands, dataType, tqimage::kGeoTiff, true));
    ASSERT_TRUE(image.Close());
  }
};

struct Row {
  const char* operation;
  const char* badInput;
  bool answer;
  std::string_view says;  ///< in the log; empty: the log stays empty
  std::function<bool(Bench&)> run;
};

const Row kRows[] = {
    {"TrueOrthoPhotoProc", "photo folder relative to another directory", false,
     message::kPhotoUnreadable,
     [](Bench& b) {
       b.files.dir.Write("photos.txt", "1\n1\nelsewhere\na.tif 352358 5412335 40 0 0 0 1\n");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "the same, sizing run", false, message::kPhotoUnreadable,
     [](Bench& b) {
       b.sizing = true;
       b.files.dir.Write("photos.txt", "1\n1\nelsewhere\na.tif 352358 5412335 40 0 0 0 1\n");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "photo that is no picture", false, message::kPhotoUnreadable,
     [](Bench& b) {
       b.files.dir.Write("photos/a.tif", "text");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "photo of 16 bits", false, message::kPhotoNotBytes,
     [](Bench& b) {
       b.WriteBytes(b.Photo(), tqimage::kUInt16, 3);
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "output below a file", false, message::kOutputUnwritable,
     [](Bench& b) {
       b.out = b.files.Dsm() + "/out/";
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "no photo list", false, message::kNoPhotos,
     [](Bench& b) {
       b.photos = b.files.dir.File("none");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "no camera list", false, message::kNoFootprint,
     [](Bench& b) {
       b.cameras = b.files.dir.File("none");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "no surface model", false, message::kDsmUnreadable,
     [](Bench& b) {
       b.dsm = b.files.dir.File("none");
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "negative cell size", false, message::kDsmUnplaced,
     [](Bench& b) {
       b.gsd = -1;
       return b.Run();
     }},
    {"TrueOrthoPhotoProc", "one photo of two missing", true, message::kPhotoUnreadable,
     [](Bench& b) {
       b.files.AddPose("missing.tif", 14, 11, 0, 0, 0);
       return b.Run();
     }},
    {"GennerateFillTexture", "prefix without orthos", false, message::kNoOrthoReadable,
     [](Bench& b) { return b.Run() && b.job.GennerateFillTexture(b.out + "x", nullptr, nullptr); }},
    {"UpdateOrthoImagesEx", "prefix without orthos", false, message::kNoOrthoReadable,
     [](Bench& b) {
       return b.Run() && b.job.GennerateFillTexture(b.out, nullptr, nullptr) &&
              b.job.UpdateOrthoImagesEx("", b.out + "x", nullptr, nullptr);
     }},
    {"UpdateOrthoImagesEx", "no texture", false, message::kTextureError,
     [](Bench& b) { return b.Run() && b.job.UpdateOrthoImagesEx("", b.out, nullptr, nullptr); }},
    {"UpdateOrthoImages", "no texture", false, message::kTextureError,
     [](Bench& b) { return b.Run() && b.job.UpdateOrthoImages("", b.out, nullptr, nullptr); }},
    {"UpdateOrthoImages", "prefix without orthos", true, message::kNoOrthoReadable,
     [](Bench& b) {
       return b.Run() && b.job.GennerateFillTexture(b.out, nullptr, nullptr) &&
              b.job.UpdateOrthoImages("", b.out + "x", nullptr, nullptr);
     }},
    {"UpdateOrthoImagesMarkOcc", "prefix without orthos", true, message::kRectifySeconds,
     [](Bench& b) {
       return b.Run() && b.job.UpdateOrthoImagesMarkOcc("", b.out + "x", nullptr, nullptr);
     }},
    {"UpdateOrthoImages", "job that never ran", false, "",
     [](Bench& b) { return b.job.UpdateOrthoImages("", b.out, nullptr, nullptr); }},
    {"BlockOR", "block that is not in the file", false, message::kRectifySeconds,
     [](Bench& b) { return b.Run() && tqTORectify().BlockOR(ParamFilePath().c_str(), 9); }},
    {"BlockOR", "no parameter file", false, "",
     [](Bench&) { return tqTORectify().BlockOR(ParamFilePath().c_str(), 1); }},
    {"ShellOrthoRectify", "no parameter file", true, "",
     [](Bench&) {
       return tqTORectify().ShellOrthoRectify(nullptr, nullptr, nullptr, nullptr, nullptr, 1,
                                              nullptr, 2, false, false, nullptr, nullptr);
     }},
};

TEST(NothingMadeTest, NoOperationSucceedsInSilenceWhereItsCallersLeaveThatOpen) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.operation) + ": " + row.badInput);
    Bench bench;
    const testing::LogCapture log;
    EXPECT_EQ(row.run(bench), row.answer);
    std::string text;
    for (const auto& line : log.lines) text += tqfd::StringConverter::GbkToUtf8(line) + "\n";
    if (row.says.empty()) {
      EXPECT_EQ(text, "");
    } else {
      EXPECT_THAT(text, HasSubstr(std::string(row.says)));
    }
  }
}

// A relative folder is looked up from the working directory: the log must show where that was.
TEST(NothingMadeTest, TheLogNamesTheWholePathOfAPhotoThatIsNotThere) {
  Bench bench;
  bench.files.dir.Write("photos.txt", "1\n1\nelsewhere\na.tif 352358 5412335 40 0 0 0 1\n");
  const testing::LogCapture log;
  EXPECT_FALSE(bench.Run());
  ASSERT_GE(log.lines.size(), 2U);
  const std::string path = (fs::current_path() / "elsewhere/a.tif").string();
  EXPECT_EQ(log.lines[log.lines.size() - 2], ToGbk(message::kPhotoUnreadable) + path);
  EXPECT_EQ(log.lines.back(), ToGbk(message::kNothingMade));
  EXPECT_TRUE(fs::is_empty(bench.out)) << "and really nothing was made";
}

}  // namespace
}  // namespace tqtortho
