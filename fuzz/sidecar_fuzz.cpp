// SPDX-License-Identifier: Apache-2.0
// Any bytes as a georeference sidecar: no crash, and a refused one leaves zeros.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "rectify/sidecar.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/dev/shm/tqtortho_fuzz_" + std::to_string(::getpid());
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  tqtortho::Sidecar s{1, 1, 1, 1, 1, 1, 1, 1};
  if (!tqtortho::ReadSidecar(path, s) && (s.a != 0 || s.d != 0 || s.b != 0 || s.e != 0 ||
                                          s.c != 0 || s.f != 0 || s.rows != 0 || s.cols != 0)) {
    std::abort();
  }
  std::remove(path.c_str());
  return 0;
}
