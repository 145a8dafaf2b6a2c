// SPDX-License-Identifier: Apache-2.0
// Cost per cell of what follows rectification: RefineTOR's blend, the cleaning of a fresh mask and
// the removal of speckles, each beside the plain way to the same bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <opencv2/calib3d.hpp>
#include <random>
#include <vector>

#include "occlusion/gap_fill.h"
#include "occlusion/speckle_filter.h"
#include "rectify/photo_outputs.h"
#include "rectify/weighted_median.h"
#include "stage/cv_bridge.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tqtortho::GridView;

/// A mask as towns give it: shadows of some dozen cells with ragged edges, and pepper.
Bytes TownMask(int size) {
  Bytes mask(static_cast<std::size_t>(size) * size, 0);
  std::mt19937 random(1);
  for (int i = 0; i < size * size / 4000; ++i) {
    const int row = static_cast<int>(random() % size);
    const int col = static_cast<int>(random() % size);
    const int rows = 5 + static_cast<int>(random() % 40);
    for (int r = row; r < std::min(size, row + rows); ++r) {
      const int end = std::min(size, col + 30 + static_cast<int>(random() % 3));
      for (int c = col; c < end; ++c) mask[static_cast<std::size_t>(r) * size + c] = 255;
    }
  }
  for (int i = 0; i < size * size / 100; ++i) mask[random() % mask.size()] ^= 255;
  return mask;
}

void SetCells(benchmark::State& state, int size) {
  state.SetItemsProcessed(state.iterations() * std::int64_t{size} * size);
}

/// Runs `clean` on a fresh copy of the mask each time.
template <class Clean>
void OnMask(benchmark::State& state, Clean clean) {
  const int size = static_cast<int>(state.range(0));
  const Bytes mask = TownMask(size);
  Bytes work;
  for (auto _ : state) {
    state.PauseTiming();
    work = mask;
    state.ResumeTiming();
    clean(GridView<std::uint8_t>(work.data(), size, size));
    benchmark::DoNotOptimize(work.data());
  }
  SetCells(state, size);
}

void BM_FillNarrowGaps(benchmark::State& state) { OnMask(state, tqtortho::FillNarrowGaps); }
void BM_CleanMask(benchmark::State& state) { OnMask(state, tqtortho::CleanMask); }
void BM_RemoveSpeckles(benchmark::State& state) {
  OnMask(state, [](GridView<std::uint8_t> mask) { tqtortho::RemoveSpeckles(mask); });
}
void BM_RemoveSpecklesByCells(benchmark::State& state) {
  OnMask(state, [](GridView<std::uint8_t> mask) {
    cv::Mat image = tqtortho::AsMat(mask);
    cv::Mat wide;
    image.convertTo(wide, CV_16S, 1.0);
    cv::filterSpeckles(wide, 0, 500, 16);
    wide.convertTo(image, CV_8U, 255.0, 0);
  });
}

/// Argument 1: how many of 100 cells carry a weight.
void BM_BlendMedian(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  std::mt19937 random(2);
  Bytes pixels(static_cast<std::size_t>(size) * size * 3);
  for (auto& p : pixels) p = static_cast<std::uint8_t>(1 + random() % 255);
  Bytes weights(static_cast<std::size_t>(size) * size, 0);
  for (auto& w : weights) {
    if (static_cast<int>(random() % 100) < state.range(1)) w = random() % 256;
  }
  for (auto _ : state) {
    tqtortho::BlendMedian({pixels.data(), size, size * 3}, 3, {weights.data(), size, size}, 0, 0);
    benchmark::DoNotOptimize(pixels.data());
  }
  SetCells(state, size);
}

void BM_MarkData(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  const Bytes pixels(static_cast<std::size_t>(size) * size * 3, 7);
  Bytes mask(static_cast<std::size_t>(size) * size);
  for (auto _ : state) {
    tqtortho::MarkData({pixels.data(), size, size * 3}, 3, {mask.data(), size, size});
    benchmark::DoNotOptimize(mask.data());
  }
  SetCells(state, size);
}

BENCHMARK(BM_FillNarrowGaps)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CleanMask)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveSpeckles)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveSpecklesByCells)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlendMedian)
    ->Args({2048, 0})
    ->Args({2048, 10})
    ->Args({2048, 100})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkData)->Arg(2048)->Unit(benchmark::kMillisecond);

}  // namespace
