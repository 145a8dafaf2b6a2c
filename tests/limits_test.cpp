// SPDX-License-Identifier: Apache-2.0
//
// Every limit of docs/limits.md at its edge: the value passes, one more is refused with a line that
// names it.
#include "core/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "check/input_check.h"
#include "importers/opensfm_file.h"
#include "survey/json_text.h"
#include "survey/survey_reader.h"
#include "testing/temp_dir.h"
#include "tqfd/FileInput.h"
#include "tqfd/PathHelper.h"

namespace tqtortho {
namespace {

using ::testing::HasSubstr;

constexpr const char* kCamera = "1\n1\nc\n4000 3000 4000 4000 3000 2000 1500 0 0 0 0 0 0 0 0 0\n";

/// The first problem of a list of photos whose names have `nameBytes` bytes.
std::string ListProblem(int photos, std::size_t nameBytes) {
  std::string list = "1\n" + std::to_string(photos) + "\nphotos\n";
  for (int i = 0; i < photos; ++i) {
    std::string name = std::to_string(i);
    name.insert(0, nameBytes - name.size(), 'p');
    list += name + " 1 2 3 0 0 0 1\n";
  }
  std::vector<std::string> problems;
  (void)host::ParseSurvey(kCamera, "cameras.txt", list, "photos.txt", problems);
  return problems.empty() ? std::string() : problems[0];
}

std::string ReconstructionProblem(int shots) {
  std::string json =
      "[{\"cameras\":{\"c\":{\"projection_type\":\"perspective\",\"width\":4000,"
      "\"height\":3000,\"focal\":0.9,\"k1\":0,\"k2\":0}},\"points\":{},\"shots\":{";
  for (int i = 0; i < shots; ++i) {
    json += (i > 0 ? ",\"" : "\"") + std::to_string(i) +
            ".jpg\":{\"camera\":\"c\",\"rotation\":[3,0,0],\"translation\":[0,0,9]}";
  }
  std::string error;
  (void)host::ParseOpenSfm(json + "}}]", error);
  return error;
}

std::string NestingProblem(int depth) {
  const std::string text = std::string(static_cast<std::size_t>(depth), '[') +
                           std::string(static_cast<std::size_t>(depth), ']');
  return host::ParseJson(text).is_discarded() ? "nested" : "";
}

std::string FileProblem(std::int64_t limit, std::int64_t bytes) {
  const testing::TempDir dir;
  const std::string path = dir.Write("sparse", "");
  std::filesystem::resize_file(path, static_cast<std::uintmax_t>(bytes));
  return tqfd::FileFault(path, limit);
}

std::string PathProblem(std::size_t bytes) {
  tqfd::PathParts parts;
  return tqfd::PathHelper::SplitPath("/" + std::string(bytes - 2, 'd') + "/a.tif", parts) ? ""
                                                                                          : "long";
}

TEST(LimitsTest, TheValueItselfPassesAndOneMoreIsRefused) {
  using Problem = std::function<std::string(std::int64_t)>;
  constexpr std::int64_t kMemory = 22'000'000;
  const auto side = [](std::int64_t n) {
    return host::PhotoSizeFault("a", static_cast<int>(n), 1, 1);
  };
  // 200 columns, so that a row more than the limit is told from the limit.
  const auto samples = [](std::int64_t n) {
    return host::PhotoSizeFault("a", 40'000, 12'500, static_cast<int>(n));
  };
  const auto surface = [](std::int64_t n) {
    return host::SurfaceSizeFault("a", static_cast<int>(n), 1, -1);
  };
  const auto memory = [](std::int64_t n) {
    return host::SurfaceSizeFault("a", 1000, static_cast<int>(n), kMemory);
  };
  struct Limit {
    const char* what;
    std::int64_t most;
    Problem problem;
    const char* named;
  };
  std::vector<Limit> all = {
      {"photos of a list", limits::kPhotos,
       [](std::int64_t n) { return ListProblem(static_cast<int>(n), 5); }, "65535"},
      {"photos of a project", limits::kPhotos,
       [](std::int64_t n) { return ReconstructionProblem(static_cast<int>(n)); }, "65535"},
      {"bytes of a photo's name", limits::kNameBytes,
       [](std::int64_t n) { return ListProblem(1, static_cast<std::size_t>(n)); }, "250"},
      {"bytes of a folder", limits::kPathBytes,
       [](std::int64_t n) { return PathProblem(static_cast<std::size_t>(n)); }, "long"},
      {"depth of JSON", limits::kJsonDepth,
       [](std::int64_t n) { return NestingProblem(static_cast<int>(n)); }, "nested"},
      {"pixels of a photo's side", limits::kPhotoSide, side, "65535"},
      {"bands of a photo of 500 million pixels", 4, samples, "2000000000"},
      {"cells of a surface", limits::kSurfaceCells, surface, "2,000,000,000"},
      {"rows of a surface in 22 MB of memory", 1000, memory, "has 0.022 GB"},
  };
  for (const std::int64_t bytes :
       {limits::kListBytes, limits::kExportBytes, limits::kReconstructionBytes,
        limits::kSmallFileBytes, limits::kVirtualRasterBytes, limits::kAreaBytes}) {
    all.push_back({"bytes of a file", bytes,
                   [bytes](std::int64_t n) { return FileProblem(bytes, n); }, "the limit is"});
  }
  for (const Limit& limit : all) {
    SCOPED_TRACE(limit.what);
    EXPECT_EQ(limit.problem(limit.most), "");
    EXPECT_THAT(limit.problem(limit.most + 1), HasSubstr(limit.named));
  }
}

TEST(LimitsTest, APhotosNameCannotLeadOutOfItsFolder) {
  for (const char* name : {"../a.jpg", "sub/../../a.jpg", "/etc/a.jpg"}) {
    std::vector<std::string> problems;
    const std::string list = std::string("1\n1\nphotos\n") + name + " 1 2 3 0 0 0 1\n";
    EXPECT_FALSE(host::ParseSurvey(kCamera, "cameras.txt", list, "photos.txt", problems)) << name;
    ASSERT_EQ(problems.size(), 1U) << name;
    EXPECT_THAT(problems[0], HasSubstr("leads out of the folder"));
  }
}

}  // namespace
}  // namespace tqtortho
