// SPDX-License-Identifier: Apache-2.0
#include "run/job_run.h"

#include <utility>

namespace tqtortho::host {

JobRun::JobRun(Survey photos, const RunOptions& asked, RunObserver& watcher, RunReport& found)
    : options(asked),
      paths(MakePaths(asked)),
      survey(std::move(photos)),
      observer(watcher),
      report(found),
      progress(observer, report),
      state(paths.work, paths.ortho, paths.data + "/ortho_data/orParam.txt") {}

RunStatus JobRun::EndEarly() {
  progress.End();
  if (!progress.Stopped()) return RunStatus::kFailed;
  error = "interrupted; what was finished stays, run the same command again";
  return RunStatus::kInterrupted;
}

MosaicInput JobRun::Orthos() const {
  return {job.Blocks(), job.Cameras(), paths.ortho, report.gsd};
}

std::vector<std::string> JobRun::OrthoPaths() const {
  std::vector<std::string> orthos;
  for (const auto& photo : report.photos) {
    if (photo.done) orthos.push_back(photo.orthoPath);
  }
  return orthos;
}

}  // namespace tqtortho::host
