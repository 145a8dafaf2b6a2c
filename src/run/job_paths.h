// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "run/run_options.h"

namespace tqtortho::host {

/// Where a job keeps its files; absolute.
struct JobPaths {
  std::string out;
  std::string work;
  std::string data;    ///< program data: parameter file, log
  std::string tmp;     ///< masks of the whole job
  std::string dsm;     ///< working copy
  std::string origin;  ///< where its heights come from
  std::string border;  ///< border mask
  std::string cameras;
  std::string photos;
  std::string staged;  ///< links with safe names
  std::string ortho;   ///< prefix of the ortho images
  std::string plan;    ///< parameter file as rectification began; blocks can be repeated from it
};

[[nodiscard]] JobPaths MakePaths(const RunOptions& options);

/// Removes half-written files (".name.tmp-PID-N") that a killed job left in the directory or below
/// it. Only with the directory's lock held: another job's are being written.
void RemoveUnfinishedFiles(const std::string& directory);

}  // namespace tqtortho::host
