// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tqfd {

/// Progress callback of every long operation: (percent of the stage so far, message in GBK, user
/// pointer). A return of 0 asks the stage to stop. A null callback is allowed everywhere.
using ProgressCallback = int (*)(double percent, const char* message, void* user);

}  // namespace tqfd
