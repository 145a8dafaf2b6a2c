// SPDX-License-Identifier: Apache-2.0
// Any bytes as a camera file: no crash, and only whole records are stored.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "pipeline/job_inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream in(text);
  std::map<int, tqorkit::tqIntOri> cameras;
  tqtortho::ReadCameras(in, cameras);
  // Three lines per camera, so a file cannot hold more of them than that.
  if (cameras.size() > size / 3 + 1) std::abort();
  for (const auto& [id, camera] : cameras) {
    if (camera.Get().cameraId != id) std::abort();
  }
  return 0;
}
