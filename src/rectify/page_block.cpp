// SPDX-License-Identifier: Apache-2.0
#include "rectify/page_block.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#else
#include <cstdlib>
#endif

namespace tqtortho {

#if defined(__linux__)

void PreferLargePages(void* memory, std::size_t bytes) {
  // madvise wants a page's start; what lies before the first whole page stays as it is.
  constexpr std::uintptr_t kPage = 4096;
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t first = (begin + kPage - 1) / kPage * kPage;
  if (first >= begin + bytes) return;
  std::byte* const page = static_cast<std::byte*>(memory) + (first - begin);
  static_cast<void>(::madvise(page, begin + bytes - first, MADV_HUGEPAGE));
}

PageBlock::PageBlock(std::size_t bytes) : bytes_(std::max<std::size_t>(bytes, 1)) {
  memory_ = ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory_ == MAP_FAILED) throw std::bad_alloc();
  PreferLargePages(memory_, bytes_);
}

PageBlock::~PageBlock() { ::munmap(memory_, bytes_); }

#else

void PreferLargePages(void*, std::size_t) {}

PageBlock::PageBlock(std::size_t bytes)
    : memory_(std::calloc(std::max<std::size_t>(bytes, 1), 1)), bytes_(bytes) {
  if (memory_ == nullptr) throw std::bad_alloc();
}

PageBlock::~PageBlock() { std::free(memory_); }

#endif

}  // namespace tqtortho
