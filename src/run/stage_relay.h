// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "run/run_job.h"
#include "tqfd/Timer.h"

namespace tqtortho::host {

/// Most memory that this process has held.
[[nodiscard]] std::int64_t PeakMemory();

/// Turns the library's callback into the observer's stages: a new message is a new stage.
class StageRelay {
 public:
  StageRelay(RunObserver& observer, RunReport& report) : observer_(observer), report_(report) {}

  /// Ends the stage before, if one is open.
  void Begin(const std::string& name);
  void End();
  /// False when the job is to stop.
  bool Progress(double percent);
  [[nodiscard]] bool Stopped();

  /// What one percent of the callback stands for; the fill pass counts every photo twice.
  double share = 1;
  /// Called once when rectification has begun: footprints are estimated and not yet measured.
  std::function<void()> onRectify;

  /// The library's callback; `user` is the relay.
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
