// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

namespace tqtortho {

namespace internal {
inline constinit std::atomic<bool> memoryRanOut{false};
}

/// Notes that some work was given up because memory ran out. Operations go on after that by their
/// rules; who answers for the whole job asks TakeMemoryFaults. Safe from several threads.
inline void NoteMemoryFault() noexcept { internal::memoryRanOut.store(true); }

/// Whether that happened since the last TakeMemoryFaults.
[[nodiscard]] inline bool MemoryRanOut() noexcept { return internal::memoryRanOut.load(); }

/// The same, and forgets it.
[[nodiscard]] inline bool TakeMemoryFaults() noexcept {
  return internal::memoryRanOut.exchange(false);
}

}  // namespace tqtortho
