// SPDX-License-Identifier: Apache-2.0
// Visibility of a town of box houses (up to 45 m) with 0.25 m cells from a camera 150 m above it.
// Items are cells. The plain twin and the plain march trace a few rows only; their time per cell is
// what compares.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdlib>
#include <map>
#include <vector>

#include "occlusion/ray_kernel.h"
#include "occlusion/ray_kernel_reference.h"
#include "testing/ray_scenes.h"

namespace tqtortho {
namespace {

const tqDSM& Town(int size) {
  static std::map<int, tqDSM> towns;
  const auto found = towns.find(size);
  if (found != towns.end()) return found->second;
  return towns.emplace(size, testing::TownSurface(size, size, 0.25f, 1)).first->second;
}

Point3 CameraOver(const tqDSM& dsm, double x, double y, double z) {
  return {x * dsm.maxX, y * dsm.maxY, z};
}

void PlainTwin(benchmark::State& state) {
  const tqDSM& dsm = Town(static_cast<int>(state.range(0)));
  const Point3 camera = CameraOver(dsm, 0.47, 0.53, 150);
  long cells = 0;
  for (auto _ : state) {
    reference::Tracer twin(dsm.Surface(), camera);
    for (int r = 5; r < dsm.rows; r += dsm.rows / 16) {
      for (int c = 0; c < dsm.cols; ++c, ++cells) benchmark::DoNotOptimize(twin.Trace(r, c));
    }
  }
  state.SetItemsProcessed(cells);
}

void Trace(benchmark::State& state, const char* kernel, const Point3& place) {
  const tqDSM& dsm = Town(static_cast<int>(state.range(0)));
  const Point3 camera = CameraOver(dsm, place.x, place.y, place.z);
  std::vector<std::uint8_t> mask(dsm.heights.size());
  const GridView<std::uint8_t> hidden(mask.data(), dsm.rows, dsm.cols);
  const int threads = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(1)));
  ::setenv("TQTORTHO_KERNEL", kernel, 1);
  for (auto _ : state) {
    MarkHiddenCells(dsm.Surface(), camera, {}, hidden);
    benchmark::DoNotOptimize(mask.data());
  }
  ::unsetenv("TQTORTHO_KERNEL");
  omp_set_num_threads(threads);
  state.SetItemsProcessed(static_cast<std::int64_t>(mask.size()) * state.iterations());
}

const Point3 kAbove{0.47, 0.53, 150};

BENCHMARK(PlainTwin)->Arg(500)->Arg(1000)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, plain_march, "scalar", kAbove)
    ->Args({500, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, fast, "", kAbove)
    ->ArgsProduct({{500, 1000, 2000, 4000}, {1, 2}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, fast_avx2, "avx2", kAbove)->Args({2000, 1})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, fast_baseline, "baseline", kAbove)
    ->Args({2000, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, fast_from_outside, "", Point3{1.2, -0.3, 150})
    ->Args({2000, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Trace, fast_among_roofs, "", Point3{0.47, 0.53, 25})
    ->Args({1000, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tqtortho
