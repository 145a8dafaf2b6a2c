// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "mosaic/mosaic_stage.h"
#include "run/job_paths.h"
#include "run/job_state.h"
#include "run/run_job.h"
#include "run/stage_relay.h"

namespace tqtortho::host {

/// Passes everything on, and keeps what was said for the report.
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

/// Writes OUT/report.html, unless an earlier run has written it of the same products. A page that
/// cannot be made is a warning: the products are complete.
/// @param fingerprint  of the products
/// @param notes        what the run and the importer had to say
void WriteReport(const MosaicInput& input, const JobPaths& paths, const RunOptions& options,
                 const std::string& title, const std::string& fingerprint,
                 const std::vector<std::string>& notes, JobState& state, StageRelay& relay,
                 RunReport& report, RunObserver& observer);

}  // namespace tqtortho::host
