// SPDX-License-Identifier: Apache-2.0
#include "tqfd/Logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "testing/temp_dir.h"
#include "tqfd/PathHelper.h"
#include "tqfd/Timer.h"

namespace tqfd {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using tqtortho::testing::ReadText;
using tqtortho::testing::TempDir;

struct DataDirectory {
  explicit DataDirectory(const std::string& path) { PathHelper::SetProgramDataDirectory(path); }
  ~DataDirectory() { PathHelper::SetProgramDataDirectory(""); }
};

TEST(LoggerTest, TheFileIsUtf8FollowsTheDataDirectoryAndTimesOnlyWhenAsked) {
  const TempDir first;
  const TempDir second;
  const DataDirectory restore(first.Path());
  Logger::Save("\xD5\xFD\xC9\xE4", false, true);
  Logger::Save("timed", true, true);
  Logger::Save("plain", false, true);
  EXPECT_THAT(ReadText(first.File("log/tqtortho.log")),
              MatchesRegex("正射\n\\[[0-9]+-[0-9]+-[0-9]+ [0-9:.]+\\] timed\nplain\n"));
  PathHelper::SetProgramDataDirectory(second.Path());
  Logger::Save("elsewhere", false, true);
  EXPECT_EQ(ReadText(second.File("log/tqtortho.log")), "elsewhere\n");
}

TEST(LoggerTest, ASinkGetsTheBytesAsTheyCameAndAnEmptyOneRestoresTheFile) {
  const TempDir dir;
  const DataDirectory restore(dir.Path());
  std::vector<std::string> seen;
  Logger::SetSink([&](std::string_view text) { seen.emplace_back(text); });
  Logger::Save("\xD5\xFD", true, true);
  Logger::SetSink({});
  Logger::Save("file", false, true);
  EXPECT_THAT(seen, ElementsAre("\xD5\xFD"));
  EXPECT_EQ(ReadText(dir.File("log/tqtortho.log")), "file\n");
}

TEST(LoggerTest, NothingThatGoesWrongReachesTheCaller) {
  const TempDir dir;
  const DataDirectory restore(dir.Write("a_file", "x"));  // no directory can be made below it
  EXPECT_NO_THROW(Logger::Save("lost", true, true));
  Logger::SetSink([](std::string_view) { throw std::runtime_error("sink"); });
  EXPECT_NO_THROW(Logger::Save("lost", true, true));
  Logger::SetSink({});
}

TEST(LoggerTest, TextsOfSeveralThreadsStayWhole) {
  int calls = 0;
  bool whole = true;
  Logger::SetSink([&](std::string_view text) {
    ++calls;  // unguarded on purpose: the logger promises one text at a time
    whole = whole && text == "0123456789";
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 200; ++k) Logger::Save("0123456789", true, false);
    });
  }
  for (std::thread& thread : threads) thread.join();
  Logger::SetSink({});
  EXPECT_EQ(calls, 800);
  EXPECT_TRUE(whole);
}

TEST(TimerTest, OnlyTheTimeBetweenStartAndStopCounts) {
  Timer timer;
  timer.Stop();
  EXPECT_EQ(timer.ElapsedSeconds(), 0);
  timer.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  timer.Stop();
  const double stopped = timer.ElapsedSeconds();
  EXPECT_GE(stopped, 0.02);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(timer.ElapsedSeconds(), stopped);
}

}  // namespace
}  // namespace tqfd
