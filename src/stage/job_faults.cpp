// SPDX-License-Identifier: Apache-2.0
#include "stage/job_faults.h"

#include <algorithm>

#include "core/memory_faults.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"

namespace tqtortho::host {

void ForgetFaults() {
  (void)TakeFailedWrites();
  (void)TakeFailedReads();
  (void)TakeMemoryFaults();
}

bool AllDone(const std::string& workDir, std::string& error) {
  const std::vector<FailedWrite> unwritten = TakeFailedWrites();
  const std::vector<std::string> unread = TakeFailedReads();
  if (TakeMemoryFaults()) {
    error =
        "not enough memory; use fewer --threads or a coarser --gsd, and run the same command "
        "again";
    return false;
  }
  if (!unwritten.empty()) {
    error = Describe(unwritten.front()) + "; what was finished stays, run the same command again";
    return false;
  }
  // Photos that cannot be read are left out and named as such.
  const auto ours = std::find_if(unread.begin(), unread.end(), [&](const std::string& path) {
    return path.find(workDir) != std::string::npos;
  });
  if (ours == unread.end()) return true;
  error = *ours + ": cannot be read; run the same command again";
  return false;
}

bool MayLackSomething(const std::string& orthoName) {
  return MemoryRanOut() || AnyFailedWrite(orthoName.substr(0, ExtensionStart(orthoName)));
}

}  // namespace tqtortho::host
