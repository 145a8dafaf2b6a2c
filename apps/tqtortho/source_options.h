// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <optional>
#include <string>

#include "host/survey.h"

namespace tqtortho::app {

/// Where a survey comes from: files of our own, or a project of another tool.
struct SourceOptions {
  std::string dsm;
  std::string cameras;
  std::string photos;
  /// By option: --project first, then one for each kind of project.
  std::array<std::string, 7> projects;
  std::string images;
  std::string crs;
  std::string offset;
  std::string cameraFile;
  std::string frame = "auto";

  /// Whether any source is named.
  [[nodiscard]] bool Any() const;
};

void AddSourceOptions(CLI::App& command, SourceOptions& source);

/// Reads it. Nothing, with one line on standard error for each problem, when it cannot be used.
[[nodiscard]] std::optional<host::Survey> LoadSurvey(const SourceOptions& source);

}  // namespace tqtortho::app
