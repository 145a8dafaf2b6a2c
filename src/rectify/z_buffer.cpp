// SPDX-License-Identifier: Apache-2.0
#include "rectify/z_buffer.h"

namespace tqtortho {

ZBuffer::ZBuffer(std::size_t pixelCount, std::size_t cellCount, std::uint8_t* hidden)
    : entryPages_(pixelCount * sizeof(std::uint32_t)),
      distancePages_(cellCount * sizeof(std::int32_t)),
      entries_(entryPages_.As<std::uint32_t>()),
      distances_(distancePages_.As<std::int32_t>()),
      hidden_(hidden) {}

}  // namespace tqtortho
