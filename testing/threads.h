// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

namespace tqtortho::testing {

/// Parallel loops take this many threads, until destruction.
class Threads {
 public:
  explicit Threads(int count) { omp_set_num_threads(count); }
  ~Threads() { omp_set_num_threads(before_); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  int before_ = omp_get_max_threads();
};

}  // namespace tqtortho::testing
