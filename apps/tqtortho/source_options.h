// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "survey/survey.h"

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

/// Reads it. Nothing, with one line on standard error, when it cannot be used; `listAll` as below.
[[nodiscard]] std::optional<host::Survey> LoadSurvey(const SourceOptions& source,
                                                     bool listAll = false);

/// Says the first of several faults and how many more there are. `listAll`: all of them stand on
/// standard output then; else the line says that `info` lists them.
void ComplainOfFirst(const std::vector<std::string>& faults, bool listAll);

}  // namespace tqtortho::app
