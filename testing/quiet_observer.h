// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

#include "run/run_observer.h"

namespace tqtortho::testing {

/// Says nothing, remembers the stages, and stops the job in one of them when it is told to.
class QuietObserver : public host::RunObserver {
 public:
  void BeginStage(const std::string& name) override {
    stages.insert(name);
    stop = stop || name == stopAt;
  }
  void Progress(double) override {}
  void EndStage(double) override {}
  void Warn(const std::string&) override {}
  bool StopRequested() override { return stop; }

  std::set<std::string> stages;
  std::string stopAt;
  bool stop = false;
};

}  // namespace tqtortho::testing
