// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for a folder with a reconstruction.json of OpenSfM, or that file. Decided by content (its
/// beginning; such files may be large); never fails.
[[nodiscard]] bool LooksLikeOpenSfm(const std::string& path);

/// Reads an OpenSfM reconstruction that stands alone: poses in a local east-north-up frame about
/// the reference of the file or of reference_lla.json beside it, moved to the map of the DSM.
/// `offset` is added on the map. With `crs` the poses are taken as coordinates of that system, less
/// the offset.
///
/// @return nothing, with one line in `error`, when it cannot be used.
[[nodiscard]] std::optional<Survey> ImportOpenSfm(const ImportRequest& request, std::string& error);

}  // namespace tqtortho::host
