// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "tqfd/Export.h"

namespace tqfd {

/// A stop watch on the steady clock. A timer that was never started reports 0 seconds.
class TQTORTHO_API Timer {
 public:
  void Start();
  void Stop();
  /// Seconds between Start and Stop, or until now while running.
  [[nodiscard]] double ElapsedSeconds() const;

 private:
  std::chrono::steady_clock::time_point start_{};
  std::chrono::steady_clock::time_point stop_{};
  bool running_ = false;
};

}  // namespace tqfd
