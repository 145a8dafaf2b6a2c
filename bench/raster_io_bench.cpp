// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

// Rasters as a job has them: a photo or ortho of 12 megapixels, its mask, a tile of the surface.
// Contents matter to the compression, so they have slopes, edges and sensor noise.
namespace {

using tqimage::TqImage;
using tqorkit::PhotoInfo;

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

PhotoInfo Photo() {
  PhotoInfo image;
  image.width = kWidth;
  image.height = kHeight;
  image.bands = 3;
  image.dataType = tqimage::kByte;
  image.data.reserve(std::size_t{kWidth} * kHeight * 3);
  std::minstd_rand random(1);
  for (int row = 0; row < kHeight; ++row) {
    for (int col = 0; col < kWidth; ++col) {
      const int block = ((row / 90) * 37 + (col / 70) * 53) % 97;
      const int noise = static_cast<int>(random() >> 8) % 9 - 4;
      const int grey = 60 + block + col / 100 + noise;
      image.data.push_back(static_cast<std::uint8_t>(grey));
      image.data.push_back(static_cast<std::uint8_t>(grey + 9 - block / 8));
      image.data.push_back(static_cast<std::uint8_t>(grey / 2 + 30));
    }
  }
  return image;
}

PhotoInfo Mask() {
  PhotoInfo image;
  image.width = kWidth;
  image.height = kHeight;
  image.bands = 1;
  image.dataType = tqimage::kByte;
  image.data.assign(std::size_t{kWidth} * kHeight, 0);
  for (int row = 0; row < kHeight; ++row) {
    for (int col = 0; col < kWidth; ++col) {
      const bool hidden = (row / 150) % 4 == 1 && (col + row / 3) % 400 < 60;
      if (hidden) image.data[static_cast<std::size_t>(row) * kWidth + col] = 255;
    }
  }
  return image;
}

PhotoInfo Heights(int side) {
  PhotoInfo image;
  image.width = side;
  image.height = side;
  image.bands = 1;
  image.dataType = tqimage::kFloat32;
  image.noData = -9999;
  std::minstd_rand random(2);
  std::vector<float> heights;
  for (int row = 0; row < side; ++row) {
    for (int col = 0; col < side; ++col) {
      const double slope = 50 + 10 * std::sin(row * 0.003) + 8 * std::cos(col * 0.005);
      const double roof = (row / 120) % 3 == 1 && (col / 90) % 4 == 2 ? 12 : 0;
      heights.push_back(static_cast<float>(slope + roof + (random() >> 16) % 100 * 0.001));
    }
  }
  image.data.resize(heights.size() * sizeof(float));
  std::memcpy(image.data.data(), heights.data(), image.data.size());
  return image;
}

std::int64_t Bytes(const benchmark::State& state, const PhotoInfo& image) {
  return static_cast<std::int64_t>(state.iterations()) *
         static_cast<std::int64_t>(image.data.size());
}

void WriteRecord(benchmark::State& state, const PhotoInfo& image) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("a.tif");
  for (auto _ : state) {
    if (!TqImage::QuickWriteImage(path, image, nullptr, true)) state.SkipWithError("write failed");
  }
  state.SetBytesProcessed(Bytes(state, image));
  state.counters["fileMB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

void ReadRecord(benchmark::State& state, const PhotoInfo& image) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("a.tif");
  TqImage::QuickWriteImage(path, image, nullptr, true);
  for (auto _ : state) {
    PhotoInfo back;
    if (!TqImage::QuickReadImage(path, back, nullptr)) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(back.data.data());
  }
  state.SetBytesProcessed(Bytes(state, image));
}

void BM_QuickWritePhoto(benchmark::State& state) { WriteRecord(state, Photo()); }
void BM_QuickReadPhoto(benchmark::State& state) { ReadRecord(state, Photo()); }
void BM_QuickWriteMask(benchmark::State& state) { WriteRecord(state, Mask()); }
void BM_QuickReadMask(benchmark::State& state) { ReadRecord(state, Mask()); }
void BM_QuickWriteHeights(benchmark::State& state) { WriteRecord(state, Heights(3000)); }

/// A block's tile out of a larger surface, one corner of it outside.
void BM_ReadSurfaceTile(benchmark::State& state) {
  const tqtortho::testing::TempDir dir;
  const std::string path = dir.File("dsm.tif");
  TqImage::QuickWriteImage(path, Heights(3000), nullptr, true);
  const int side = static_cast<int>(state.range(0));
  std::vector<float> tile(static_cast<std::size_t>(side) * side);
  for (auto _ : state) {
    TqImage image;
    const tqfd::Rect2_T<int> rect{-100, -100, side - 100, side - 100};
    if (!image.Open(path, true) || !image.ReadImage(0, rect, tqimage::kFloat32, tile.data())) {
      state.SkipWithError("read failed");
    }
    benchmark::DoNotOptimize(tile.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * side * side * 4);
}

BENCHMARK(BM_QuickWritePhoto)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuickReadPhoto)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuickWriteMask)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuickReadMask)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuickWriteHeights)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadSurfaceTile)->Arg(500)->Arg(2000)->Unit(benchmark::kMillisecond);

}  // namespace
