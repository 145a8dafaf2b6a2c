// SPDX-License-Identifier: Apache-2.0
#include "stop_watch.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <thread>

#include "commands.h"
#include "core/stop_flag.h"
#include "internal/staged_path.h"

namespace tqtortho::app {
namespace {

/// With what follows (the system takes back some gigabytes of memory), less than the two seconds
/// that a stop may take.
constexpr timespec kPatience{1, 400'000'000};
constexpr std::chrono::milliseconds kCleaning(200);

std::atomic_flag lastWordTaken = ATOMIC_FLAG_INIT;

bool TestAsksFor(std::string_view mode) {
  const char* watchdog = std::getenv("TQTORTHO_STOP_WATCHDOG");
  return watchdog != nullptr && watchdog == mode;
}

/// The threads at work are left as they are; nothing of theirs is touched, not even stdio.
[[noreturn]] void EndByForce() {
  RemoveStagedFiles(kCleaning);
  if (TakeLastWord()) {
    // On a terminal the progress bar's line is open.
    const std::string clear = ::isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "";
    const std::string line = clear + "tqtortho: " + kInterruptedText + "\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
  }
  ::_exit(kInterrupted);
}

void Watch(const sigset_t& wanted) {
  int signal = 0;
  while (::sigwait(&wanted, &signal) != 0) {
  }
  if (!TestAsksFor("only")) processStop.Raise();
  if (TestAsksFor("off")) return;
  while (::sigtimedwait(&wanted, nullptr, &kPatience) < 0 && errno == EINTR) {
  }
  EndByForce();
}

}  // namespace

void WatchForStops() {
  sigset_t wanted;
  ::sigemptyset(&wanted);
  ::sigaddset(&wanted, SIGINT);
  ::sigaddset(&wanted, SIGTERM);
  // Blocked here, and so in every thread that comes: only the watcher receives them.
  if (::pthread_sigmask(SIG_BLOCK, &wanted, nullptr) != 0) return;
  std::thread(Watch, wanted).detach();
}

bool TakeLastWord() { return !lastWordTaken.test_and_set(); }

}  // namespace tqtortho::app
