// SPDX-License-Identifier: Apache-2.0
//
// What the command says on standard error: one line at a time.
#include <cstdio>

#include "commands.h"
#include "core/stop_flag.h"
#include "one_line.h"
#include "stop_watch.h"

namespace tqtortho::app {

bool Interrupted() { return processStop.Raised(); }

void Complain(const std::string& text) {
  if (!Interrupted()) {
    std::fprintf(stderr, "tqtortho: %s\n", OneLine(text).c_str());
  } else if (TakeLastWord()) {
    // What fails after a stop fails because of it.
    std::fprintf(stderr, "tqtortho: %s\n", kInterruptedText);
  }
}

void Warn(const std::string& text) {
  if (!Interrupted()) std::fprintf(stderr, "warning: %s\n", OneLine(text).c_str());
}

int Fail(int status, const std::string& text) {
  Complain(text);
  return Interrupted() ? kInterrupted : status;
}

}  // namespace tqtortho::app
