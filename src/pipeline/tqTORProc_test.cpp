// SPDX-License-Identifier: Apache-2.0
#include "tqtortho/tqTORProc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>

#include "pipeline/job_lattice.h"
#include "pipeline/param_file.h"
#include "rectify/sidecar.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "testing/log_capture.h"
#include "testing/threads.h"
#include "testing/tiny_job.h"
#include "tqfd/StringConverter.h"
#include "tqorkit/tqBinaryData.h"
#include "tqraster/tqRasterTorMsk.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::Threads;
using testing::TinyJob;

struct Calls {
  std::vector<double> rectifying;  // percents of the block dispatch
  std::string stopAt;              // message whose first call is answered 0
  static int Callback(double percent, const char* message, void* user) {
    auto& calls = *static_cast<Calls*>(user);
    if (message == ToGbk(message::kRectifying)) calls.rectifying.push_back(percent);
    return message == calls.stopAt ? 0 : 1;
  }
};

class Job : public tqTORProc {
 public:
  using tqTORProc::OrthoRectiProc;
  using tqTORProc::photoBlocks;

  bool Run(const TinyJob& files, double gsd, Calls* calls, bool flagA = false, bool flagB = false) {
    double pair[2] = {gsd, 0};
    return TrueOrthoPhotoProc(files.Dsm().c_str(), files.Cameras().c_str(), files.Photos().c_str(),
                              pair, files.Out().c_str(), nullptr, 1, flagA, flagB,
                              calls != nullptr ? Calls::Callback : nullptr, calls);
  }
};

std::vector<ParamBlock> BlocksOfFile() {
  std::ifstream in(ParamFilePath());
  ParamFileReader reader(in);
  ParamHeader header;
  std::vector<ParamBlock> blocks;
  if (!reader.ReadHeader(header)) return blocks;
  for (int k = 1; reader.FindBlock(k); ++k) reader.ReadBlock(blocks.emplace_back());
  return blocks;
}

void FourPhotos(TinyJob& files) {
  files.AddPhoto("a.tif", 13.1, 10.2);
  files.AddPhoto("b.tif", 19.7, 13.3);
  files.AddPhoto("c.tif", 26.4, 18.8);
  files.AddPhoto("d.tif", 37.9, 12.6);  // reaches 10 units beyond the DSM
}

// Bytes of every file under a directory, by relative name.
std::map<std::string, std::string> FilesUnder(const std::string& directory) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    files[entry.path().lexically_relative(directory)] = testing::ReadText(entry.path());
  }
  return files;
}

TEST(TqTORProcTest, MakingAJobSetsTwentyDigitsOnStandardOutput) {
  const auto before = std::cout.precision(6);
  const Job job;
  EXPECT_EQ(std::cout.precision(before), 20);
}

TEST(TqTORProcTest, FootprintsAreThoseOfTheSidecarsAndLieOnOneLattice) {
  TinyJob files;
  FourPhotos(files);
  const testing::LogCapture log;
  Job job;
  const double gsd = 0.25;
  ASSERT_TRUE(job.Run(files, gsd, nullptr));
  const double transform[] = {TinyJob::kX0, TinyJob::kCell, 0, TinyJob::kY0, 0, -TinyJob::kCell};
  const JobLattice lattice({transform, TinyJob::kCols, TinyJob::kRows}, gsd);
  std::map<std::string, tqfd::Rect2_T<double>> inFile;
  for (const ParamBlock& block : BlocksOfFile()) {
    for (const auto& photo : block.photos) inFile[photo.photoName] = photo.geoRect;
  }
  ASSERT_EQ(job.photoBlocks.size(), 1U);
  for (const auto& photo : job.photoBlocks[0].GetPhotos()) {
    SCOPED_TRACE(photo.GetPhotoName());
    Sidecar s;
    ASSERT_TRUE(ReadSidecar(OrthoSidecarName(OrthoName(files.Out(), photo.GetPhotoName(), 0)), s));
    EXPECT_GT(s.rows, 60);
    EXPECT_EQ(s.a, gsd);
    EXPECT_EQ(s.e, -gsd);
    const auto& rect = photo.GetGeoRect();
    EXPECT_DOUBLE_EQ(rect.minX, s.c + 0.5 * s.a);
    EXPECT_DOUBLE_EQ(rect.maxY, s.f + 0.5 * s.e);
    EXPECT_NEAR(rect.maxX, rect.minX + (s.cols - 1) * gsd, 1e-9);
    EXPECT_NEAR(rect.minY, rect.maxY - (s.rows - 1) * gsd, 1e-9);
    EXPECT_NEAR(inFile.at(photo.GetPhotoName()).minY, rect.minY, 1e-6);

    const double columns = (rect.minX - lattice.AnchorX()) / gsd;
    const double rows = (rect.maxY - lattice.Hair() - lattice.AnchorY()) / gsd;
    EXPECT_NEAR(columns, std::round(columns), 1e-5);
    EXPECT_NEAR(rows, std::round(rows), 1e-5) << "a hair above the lattice, all photos alike";
  }
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_THAT(log.lines[0], HasSubstr(ToGbk(message::kRectifySeconds)));
  EXPECT_THAT(log.lines[0], HasSubstr("\n" + ToGbk(message::kUpdateSeconds) + "0\n"));
}

TEST(TqTORProcTest, APhotoThatFailsHasAFootprintOfZerosAndTheJobSucceeds) {
  TinyJob files;
  files.AddPhoto("a.tif", 13, 10);
  files.AddPose("missing.tif", 20, 15, 0, 0, 0);
  files.AddPhoto("stranger.tif", 20, 15, 77);
  // What an earlier job left must not pass for a result of this one.
  const std::string stale = OrthoSidecarName(OrthoName(files.Out(), "stranger.tif", 0));
  ASSERT_TRUE(WriteSidecar(stale, {1, 0, 0, -1, 5, 5, 10, 10}, SidecarLines::kEight));
  Job job;
  ASSERT_TRUE(job.Run(files, 0.5, nullptr));
  const auto& photos = job.photoBlocks.at(0).GetPhotos();
  EXPECT_GT(photos[0].GetGeoRect().minX, TinyJob::kX0 - 1);
  EXPECT_EQ(photos[1].GetGeoRect(), (tqfd::Rect2_T<double>{0, 0, 0, 0}));
  EXPECT_EQ(photos[2].GetGeoRect(), (tqfd::Rect2_T<double>{0, 0, 0, 0}));
}

TEST(TqTORProcTest, FailuresLogTheirStageAndNoTimes) {
  TinyJob files;
  FourPhotos(files);
  const struct {
    const char* what;
    std::string_view stopAt;
    bool blockParamFile;
    std::string_view text;
  } cases[] = {{"stop in the estimation", message::kEstimating, false, message::kExtentError},
               {"no parameter file", "", true, message::kParamFileError},
               {"stop in the dispatch", message::kRectifying, false, message::kRectifyError}};
  for (const auto& c : cases) {
    std::filesystem::remove_all(files.dir.File("data"));
    if (c.blockParamFile) files.dir.Write("data", "a file where the directory should be");
    const testing::LogCapture log;
    Calls calls;
    calls.stopAt = ToGbk(c.stopAt);
    Job job;
    EXPECT_FALSE(job.Run(files, 0.5, &calls)) << c.what;
    EXPECT_THAT(log.lines, ElementsAre(ToGbk(c.text))) << c.what;
    EXPECT_EQ(job.photoBlocks.size(), 1U) << "what was read stays";
  }
  std::filesystem::remove_all(files.dir.File("data"));
}

TEST(TqTORProcTest, UnreadableInputsFailInTheEstimation) {
  const TinyJob files;  // no photo list
  const testing::LogCapture log;
  Job job;
  EXPECT_FALSE(job.Run(files, 0.5, nullptr));
  EXPECT_EQ(log.lines.back(), ToGbk(message::kExtentError));
  EXPECT_FALSE(job.OrthoRectiProc(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, false,
                                  false, nullptr, nullptr));
}

TEST(TqTORProcTest, AMosaicMaskMakerDecidesTheLastStage) {
  TinyJob files;
  files.AddPhoto("a.tif", 13, 10);
  for (const bool answer : {true, false}) {
    std::size_t seen = 0;
    TqRaster::tqRasterTorMsk::SetMaker(
        [&](std::vector<tqorkit::tqPhotoCategory>& blocks, tqfd::ProgressCallback, void*) {
          seen = blocks.size();
          return answer;
        });
    Job job;
    EXPECT_EQ(job.Run(files, 0.5, nullptr), answer);
    EXPECT_EQ(seen, 1U);
  }
  TqRaster::tqRasterTorMsk::SetMaker(nullptr);
}

// Two photos side by side: every cell that one of them shows unhidden goes to the nearer one.
TEST(TqTORProcTest, TheJobsOwnMapGivesEachCellToTheNearestPhotoThatShowsIt) {
  TinyJob files;
  files.AddPhoto("west.tif", 13, 12);
  files.AddPhoto("east.tif", 22, 12);
  Job job;
  ASSERT_TRUE(job.Run(files, 0.5, nullptr));
  tqorkit::tqBinaryData map;
  ASSERT_TRUE(map.Open(tqfd::StringConverter::Convert(PixMapPath())));
  std::vector<std::uint16_t> cells(static_cast<std::size_t>(map.GetWidth()) * map.GetHeight());
  ASSERT_TRUE(map.ReadBlkData(0, 0, map.GetWidth(), map.GetHeight(), cells.data()));
  const auto at = map.GetGeoCoefficients();
  int counts[3] = {};
  for (int row = 0; row < map.GetHeight(); ++row) {
    for (int col = 0; col < map.GetWidth(); ++col) {
      const int number = cells[static_cast<std::size_t>(row) * map.GetWidth() + col];
      ASSERT_LE(number, 2);
      ++counts[number];
      const double east = at.Raster2World(col, row).x - TinyJob::kX0;
      // Level ground hides nothing; where both photos show it the middle between them decides.
      EXPECT_TRUE(number != 1 || east <= 17.5 + 0.01) << row << " " << col;
      EXPECT_TRUE(number != 2 || east >= 17.5 - 0.01) << row << " " << col;
    }
  }
  EXPECT_GT(counts[1], 500);
  EXPECT_GT(counts[2], 500);
}

// --- Dispatch ------------------------------------------------------------------------------------

bool Dispatch(int blockCount, Calls* calls) {
  tqTORectify rectify;
  return rectify.ShellOrthoRectify(nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
                                   blockCount, false, false,
                                   calls != nullptr ? Calls::Callback : nullptr, calls);
}

// A job's parameter file as it stands before the dispatch, cut for two threads.
void WriteParams(const TinyJob& files) {
  const Threads two(2);
  Calls stop;
  stop.stopAt = ToGbk(message::kRectifying);
  Job job;
  EXPECT_FALSE(job.Run(files, 0.25, &stop));
}

TEST(ShellOrthoRectifyTest, EveryBlockCountsAlsoOnesThatAreMissing) {
  const TinyJob noFile;
  Calls calls;
  EXPECT_TRUE(Dispatch(4, &calls));
  EXPECT_THAT(calls.rectifying, ElementsAre(25, 50, 75, 100));
  EXPECT_TRUE(Dispatch(4, nullptr));
  for (const int none : {0, -3}) {
    Calls noCalls;
    EXPECT_TRUE(Dispatch(none, &noCalls));
    EXPECT_THAT(noCalls.rectifying, IsEmpty());
  }
}

TEST(ShellOrthoRectifyTest, AStopEndsEveryThreadAfterItsBlock) {
  const TinyJob noFile;
  Calls calls;
  calls.stopAt = ToGbk(message::kRectifying);
  const Threads two(2);
  EXPECT_FALSE(Dispatch(1000, &calls));
  EXPECT_LT(calls.rectifying.size(), 1000U);
  EXPECT_GE(calls.rectifying.size(), 1U);
}

TEST(ShellOrthoRectifyTest, BytesDoNotDependOnTheThreadsForOneParameterFile) {
  TinyJob files;
  FourPhotos(files);
  files.WriteDsm([](int row, int col) { return row > 20 && row < 30 && col > 30 ? 8.0F : 0.0F; });
  WriteParams(files);
  ASSERT_EQ(BlocksOfFile().size(), 2U);
  std::map<std::string, std::string> first;
  for (const int count : {1, 2, 5}) {
    std::filesystem::remove_all(files.Out());
    std::filesystem::create_directories(files.Out());
    const Threads threads(count);
    Calls calls;
    EXPECT_TRUE(Dispatch(2, &calls));
    const auto written = FilesUnder(files.Out());
    EXPECT_GE(written.size(), 16U);  // four photos: ortho, sidecar, masks ...
    if (first.empty()) first = written;
    EXPECT_EQ(written, first) << count << " threads";
  }
}

TEST(BlockOrTest, FailsOnlyWithoutFileScaleOrBlock) {
  TinyJob files;
  files.AddPhoto("a.tif", 13, 10);
  WriteParams(files);
  tqTORectify rectify;
  EXPECT_FALSE(rectify.BlockOR(files.dir.File("none").c_str(), 1));
  for (const int block : {0, 2}) EXPECT_FALSE(rectify.BlockOR(ParamFilePath().c_str(), block));
  EXPECT_FALSE(rectify.BlockOR(nullptr, 1));
  EXPECT_TRUE(rectify.BlockOR(ParamFilePath().c_str(), 1));
  EXPECT_TRUE(std::filesystem::exists(OrthoSidecarName(OrthoName(files.Out(), "a.tif", 0))));
  std::filesystem::remove(files.Dsm());
  EXPECT_TRUE(rectify.BlockOR(ParamFilePath().c_str(), 1)) << "failed photos are no failed block";
  const std::string badScale = files.dir.Write("bad.txt", "0\n0.5\n0\n0\n0\t0\nd\no\nblock1\n");
  EXPECT_FALSE(rectify.BlockOR(badScale.c_str(), 1));
}

}  // namespace
}  // namespace tqtortho
