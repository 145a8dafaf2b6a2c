// SPDX-License-Identifier: Apache-2.0
//
// The mosaic stage on squares of 4,000 cells and more: time must grow with the cells, memory must
// not. Larger ones on request:  mosaic_bench --benchmark_filter='/60000/'
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mosaic/mosaic_stage.h"
#include "stage/photo_files.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace {

using namespace tqtortho;
using tqimage::TqImage;

constexpr double kGsd = 0.1;
constexpr int kOrtho = 3900;  // cells on the side of an ortho
constexpr int kPitch = 3500;  // from one to the next
constexpr double kFlightHeight = 390;

/// Most memory in use since the last call, in bytes; 0 where the system does not tell.
double PeakMemory() {
  std::ifstream status("/proc/self/status");
  double peak = 0;
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) std::istringstream(line.substr(6)) >> peak;
  }
  std::ofstream("/proc/self/clear_refs") << "5";
  return peak * 1024;
}

tqimage::GeoCoefficients At(double x, double y, double cell, int cols, int rows) {
  const double transform[6] = {x, cell, 0, y, 0, -cell};
  return {transform, cols, rows};
}

/// A plain with a tall box every 200 m, at a tenth of the mosaic's resolution.
void WriteSurface(const std::string& path, int photosAcross) {
  tqorkit::PhotoInfo dsm;
  dsm.width = dsm.height = photosAcross * kPitch / 10 + 80;
  dsm.bands = 1;
  dsm.dataType = tqimage::kFloat32;
  std::vector<float> heights;
  for (int row = 0; row < dsm.height; ++row) {
    for (int col = 0; col < dsm.width; ++col) {
      heights.push_back(row % 200 < 30 && col % 200 < 30 ? 20.0F
                                                         : 0.001F * static_cast<float>(col));
    }
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(heights.data());
  dsm.data.assign(bytes, bytes + heights.size() * sizeof(float));
  const auto at = At(-20, 20, 10 * kGsd, dsm.width, dsm.height);
  (void)TqImage::QuickWriteImage(path, dsm, &at, true);
}

/// Orthos side by side; one picture serves for all.
host::MosaicInput WriteOrthos(const std::string& dir, int across) {
  tqorkit::PhotoInfo ortho;
  ortho.width = ortho.height = kOrtho;
  ortho.bands = 3;
  ortho.dataType = tqimage::kByte;
  for (int row = 0; row < kOrtho; ++row) {
    for (int col = 0; col < 3 * kOrtho; ++col) {
      ortho.data.push_back(static_cast<std::uint8_t>(40 + (row / 16 * 7 + col / 48 * 11) % 160));
    }
  }
  const std::string master = dir + "/master.tif";
  const auto nowhere = At(0, 0, kGsd, kOrtho, kOrtho);
  (void)TqImage::QuickWriteImage(master, ortho, &nowhere, true);

  host::MosaicInput input;
  input.orthoPrefix = dir + "/";
  input.gsd = kGsd;
  input.cameras[0].Set({0, "c", kOrtho + 20, kOrtho + 20, kFlightHeight / kGsd, 1, 0, 0, 0, {}});
  input.blocks.resize(1);
  for (int i = 0; i < across * across; ++i) {
    const double x = i % across * kPitch * kGsd;
    const double y = -(i / across * kPitch) * kGsd;
    const double span = (kOrtho - 1) * kGsd;
    tqorkit::tqExtOri::EXTORI record;
    record.photoName = std::to_string(i) + ".tif";
    record.position[0] = x + span / 2;
    record.position[1] = y - span / 2;
    record.position[2] = kFlightHeight;
    record.geoRect = {x, y - span, x + span, y};
    tqorkit::tqExtOri photo;
    photo.Set(record);
    input.blocks[0].InsertPhoto(photo);
    const std::string path = OrthoName(input.orthoPrefix, record.photoName, 0);
    std::filesystem::copy_file(master, path);
    TqImage image;
    (void)(image.Open(path, false) && image.SetGeoCoefficients(At(x, y, kGsd, kOrtho, kOrtho)) &&
           image.Close());
  }
  return input;
}

void BM_Mosaic(benchmark::State& state) {
  const int side = static_cast<int>(state.range(0));
  const int across = std::max((side - kOrtho + kPitch - 1) / kPitch, 0) + 1;
  const testing::TempDir dir;
  const std::string work = dir.File("work");
  std::filesystem::create_directories(work);
  WriteSurface(work + "/dsm.tif", across);
  const host::MosaicInput input = WriteOrthos(work, across);
  host::MosaicOptions options;
  options.workDir = work;
  options.outDir = dir.File("out");
  host::MosaicReport report;
  (void)PeakMemory();
  for (auto _ : state) {
    std::string error;
    if (!host::MakeMosaic(input, options, {}, report, error)) {
      state.SkipWithError(error.c_str());
      break;
    }
  }
  for (const std::string& line : report.leftOut) state.SkipWithError(line.c_str());
  const auto cells = static_cast<double>(report.cells);
  const double orthoCells =
      static_cast<double>(input.blocks[0].GetPhotos().size()) * kOrtho * kOrtho;
  state.counters["Mcells"] = cells / 1e6;
  state.counters["seen"] = static_cast<double>(report.seen) / cells;
  state.counters["peakMB"] = PeakMemory() / 1e6;
  for (const auto& stage : report.stages) state.counters[stage.name + "_s"] = stage.seconds;
  state.counters["perOrthoCell"] = benchmark::Counter(
      orthoCells, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Mosaic)
    ->Arg(4000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
// These take minutes.
BENCHMARK(BM_Mosaic)
    ->Name("BM_LargeMosaic")
    ->Arg(20000)
    ->Arg(40000)
    ->Arg(60000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace
