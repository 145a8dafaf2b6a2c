// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// What may lie at a path.
enum class ProjectKind { kLists, kOdm, kOpenSfm, kColmap, kMetashape, kPix4d, kPoseTable };

/// Finds out by content what lies at `request.path`, a folder or a file, and imports it;
/// `Survey::source` says what was found.
///
/// An OpenDroneMap project holds an OpenSfM reconstruction and is taken as itself; a table of poses
/// counts only where nothing else is, since other programs write tables beside their projects.
/// @return nothing, with one line in `error`, when the path holds none or several of the kinds, or
///         what it holds cannot be used.
[[nodiscard]] std::optional<Survey> ImportProject(const ImportRequest& request, std::string& error);

/// Imports what `kind` says lies at `request.path`. What the kind has no use for (a coordinate
/// system where the project names its own) is refused, not ignored.
[[nodiscard]] std::optional<Survey> ImportProjectAs(ProjectKind kind, const ImportRequest& request,
                                                    std::string& error);

/// One line of a camera for people: raster, focal length and principal point in pixels, lens model.
[[nodiscard]] std::string DescribeCamera(const SurveyCamera& camera);

}  // namespace tqtortho::host
