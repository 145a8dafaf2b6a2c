// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace geo {

/// Leaves the process only the drivers that inputs and products need, and no way to a network or
/// into archives by a file's name: a second wall behind the checks of every file. For the command,
/// at its start; a library does not do that to its host.
void UseLocalFilesOnly();

}  // namespace geo
