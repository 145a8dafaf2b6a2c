// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

#include "core/stop_flag.h"
#include "tqfd/Progress.h"

namespace tqtortho {

/// Which lock guards a stage's progress. Both are process-wide and named: stages of one kind that
/// run at once share it, so a host's callback is never entered twice at a time.
enum class ProgressLock { kJobLoops, kUpdateLoops };

/// Progress and stop of one stage: the sum, the step, the callback and the stop flag, nothing else.
/// FinishOne may be called from many threads.
class StageProgress {
 public:
  /// @param itemCount  items of the stage; the step is 100.0 / itemCount
  /// @param utf8Message  handed to the callback as GBK
  StageProgress(int itemCount, std::string_view utf8Message, tqfd::ProgressCallback callback,
                void* user, ProgressLock lock = ProgressLock::kJobLoops);

  /// True once the callback has answered 0, or the whole process is to stop. Read without the lock:
  /// a stop takes effect at the next item of every thread.
  [[nodiscard]] bool Stopped() const {
    return stopped_.load(std::memory_order_relaxed) || processStop.Raised();
  }
  /// Adds one step and tells the callback; without a callback nothing happens.
  void FinishOne() { FinishOne({}); }
  /// The same behind `lastStep`, the end of the item's work that must not run at once with that of
  /// another item: both happen under the lock, in one go. The step counts whatever becomes of the
  /// work. It must not use a progress of the same lock.
  void FinishOne(const std::function<bool()>& lastStep);

 private:
  double step_;
  double sum_ = 0;
  std::string message_;
  tqfd::ProgressCallback callback_;
  void* user_;
  ProgressLock lock_;
  std::atomic<bool> stopped_{false};
};

}  // namespace tqtortho
