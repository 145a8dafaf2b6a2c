// SPDX-License-Identifier: Apache-2.0
//
// Rectification against a plain image remap. cv::remap with precomputed float maps does only the
// last step of the production pass (read four pixels, blend), so its rate is the yardstick: every
// production benchmark reports cells per second and, as "of_remap", the fraction of the remap
// rate on the same output, on one thread, in the same run. Remap is measured right before each
// benchmark, because a machine's clock drifts.
//
//   rectify_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "rectify/ortho_kernel.h"
#include "rectify/ortho_kernel_reference.h"
#include "testing/photo_scene.h"
#include "testing/test_peer.h"

namespace tqtortho {
namespace {

using testing::PhotoScene;

/// Processor time of this thread: other work on the machine must not count.
double ThreadSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

constexpr int kPhotoCols = 4000;
constexpr int kPhotoRows = 3000;
constexpr double kFlyingHeight = 100;
constexpr double kGsd = 0.025;   // ground size of a photo pixel on level ground
constexpr double kCell = 0.025;  // of the ortho
constexpr double kDsmCell = 0.1;

/// A 12-megapixel drone photo, tilted by a few degrees and turned by 30, over hills with boxes.
PhotoScene DronePhoto(int model, double kappa) {
  PhotoScene scene;
  testing::SetCamera(scene, kPhotoCols, kPhotoRows, 3, kFlyingHeight / kGsd, 0);
  std::mt19937 random(1);
  for (std::uint8_t& value : scene.photo.data)
    value = static_cast<std::uint8_t>(2 + random() % 254);
  scene.camera.offsetX = 7.5;
  scene.camera.distortionModel = model;
  double* c = scene.camera.coefficients;
  if (model == 1) {  // ten to twenty pixels in the corners
    c[0] = 1.5e-9;
    c[1] = -3e-17;
    c[3] = 2e-7;
    c[4] = -1e-7;
    c[5] = 1e-5;
  } else if (model == 3) {
    c[0] = -0.03;
    c[1] = 0.01;
    c[2] = -0.002;
    c[3] = 3e-4;
    c[4] = -2e-4;
  }
  const int dsmSize = 1400;
  testing::SetFlatTile(scene, dsmSize, dsmSize, kDsmCell, 500000, 4000000, 0);
  for (int row = 0; row < dsmSize; ++row) {
    for (int col = 0; col < dsmSize; ++col) {
      const bool box = row / 60 % 4 == 0 && col / 80 % 5 == 0;
      scene.Height(row, col) = static_cast<float>(50 + 3 * std::sin(row * 0.01) +
                                                  2 * std::cos(col * 0.013) + (box ? 8 : 0));
    }
  }
  const double centreX = 500000 + 70.013;
  const double centreY = 4000000 + 70.007;
  double* p = scene.pose.position;
  p[0] = centreX;
  p[1] = centreY;
  p[2] = 50 + kFlyingHeight;
  p[3] = 0.03;
  p[4] = -0.04;
  p[5] = kappa;
  scene.pose.geoRect = {centreX - 45, centreY - 37, centreX + 45, centreY + 37};
  scene.parameters[0] = kCell;
  return scene;
}

/// The maps that make cv::remap sample where the production pass does.
void MakeMaps(const PhotoScene& scene, cv::Mat& mapX, cv::Mat& mapY) {
  tqTORectify rectify;
  TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
  const auto& g = scene.pose.geoRect;
  const int cols = CellsAlong(g.minX, g.maxX, kCell);
  const int rows = CellsAlong(g.minY, g.maxY, kCell);
  mapX.create(rows, cols, CV_32FC1);
  mapY.create(rows, cols, CV_32FC1);
  const double s = 0.001 * scene.camera.pixelSize;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const double X = g.minX + col * kCell;
      const double Y = g.maxY - row * kCell;
      const double h =
          reference::SurfaceSample(scene.dsm, (X - scene.dsm.geoRect[0]) / kDsmCell,
                                   scene.dsm.height - (Y - scene.dsm.geoRect[1]) / kDsmCell);
      double x = 0;
      double y = 0;
      TestPeer::CalcCollinearityEquation(rectify, X, Y, h, x, y);
      float photoCol = 0;
      float photoUp = 0;
      reference::Distort(scene.Interior(),
                         NarrowToFloat((x + 0.001 * scene.camera.offsetX) / s + kPhotoCols * 0.5),
                         NarrowToFloat((y + 0.001 * scene.camera.offsetY) / s + kPhotoRows * 0.5),
                         photoCol, photoUp);
      mapX.at<float>(row, col) = photoCol;
      mapY.at<float>(row, col) = static_cast<float>(kPhotoRows) - photoUp;
    }
  }
}

class Yardstick {
 public:
  explicit Yardstick(PhotoScene& scene)
      : photo_(kPhotoRows, kPhotoCols, CV_8UC3, scene.photo.data.data()) {
    cv::setNumThreads(1);
    MakeMaps(scene, mapX_, mapY_);
    Remap();
  }
  void Remap() {
    cv::remap(photo_, out_, mapX_, mapY_, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    benchmark::DoNotOptimize(out_.data);
  }
  [[nodiscard]] double Cells() const { return static_cast<double>(mapX_.total()); }
  /// Cells per second, the median of five runs.
  double Rate() {
    std::vector<double> seconds;
    for (int i = 0; i < 5; ++i) {
      const double start = ThreadSeconds();
      Remap();
      seconds.push_back(ThreadSeconds() - start);
    }
    std::nth_element(seconds.begin(), seconds.begin() + 2, seconds.end());
    return Cells() / seconds[2];
  }

 private:
  cv::Mat photo_, mapX_, mapY_, out_;
};

constexpr double kTurned = 0.5;

void BM_Remap(benchmark::State& state) {
  PhotoScene scene = DronePhoto(static_cast<int>(state.range(0)), kTurned);
  Yardstick yardstick(scene);
  for (auto _ : state) yardstick.Remap();
  state.counters["cells/s"] =
      benchmark::Counter(yardstick.Cells(), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Remap)->ArgName("model")->Arg(0)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

/// The whole member, from records to the packed output; with the z-buffer also the mask's cleaning.
void BM_DoRectifyingPixels(benchmark::State& state) {
  PhotoScene scene = DronePhoto(static_cast<int>(state.range(0)), kTurned);
  const bool hidden = state.range(1) != 0;
  if (state.range(2) != 0) ::setenv("TQTORTHO_KERNEL", "scalar", 1);
  Yardstick yardstick(scene);
  const double remapRate = yardstick.Rate();
  tqTORectify rectify;
  double seconds = 0;
  for (auto _ : state) {
    tqorkit::PhotoInfo output;
    std::vector<std::uint8_t> mask;
    const double start = ThreadSeconds();
    const bool made = TestPeer::DoTORectfy(
        rectify, scene.photo, scene.dsm, scene.Interior(), scene.Exterior(), 1, scene.parameters,
        nullptr, scene.pose.geoRect, output, false, hidden ? &mask : nullptr, nullptr, nullptr);
    seconds += ThreadSeconds() - start;
    if (!made) state.SkipWithError("the photo was refused");
  }
  ::unsetenv("TQTORTHO_KERNEL");
  const double rate = yardstick.Cells() * static_cast<double>(state.iterations()) / seconds;
  state.counters["cells/s"] = rate;
  state.counters["of_remap"] = rate / remapRate;
}
BENCHMARK(BM_DoRectifyingPixels)
    ->ArgNames({"model", "zbuffer", "scalar"})
    ->ArgsProduct({{0, 1, 3}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

void BM_Collinearity(benchmark::State& state) {
  PhotoScene scene = DronePhoto(0, kTurned);
  tqTORectify rectify;
  TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
  double X = scene.pose.position[0];
  for (auto _ : state) {
    double x = 0;
    double y = 0;
    TestPeer::CalcCollinearityEquation(rectify, X, scene.pose.position[1], 50.0, x, y);
    benchmark::DoNotOptimize(x);
    benchmark::DoNotOptimize(y);
    X += 1e-3;
  }
}
BENCHMARK(BM_Collinearity);

void BM_PixelDistortionCorrect(benchmark::State& state) {
  PhotoScene scene = DronePhoto(static_cast<int>(state.range(0)), kTurned);
  tqTORectify rectify;
  TestPeer::SetPhoto(rectify, scene.Interior(), scene.Exterior());
  float col = 100;
  for (auto _ : state) {
    benchmark::DoNotOptimize(TestPeer::PixelDistortionCorrect(rectify, {col, 400.0F}));
    col = col < 3900 ? col + 1 : 100;
  }
}
BENCHMARK(BM_PixelDistortionCorrect)->ArgName("model")->Arg(0)->Arg(1)->Arg(3);

void BM_PhotoSample(benchmark::State& state) {
  const PhotoScene scene = DronePhoto(0, kTurned);
  const PhotoRaster raster{scene.photo.data.data(), kPhotoCols, kPhotoRows, 3};
  const Resampling method = state.range(0) == 1 ? Resampling::kBilinear : Resampling::kNearest;
  double col = 10;
  std::uint8_t out[3];
  for (auto _ : state) {
    SamplePhoto(raster, method, col, 1500.3, out);
    benchmark::DoNotOptimize(out);
    col = col < 3900 ? col + 1.1 : 10;
  }
}
BENCHMARK(BM_PhotoSample)->ArgName("bilinear")->Arg(0)->Arg(1);

}  // namespace
}  // namespace tqtortho
