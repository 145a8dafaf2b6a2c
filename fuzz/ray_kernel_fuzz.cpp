// SPDX-License-Identifier: Apache-2.0
// The ray kernel against its plain twin on surfaces and cameras made from the fuzzer's bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "occlusion/ray_kernel.h"
#include "occlusion/ray_kernel_reference.h"
#include "testing/ray_scenes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tqtortho;  // NOLINT(google-build-using-namespace)
  // Two bytes per number; beyond the input a fixed sequence goes on, so that few bytes make a
  // scene.
  std::size_t used = 0;
  std::uint32_t tail = 12345;
  const testing::Draw draw = [&](unsigned limit) {
    if (used + 2 <= size) {
      const unsigned value = data[used] + 256u * data[used + 1];
      used += 2;
      return value % limit;
    }
    tail = tail * 1664525u + 1013904223u;
    return (tail >> 8) % limit;
  };
  const testing::RayCase scene = testing::AwkwardCase(draw);
  const tqDSM& dsm = scene.dsm;
  std::vector<std::uint8_t> mask(dsm.heights.size());
  MarkHiddenCells(dsm.Surface(), scene.camera,
                  scene.examine.empty()
                      ? GridView<const std::uint8_t>()
                      : GridView<const std::uint8_t>(scene.examine.data(), dsm.rows, dsm.cols),
                  GridView<std::uint8_t>(mask.data(), dsm.rows, dsm.cols));

  // The twin marches for long where the kernel need not: it checks as many cells as it can afford.
  constexpr long kStepBudget = 200000;
  reference::Tracer twin(dsm.Surface(), scene.camera);
  const std::size_t count = mask.size();
  std::size_t stride = 7919;
  while (count % stride == 0) ++stride;
  for (std::size_t k = 0, i = 0; k < count && twin.Steps() < kStepBudget;
       ++k, i = (i + stride) % count) {
    const bool examined = scene.examine.empty() || scene.examine[i] != 0;
    const int expected =
        examined ? twin.Trace(static_cast<int>(i) / dsm.cols, static_cast<int>(i) % dsm.cols) : 0;
    if (expected != mask[i]) {
      std::fprintf(stderr, "cell %zu: %d, the twin says %d\n", i, mask[i], expected);
      std::abort();
    }
  }
  return 0;
}
