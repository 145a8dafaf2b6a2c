// SPDX-License-Identifier: Apache-2.0
#include "pipeline/param_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iomanip>
#include <random>
#include <sstream>

#include "stage/messages.h"
#include "testing/comma_locale.h"
#include "testing/log_capture.h"
#include "testing/photo_records.h"
#include "testing/test_peer.h"
#include "testing/threads.h"

namespace tqtortho {
namespace {

using ::testing::ElementsAre;

struct Job {
  ParamHeader header;
  std::map<int, tqorkit::tqIntOri> cameras;
  std::vector<tqorkit::tqPhotoCategory> blocks;
};

void AddCamera(Job& job, int id) {
  tqorkit::tqIntOri::INTORI record;
  record.cameraId = id;
  record.name = "not carried";
  record.imageWidth = 6000;
  record.imageHeight = 4000;
  record.focalLength = 35.123456789;
  record.pixelSize = 0.0039;
  record.offsetX = -0.0123456;
  record.offsetY = 0.0654321;
  record.distortionModel = id % 4;
  for (int i = 0; i < 8; ++i) record.coefficients[i] = (i + id) * 1.23456789e-9;
  job.cameras[id].Set(record);
}

// A block of photos with the given camera ids, named p<block>_<index>.
void AddBlock(Job& job, const std::vector<int>& cameraIds, const std::string& path = "/photos") {
  tqorkit::tqPhotoCategory block;
  block.SetBlkPath(path);
  for (std::size_t i = 0; i < cameraIds.size(); ++i) {
    const std::string name = "p" + std::to_string(job.blocks.size()) + "_" + std::to_string(i);
    block.InsertPhoto(testing::PhotoAt(0, 0, 0, {}, name, cameraIds[i], -1));
  }
  job.blocks.push_back(block);
}

Job MakeJob(const std::vector<int>& cameraIds, const std::vector<std::vector<int>>& blocks) {
  Job job;
  for (const int id : cameraIds) AddCamera(job, id);
  for (const auto& ids : blocks) AddBlock(job, ids);
  return job;
}

// The file as PrepareParams leaves it with `threads` threads; -1 work blocks when it fails.
std::string Written(Job& job, int threads, int* blockCount = nullptr) {
  const testing::TempDir dir;
  const std::string path = dir.File("orParam.txt");
  tqTORectify rectify;
  int count = -1;
  const testing::Threads limited(threads);
  const bool done = TestPeer::PrepareParams(
      rectify, path.c_str(), &job.blocks, &job.cameras, job.header.dsmPath.c_str(),
      job.header.heightPair, nullptr, job.header.rectifyOption, job.header.outputDir.c_str(),
      job.header.scale, count, job.header.flagA != 0, job.header.flagB);

  EXPECT_TRUE(done);
  if (blockCount != nullptr) *blockCount = count;
  return testing::ReadText(path);
}

struct ReadBack {
  bool header = false;
  ParamHeader values;
  std::vector<ParamBlock> blocks;
};

ReadBack Read(const std::string& text) {
  std::istringstream in(text);
  ParamFileReader reader(in);
  ReadBack all;
  all.header = reader.ReadHeader(all.values);
  for (int k = 1; all.header && reader.FindBlock(k); ++k)
    reader.ReadBlock(all.blocks.emplace_back());
  return all;
}

// --- The same file, said again with streams and the rules word by word. -----------------------

std::string Fixed(double value) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(6) << value;
  return text.str();
}

std::string Scientific(double value) {
  std::ostringstream text;
  text << std::scientific << std::setprecision(6) << value;
  return text.str();
}

std::string TwinBlock(int k, int id, const tqorkit::tqIntOri::INTORI& c,
                      const std::vector<int>& list, const tqorkit::tqPhotoCategory& block, int b) {
  std::vector<int> there;
  for (const int i : list) {
    if (static_cast<std::size_t>(i) < block.GetPhotos().size()) there.push_back(i);
  }
  std::ostringstream text;
  text << "block" << k << "\n"
       << id << "\t" << Fixed(c.imageWidth) << "\t" << Fixed(c.imageHeight) << "\t"
       << Fixed(c.focalLength) << "\t" << Fixed(c.pixelSize) << "\t" << Fixed(c.offsetX) << "\t"
       << Fixed(c.offsetY) << "\t" << c.distortionModel;
  for (int i = 0; i < 7; ++i) text << "\t" << Scientific(c.coefficients[i]);
  text << "\n" << there.size() << "\n" << block.GetPhotoPath() << "\n";
  for (const int i : there) {
    const auto& p = block.GetPhotos()[static_cast<std::size_t>(i)].Get();
    text << p.photoName;
    for (const double value : p.position) text << "\t" << Fixed(value);
    text << "\t" << p.cameraId << "\t" << Fixed(p.geoRect.minX) << "\t" << Fixed(p.geoRect.minY)
         << "\t" << Fixed(p.geoRect.maxX) << "\t" << Fixed(p.geoRect.maxY) << "\t" << b << "\n";
  }
  return text.str();
}

std::string TwinHeader(const ParamHeader& header) {
  std::ostringstream text;
  text << header.rectifyOption << "\n"
       << Fixed(header.scale) << "\n"
       << (header.flagA != 0 ? "1" : "0") << "\n"
       << (header.flagB ? "1" : "0") << "\n"
       << Fixed(header.heightPair[0]) << "\t" << Fixed(header.heightPair[1]) << "\n"
       << header.dsmPath << "\n"
       << header.outputDir << "\n";
  return text.str();
}

std::string Twin(const Job& job, int threads, int& k) {
  std::string text = TwinHeader(job.header);
  int photoTotal = 0;
  for (const auto& block : job.blocks) photoTotal += static_cast<int>(block.GetPhotos().size());
  int g = 5;
  if (5 * threads > photoTotal) g = std::max(1, static_cast<int>(double(photoTotal) / threads));
  k = 0;
  std::vector<int> pending;
  for (const auto& [id, camera] : job.cameras) {
    for (std::size_t b = 0; b < job.blocks.size(); ++b) {
      const int size = static_cast<int>(job.blocks[b].GetPhotos().size());
      for (int i = 0; i < size; ++i) {
        if (job.blocks[b].GetPhotos()[static_cast<std::size_t>(i)].GetCameraId() == id) {
          pending.push_back(i);
          if (static_cast<int>(pending.size()) == g) {
            text += TwinBlock(++k, id, camera.Get(), pending, job.blocks[b], static_cast<int>(b));
            pending.clear();
          }
        }
      }
      if (size % g != 0) {
        text += TwinBlock(++k, id, camera.Get(), pending, job.blocks[b], static_cast<int>(b));
        pending.clear();
      }
    }
  }
  return text;
}

Job RandomJob(std::mt19937& random) {
  const auto upTo = [&](int n) { return std::uniform_int_distribution<int>(0, n)(random); };
  std::uniform_real_distribution<double> wide(-6e6, 6e6);
  Job job;
  job.header = {
      upTo(1),           1.0 + upTo(9), upTo(1), upTo(1) == 1, {wide(random) * 1e-7, wide(random)},
      "/data/a dsm.tif", "/out/"};
  for (int i = upTo(3); i > 0; --i) AddCamera(job, upTo(5) - 1);
  for (int b = upTo(4); b > 0; --b) {
    std::vector<int> ids(static_cast<std::size_t>(upTo(23)));
    for (int& id : ids) id = upTo(5) - 1;
    AddBlock(job, ids, "/photos " + std::to_string(b));
    for (auto& photo : job.blocks.back().GetPhotos()) {
      auto record = photo.Get();
      for (double& value : record.position) value = wide(random);
      if (upTo(1) == 0) record.geoRect = {wide(random), wide(random), wide(random), wide(random)};
      photo.Set(record);
    }
  }
  return job;
}

// What is read back, written once more: everything that six decimals hold.
std::string ReadAndWrittenAgain(const std::string& text) {
  const ReadBack all = Read(text);
  std::string again = TwinHeader(all.values);
  int k = 0;
  for (const ParamBlock& read : all.blocks) {
    EXPECT_EQ(read.camera.coefficients[7], 0) << "the eighth is not carried";
    tqorkit::tqPhotoCategory block;
    block.SetBlkPath(read.path);
    std::vector<int> list;
    int blockIndex = 0;
    for (const auto& record : read.photos) {
      EXPECT_EQ(record.heightPair[0], 0);
      tqorkit::tqExtOri photo;
      photo.Set(record);
      block.InsertPhoto(photo);
      blockIndex = record.imageBlockId;
      list.push_back(static_cast<int>(list.size()));
    }
    again += TwinBlock(++k, read.camera.cameraId, read.camera, list, block, blockIndex);
  }
  return again;
}

TEST(ParamFileTest, EqualsItsPlainTwinOnRandomJobsAndReadsBack) {
  std::mt19937 random(20240701);
  for (int round = 0; round < 150; ++round) {
    Job job = RandomJob(random);
    const int threads = std::uniform_int_distribution<int>(1, 12)(random);
    int count = 0;
    int twinCount = 0;
    const std::string text = Written(job, threads, &count);
    SCOPED_TRACE("round " + std::to_string(round) + " threads " + std::to_string(threads));
    ASSERT_EQ(text, Twin(job, threads, twinCount));
    ASSERT_EQ(count, twinCount);
    ASSERT_EQ(ReadAndWrittenAgain(text), text);
    if (round % 40 != 0) continue;
    const testing::CommaLocale comma;  // where the machine has one
    ASSERT_EQ(Written(job, threads), text);
    ASSERT_EQ(ReadAndWrittenAgain(text), text);
  }
}

// --- Reading alone -----------------------------------------------------------------------------

const char* const kHeader = "1\n2.5\n1\n2\n0.5\t7\n/d s m.tif\n/out/\n";

TEST(ParamFileReaderTest, HeaderLinesAndTheirDefaults) {
  const ReadBack full = Read(kHeader);
  EXPECT_TRUE(full.header);
  EXPECT_EQ(full.values.rectifyOption, 1);
  EXPECT_EQ(full.values.scale, 2.5);
  EXPECT_EQ(full.values.flagA, 1);
  EXPECT_TRUE(full.values.flagB) << "any value above 0";
  EXPECT_THAT(full.values.heightPair, ElementsAre(0.5, 7));
  EXPECT_EQ(full.values.dsmPath, "/d s m.tif");
  EXPECT_EQ(full.values.outputDir, "/out/");

  const ReadBack garbage = Read("a\nb\nc\n-1\nd\n\n");
  EXPECT_TRUE(garbage.header) << "a scale that does not parse counts as 1";
  EXPECT_EQ(garbage.values.scale, 1.0);
  EXPECT_FALSE(garbage.values.flagB);
  EXPECT_EQ(garbage.values.outputDir, "");
  EXPECT_TRUE(Read("").header);
}

TEST(ParamFileReaderTest, MarkersAreWholeLinesAndNamesOfMoreThan255BytesLoseTheirNumbers) {
  for (const char* noMarker : {"block10", "block1 ", "block1\r", "block01"}) {
    std::istringstream in(std::string(noMarker) + "\n");
    EXPECT_FALSE(ParamFileReader(in).FindBlock(1)) << noMarker;
  }
  Job job = MakeJob({1}, {{1, 1, 1}});
  for (const std::size_t i : {0U, 1U}) {
    auto& photo = job.blocks[0].GetPhotos()[i];
    auto record = photo.Get();
    record.photoName = std::string(255 + i, 'n');
    record.position[0] = 5;
    photo.Set(record);
  }
  const ReadBack back = Read(Written(job, 1));
  const auto& read = back.blocks.at(0).photos;
  ASSERT_EQ(read.size(), 3U);
  for (const std::size_t i : {0U, 1U}) {
    EXPECT_EQ(read[i].photoName.size(), 255U);
    EXPECT_EQ(read[i].position[0], i == 0 ? 5 : 0);
  }
  EXPECT_EQ(read[2].photoName, "p0_2") << "the next line is read as usual";
}

TEST(ParamFileReaderTest, TruncatedFilesGiveWhatIsThere) {
  Job job = MakeJob({1}, {{1, 1}});
  const std::string text = Written(job, 1);
  for (std::size_t length = 0; length <= text.size(); ++length) {
    const ReadBack back = Read(text.substr(0, length));  // no length crashes or invents a photo
    for (const auto& block : back.blocks) ASSERT_LE(block.photos.size(), 2U);
  }
  const std::size_t secondPhoto = text.find("p0_1");
  EXPECT_EQ(Read(text.substr(0, secondPhoto)).blocks.at(0).photos.size(), 1U);
  const auto shortLine = Read(text.substr(0, secondPhoto + 8)).blocks.at(0).photos;
  EXPECT_EQ(shortLine.at(1).photoName, "p0_1");
  EXPECT_EQ(shortLine.at(1).imageBlockId, 0) << "repeats the line before";
  const auto first = Read(text.substr(0, text.find("p0_0") + 8)).blocks.at(0).photos;
  EXPECT_EQ(first.at(0).imageBlockId, -1);
}

}  // namespace
}  // namespace tqtortho
