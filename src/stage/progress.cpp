// SPDX-License-Identifier: Apache-2.0
#include "stage/progress.h"

#include "stage/call_guard.h"
#include "stage/messages.h"

namespace tqtortho {

StageProgress::StageProgress(int itemCount, std::string_view utf8Message,
                             tqfd::ProgressCallback callback, void* user, ProgressLock lock)
    : step_(itemCount > 0 ? 100.0 / itemCount : 0.0),
      message_(ToGbk(utf8Message)),
      callback_(callback),
      user_(user),
      lock_(lock) {}

void StageProgress::FinishOne(const std::function<bool()>& lastStep) {
  if (callback_ == nullptr && !lastStep) return;
  const auto finish = [this, &lastStep] {
    if (lastStep) (void)Guarded(lastStep);
    if (callback_ == nullptr) return;
    sum_ += step_;
    // A host's callback that throws counts as a stop: no exception may leave a parallel loop.
    if (!Guarded([this] { return callback_(sum_, message_.c_str(), user_) != 0; })) {
      stopped_.store(true, std::memory_order_relaxed);
    }
  };
  // Named, hence one lock each for the whole process, however many stages run at once.
  if (lock_ == ProgressLock::kJobLoops) {
#pragma omp critical(tqtortho_job_progress)
    finish();
  } else {
#pragma omp critical(tqtortho_update_progress)
    finish();
  }
}

}  // namespace tqtortho
