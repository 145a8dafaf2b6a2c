// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace tqtortho {

/// Runs `work` and turns any exception (bad_alloc, mostly) into false. The only catch-all of the
/// library: nothing is thrown across the interface or out of a parallel loop.
template <class Work>
[[nodiscard]] bool Guarded(Work&& work) noexcept {
  try {
    return std::forward<Work>(work)();
  } catch (...) {
    return false;
  }
}

}  // namespace tqtortho
