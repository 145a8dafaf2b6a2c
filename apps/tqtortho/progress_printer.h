// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "run/run_job.h"

namespace tqtortho::app {

/// How progress is told: a bar redrawn in place on a terminal, plain lines otherwise, JSON lines
/// (to standard output) for machines, or nothing.
enum class ProgressStyle { kBar, kLines, kJson, kQuiet };

/// The style for the two options and for what standard error is.
[[nodiscard]] ProgressStyle ChooseProgressStyle(bool json, bool quiet);

/// Draws progress of a job: per stage the share, the rate and the time left.
class ProgressPrinter : public host::RunObserver {
 public:
  explicit ProgressPrinter(ProgressStyle style) : style_(style) {}
  void BeginStage(const std::string& name) override;
  void Progress(double percent) override;
  void EndStage(double seconds) override;
  void Warn(const std::string& line) override;
  void Note(const std::string& line) override;
  bool StopRequested() override;

 private:
  void Draw(double percent);
  void ClearLine();

  ProgressStyle style_;
  std::string stage_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point drawn_;
  double lastLine_ = 0;
  bool lineOpen_ = false;
};

}  // namespace tqtortho::app
