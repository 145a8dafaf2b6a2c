// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tqfd/Logger.h"

namespace tqtortho::testing {

/// The log's texts go here instead of the file, until destruction.
class LogCapture {
 public:
  LogCapture() {
    tqfd::Logger::SetSink([this](std::string_view text) { lines.emplace_back(text); });
  }
  ~LogCapture() { tqfd::Logger::SetSink(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines;
};

}  // namespace tqtortho::testing
