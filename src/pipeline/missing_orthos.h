// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Logs for each photo of a rectified job that has no footprint what kept it from an ortho image:
/// its file cannot be read (with the whole path, since a relative one is looked up in the process's
/// working directory, which callers do not always expect), its samples are not bytes, the output
/// directory is not there, or it sees nothing.
///
/// @param orthoDir  prefix of the ortho images' names
/// @return false, with a line in the log, when no photo has a footprint: nothing was made
[[nodiscard]] bool TellOfMissingOrthos(const std::vector<tqorkit::tqPhotoCategory>& blocks,
                                       const std::string& orthoDir);

}  // namespace tqtortho
