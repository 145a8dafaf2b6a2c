// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "report/run_report.h"
#include "run/run_observer.h"
#include "tqfd/Timer.h"

namespace tqtortho::host {

/// Most memory that this process has held.
[[nodiscard]] std::int64_t PeakMemory();

/// Tells the observer which stage runs and how far it is, keeps each stage's time and memory for
/// the report, and carries the wish to stop back into the work.
class JobProgress {
 public:
  JobProgress(RunObserver& observer, RunReport& report) : observer_(observer), report_(report) {}

  /// Ends the stage before, if one is open.
  void Begin(const std::string& name);
  void End();
  /// False when the job is to stop.
  bool Update(double percent);
  [[nodiscard]] bool Stopped();

  /// What one percent of the callback stands for.
  double share = 1;
  /// Called once when rectification has begun: footprints are estimated and not yet measured.
  std::function<void()> onRectify;

  /// The library's callback: a new message is a new stage. `user` is the JobProgress.
  static int Callback(double percent, const char* message, void* user);

 private:
  RunObserver& observer_;
  RunReport& report_;
  tqfd::Timer timer_;
  std::string message_;
  bool open_ = false;
  bool stopped_ = false;
};

}  // namespace tqtortho::host
