// SPDX-License-Identifier: Apache-2.0
#include "tqfd/Timer.h"

namespace tqfd {

void Timer::Start() {
  start_ = std::chrono::steady_clock::now();
  stop_ = start_;
  running_ = true;
}

void Timer::Stop() {
  if (!running_) return;
  stop_ = std::chrono::steady_clock::now();
  running_ = false;
}

double Timer::ElapsedSeconds() const {
  const auto end = running_ ? std::chrono::steady_clock::now() : stop_;
  return std::chrono::duration<double>(end - start_).count();
}

}  // namespace tqfd
