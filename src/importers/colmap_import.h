// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for a COLMAP model, text or binary: the folder itself, one of its files, or a project with
/// models in sparse/0, sparse, 0 or dense/sparse. Decided by content; never fails.
[[nodiscard]] bool LooksLikeColmap(const std::string& path);

/// Reads a COLMAP model. Its frame has no name, so the request must say where it stands: `crs` and
/// what was subtracted from the coordinates, `offset`. Without a DSM the poses stay in `crs`.
///
/// Photos are taken in the order of their names: a model has no times.
/// @return nothing, with one line in `error`, when the model cannot be used.
[[nodiscard]] std::optional<Survey> ImportColmap(const ImportRequest& request, std::string& error);

}  // namespace tqtortho::host
