// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "core/memory_faults.h"

namespace tqtortho {

/// Runs `work` and turns any exception (bad_alloc, mostly) into false. The only catch-all of the
/// library: nothing is thrown across the interface or out of a parallel loop.
template <class Work>
[[nodiscard]] bool Guarded(Work&& work) noexcept {
  try {
    return std::forward<Work>(work)();
  } catch (const std::bad_alloc&) {
    NoteMemoryFault();
    return false;
  } catch (const std::exception& error) {
    // OpenCV's own class for this is no bad_alloc: "Failed to allocate N bytes".
    const std::string_view what = error.what();
    if (what.find("allocate") != std::string_view::npos) NoteMemoryFault();
    return false;
  } catch (...) {
    return false;
  }
}

}  // namespace tqtortho
