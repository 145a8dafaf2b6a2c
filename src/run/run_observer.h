// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tqtortho::host {

/// Who watches a job. Calls come one at a time, from any thread of the job.
class RunObserver {
 public:
  virtual ~RunObserver() = default;
  virtual void BeginStage(const std::string& name) = 0;
  virtual void Progress(double percent) = 0;
  virtual void EndStage(double seconds) = 0;
  virtual void Warn(const std::string& line) = 0;
  /// A fact or an estimate, before the work starts.
  virtual void Note(const std::string& /*line*/) {}
  /// Asked at every progress step; true stops the job.
  virtual bool StopRequested() = 0;
};

/// Passes everything on to another observer, and keeps the warnings for the report.
class NotingObserver : public RunObserver {
 public:
  explicit NotingObserver(RunObserver& next) : next_(next) {}
  void BeginStage(const std::string& name) override { next_.BeginStage(name); }
  void Progress(double percent) override { next_.Progress(percent); }
  void EndStage(double seconds) override { next_.EndStage(seconds); }
  void Warn(const std::string& line) override {
    lines_.push_back(line);
    next_.Warn(line);
  }
  void Note(const std::string& line) override { next_.Note(line); }
  bool StopRequested() override { return next_.StopRequested(); }
  [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }

 private:
  RunObserver& next_;
  std::vector<std::string> lines_;
};

}  // namespace tqtortho::host
