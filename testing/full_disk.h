// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <csignal>

namespace tqtortho::testing {

/// Lets no file of this process grow beyond `bytes`, as a full disk would.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{std::min(bytes, before_.rlim_cur), before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_{};
};

}  // namespace tqtortho::testing
