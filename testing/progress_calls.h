// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tqtortho::testing {

/// A progress callback that remembers what it was told and gives a fixed answer; its address is the
/// user pointer.
struct Calls {
  std::vector<double> percents;
  std::vector<std::string> messages;
  int answer = 1;
  static int Callback(double percent, const char* message, void* user) {
    auto& calls = *static_cast<Calls*>(user);
    calls.percents.push_back(percent);
    calls.messages.emplace_back(message);
    return calls.answer;
  }
};

}  // namespace tqtortho::testing
