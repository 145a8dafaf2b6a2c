// SPDX-License-Identifier: Apache-2.0
#include "stage/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tqtortho {
namespace {

/// A host's callback: records what it is told, answers 0 from the given call on, and notes when it
/// is entered a second time before it has returned.
struct Host {
  std::vector<double> percents;
  std::vector<std::string> texts;
  int stopAtCall = -1;
  static inline std::atomic<int> inside{0};
  static inline std::atomic<bool> enteredTwice{false};

  static int Callback(double percent, const char* text, void* user) {
    if (inside.fetch_add(1) != 0) enteredTwice = true;
    auto& host = *static_cast<Host*>(user);
    host.percents.push_back(percent);
    host.texts.emplace_back(text);
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    inside.fetch_sub(1);
    return static_cast<int>(host.percents.size()) == host.stopAtCall ? 0 : 1;
  }
};

TEST(StageProgressTest, AnswerZeroStopsForGood) {
  Host host;
  host.stopAtCall = 2;
  StageProgress progress(4, "像", Host::Callback, &host);
  progress.FinishOne();
  EXPECT_FALSE(progress.Stopped());
  progress.FinishOne();
  EXPECT_TRUE(progress.Stopped());
  progress.FinishOne();  // an item that was already running ends; its answer 1 revives nothing
  EXPECT_TRUE(progress.Stopped());
  EXPECT_THAT(host.percents, ::testing::ElementsAre(25, 50, 75));
  EXPECT_THAT(host.texts, ::testing::Each(std::string("\xCF\xF1"))) << "GBK";
}

TEST(StageProgressTest, NoCallbackAndNoItemsAreAllowed) {
  StageProgress silent(4, "", nullptr, nullptr);
  silent.FinishOne();
  EXPECT_FALSE(silent.Stopped());
  Host host;
  StageProgress none(0, "", Host::Callback, &host);
  none.FinishOne();
  EXPECT_THAT(host.percents, ::testing::ElementsAre(0.0));
}

TEST(StageProgressTest, ThrowingCallbackCountsAsStop) {
  const auto thrower = [](double, const char*, void*) -> int { throw std::runtime_error("host"); };
  StageProgress progress(1, "", thrower, nullptr);
  progress.FinishOne();
  EXPECT_TRUE(progress.Stopped());
}

TEST(StageProgressTest, LastStepRunsUnderTheLockEvenWithoutACallbackAndMayFail) {
  StageProgress silent(1000, "", nullptr, nullptr, ProgressLock::kUpdateLoops);
  Host host;
  StageProgress told(1000, "", Host::Callback, &host, ProgressLock::kUpdateLoops);
  int unguarded = 0;  // a data race, and short of its sum, should the lock not hold
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 250; ++i) {
        silent.FinishOne([&unguarded] {
          const int before = unguarded;
          std::this_thread::yield();
          unguarded = before + 1;
          return true;
        });
        if (i == 0 && t == 0) {
          told.FinishOne([&] {
            EXPECT_TRUE(host.percents.empty()) << "the callback comes after the work";
            throw std::runtime_error("work");
            return true;
          });
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(unguarded, 1000);
  EXPECT_THAT(host.percents, ::testing::ElementsAre(0.1));
}

// Both stages run at once on one lock, as jobs of one process do.
TEST(StageProgressTest, CallbackIsNeverEnteredTwiceAtATimeAcrossStages) {
  for (const ProgressLock lock : {ProgressLock::kJobLoops, ProgressLock::kUpdateLoops}) {
    Host first, second;
    StageProgress one(40, "", Host::Callback, &first, lock);
    StageProgress two(40, "", Host::Callback, &second, lock);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < 20; ++i) (t % 2 == 0 ? one : two).FinishOne();
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(Host::enteredTwice);
    EXPECT_EQ(first.percents.size(), 40u);
    EXPECT_DOUBLE_EQ(first.percents.back(), 100.0);
    EXPECT_TRUE(std::is_sorted(second.percents.begin(), second.percents.end()));
  }
}

}  // namespace
}  // namespace tqtortho
