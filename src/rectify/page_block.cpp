// SPDX-License-Identifier: Apache-2.0
#include "rectify/page_block.h"

#include <algorithm>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#else
#include <cstdlib>
#endif

namespace tqtortho {

#if defined(__linux__)

PageBlock::PageBlock(std::size_t bytes) : bytes_(std::max<std::size_t>(bytes, 1)) {
  memory_ = ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory_ == MAP_FAILED) throw std::bad_alloc();
  // Only a wish; without it everything works, a little slower.
  static_cast<void>(::madvise(memory_, bytes_, MADV_HUGEPAGE));
}

PageBlock::~PageBlock() { ::munmap(memory_, bytes_); }

#else

PageBlock::PageBlock(std::size_t bytes)
    : memory_(std::calloc(std::max<std::size_t>(bytes, 1), 1)), bytes_(bytes) {
  if (memory_ == nullptr) throw std::bad_alloc();
}

PageBlock::~PageBlock() { std::free(memory_); }

#endif

}  // namespace tqtortho
