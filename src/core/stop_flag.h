// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <exception>

namespace tqtortho {

/// The wish that work be given up. Raised once, by whoever watches for it (a signal's watcher);
/// long work polls it once a row, a strip or a tile: a relaxed load, which costs nothing there.
class StopFlag {
 public:
  void Raise() noexcept { raised_.store(true, std::memory_order_relaxed); }
  [[nodiscard]] bool Raised() const noexcept { return raised_.load(std::memory_order_relaxed); }
  /// For tests, which stop more than once in a process.
  void Lower() noexcept { raised_.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool> raised_{false};
};

/// The wish that everything this process works on be given up. Without a watcher, as in a host
/// that has not asked for one, nobody raises it. A stop that a host's progress callback asks for
/// is another thing: it ends a stage between two items, as the operations say.
inline constinit StopFlag processStop;

/// Thrown by a kernel that gave up: its outputs are unfinished. It ends at the Guarded call around
/// the kernel, which fails like one that ran out of memory. Never thrown out of a parallel loop.
struct WorkStopped : std::exception {
  [[nodiscard]] const char* what() const noexcept override { return "interrupted"; }
};

/// Gives up when asked to; null: nobody asks.
inline void GiveUpIfRaised(const StopFlag* stop) {
  if (stop != nullptr && stop->Raised()) throw WorkStopped();
}

}  // namespace tqtortho
