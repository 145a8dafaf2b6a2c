// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "host/survey.h"

namespace tqtortho::app {

/// Where a survey comes from: files of our own, or a project of another tool.
struct SourceOptions {
  std::string dsm;
  std::string cameras;
  std::string photos;
  std::string odm;
};

void AddSourceOptions(CLI::App& command, SourceOptions& source);

/// Reads it. Nothing, with one line on standard error for each problem, when it cannot be used.
[[nodiscard]] std::optional<host::Survey> LoadSurvey(const SourceOptions& source);

}  // namespace tqtortho::app
