// SPDX-License-Identifier: Apache-2.0
#include "progress_printer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "core/numeric.h"
#include "one_line.h"

namespace tqtortho::app {
namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string Duration(double seconds) {
  char text[32];
  const int s = FloorToInt(std::clamp(seconds, 0.0, 1e7) + 0.5);
  if (s >= 3600) {
    std::snprintf(text, sizeof text, "%d:%02d:%02d", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(text, sizeof text, "%d:%02d", s / 60, s % 60);
  }
  return text;
}

void PrintJson(const nlohmann::json& line) {
  std::printf("%s\n", line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
  std::fflush(stdout);
}

}  // namespace

ProgressStyle ChooseProgressStyle(bool json, bool quiet) {
  if (json) return ProgressStyle::kJson;
  if (quiet) return ProgressStyle::kQuiet;
  return ::isatty(STDERR_FILENO) != 0 ? ProgressStyle::kBar : ProgressStyle::kLines;
}

void ProgressPrinter::BeginStage(const std::string& name) {
  stage_ = name;
  start_ = drawn_ = Clock::now();
  lastLine_ = 0;
  if (style_ == ProgressStyle::kJson) PrintJson({{"event", "begin"}, {"stage", name}});
  if (style_ == ProgressStyle::kBar) Draw(0);
}

void ProgressPrinter::Progress(double percent) {
  if (style_ == ProgressStyle::kJson) {
    PrintJson({{"event", "progress"}, {"stage", stage_}, {"percent", percent}});
  } else if (style_ == ProgressStyle::kBar && (Since(drawn_) > 0.1 || percent >= 100)) {
    Draw(percent);
  } else if (style_ == ProgressStyle::kLines && percent < 99.9 && percent - lastLine_ >= 10 &&
             Since(drawn_) > 2) {
    lastLine_ = percent;
    drawn_ = Clock::now();
    std::fprintf(stderr, "%-14s %3.0f %%, %s left\n", stage_.c_str(), percent,
                 Duration(Since(start_) * (100 - percent) / percent).c_str());
  }
}

void ProgressPrinter::Draw(double percent) {
  constexpr int kWidth = 30;
  const double share = std::clamp(percent / 100, 0.0, 1.0);
  std::string bar(static_cast<std::size_t>(FloorToInt(share * kWidth + 0.5)), '#');
  bar.resize(kWidth, '.');
  std::string rest;
  const double spent = Since(start_);
  if (share > 0 && spent > 0.5) {
    char rate[40];
    std::snprintf(rate, sizeof rate, "%.1f %%/s", percent / spent);
    rest = std::string(rate) + ", " + Duration(spent * (1 - share) / share) + " left";
  }
  std::fprintf(stderr, "\r\033[K%-14s [%s] %3.0f %%  %s", stage_.c_str(), bar.c_str(), share * 100,
               rest.c_str());
  std::fflush(stderr);
  lineOpen_ = true;
  drawn_ = Clock::now();
}

void ProgressPrinter::ClearLine() {
  if (lineOpen_) std::fprintf(stderr, "\r\033[K");
  lineOpen_ = false;
}

void ProgressPrinter::EndStage(double seconds) {
  ClearLine();
  if (style_ == ProgressStyle::kJson) {
    PrintJson({{"event", "end"}, {"stage", stage_}, {"seconds", seconds}});
  } else if (style_ != ProgressStyle::kQuiet) {
    std::fprintf(stderr, "%-14s %.1f s\n", stage_.c_str(), seconds);
  }
}

void ProgressPrinter::Warn(const std::string& line) {
  ClearLine();
  if (Interrupted()) return;  // what fails after a stop fails because of it
  if (style_ == ProgressStyle::kJson) {
    PrintJson({{"event", "warning"}, {"text", line}});
  } else {
    app::Warn(line);
  }
}

void ProgressPrinter::Note(const std::string& line) {
  ClearLine();
  if (style_ == ProgressStyle::kJson) {
    PrintJson({{"event", "note"}, {"text", line}});
  } else if (style_ != ProgressStyle::kQuiet) {
    std::fprintf(stderr, "%s\n", OneLine(line).c_str());
  }
}

bool ProgressPrinter::StopRequested() { return Interrupted(); }

}  // namespace tqtortho::app
