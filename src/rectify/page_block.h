// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace tqtortho {

/// Asks for large pages under memory that is yet to be touched: getting hundreds of megabytes in
/// small ones takes as long as the work on them. Only a wish; nothing depends on it.
void PreferLargePages(void* memory, std::size_t bytes);

/// A large zeroed array whose memory the system supplies at first touch, so that parts never
/// touched cost nothing.
class PageBlock {
 public:
  /// Throws std::bad_alloc.
  explicit PageBlock(std::size_t bytes);
  ~PageBlock();
  PageBlock(const PageBlock&) = delete;
  PageBlock& operator=(const PageBlock&) = delete;

  template <class T>
  [[nodiscard]] T* As() const {
    return static_cast<T*>(memory_);
  }

 private:
  void* memory_;
  std::size_t bytes_;
};

}  // namespace tqtortho
