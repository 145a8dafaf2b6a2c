// SPDX-License-Identifier: Apache-2.0
// Any bytes as a photo list: no crash, no photo that no line named.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "pipeline/job_inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream in(text);
  std::vector<tqorkit::tqPhotoCategory> blocks;
  tqtortho::ReadPhotoList(in, 0.5, blocks);
  std::size_t items = blocks.size();
  for (const auto& block : blocks) {
    items += block.GetPhotos().size();
    for (const auto& photo : block.GetPhotos()) {
      if (photo.GetPhotoName().empty()) std::abort();
    }
  }
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  if (items > lines) std::abort();
  return 0;
}
