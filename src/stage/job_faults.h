// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho::host {

/// Forgets faults of earlier jobs of this process.
void ForgetFaults();

/// Stages go on after a failed write, an unreadable file of the work directory or lack of memory,
/// by their rules, and have then left something out. False, with one line in `error`, when that
/// happened since the last look.
[[nodiscard]] bool AllDone(const std::string& workDir, std::string& error);

/// Whether something that goes into this ortho may have been left out since the last look.
[[nodiscard]] bool MayLackSomething(const std::string& orthoName);

}  // namespace tqtortho::host
