// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

namespace tqtortho::app {

/// Exit statuses of the command.
enum ExitStatus : int { kDone = 0, kFailed = 1, kBadInput = 2, kInterrupted = 130 };

/// Each subcommand adds itself; its callback stores the exit status in `status`.
void AddRun(CLI::App& app, int& status);
void AddBlock(CLI::App& app, int& status);
void AddBorder(CLI::App& app, int& status);
void AddThumbnails(CLI::App& app, int& status);
void AddTrace(CLI::App& app, int& status);
void AddSelfTest(CLI::App& app, int& status);
void AddSample(CLI::App& app, int& status);
void AddScore(CLI::App& app, int& status);
void AddMosaic(CLI::App& app, int& status);
void AddImport(CLI::App& app, int& status);
void AddInfo(CLI::App& app, int& status);
void AddHelpPages(CLI::App& app, int& status);

/// One line on standard error: "tqtortho: " and the text.
void Complain(const std::string& text);
/// One line on standard error: "warning: " and the text.
void Warn(const std::string& text);
/// Complain, and the status to return: kInterrupted, and its line instead, after a stop.
int Fail(int status, const std::string& text);

/// What a job that was stopped says.
inline constexpr const char* kInterruptedText =
    "interrupted; what was finished stays, run the same command again";
/// Whether Ctrl-C or a termination came; see stop_watch.h.
[[nodiscard]] bool Interrupted();

}  // namespace tqtortho::app
