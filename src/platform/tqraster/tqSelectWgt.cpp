// SPDX-License-Identifier: Apache-2.0
#include "tqraster/tqSelectWgt.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "core/numeric.h"

namespace TqRaster {

namespace {

constexpr int kPerCell = 8;  // table entries per cell of distance

using WeightTable = std::array<std::uint8_t, tqSelectWgt::kReach * kPerCell + 1>;

const WeightTable& Weights() {
  static const WeightTable table = [] {
    WeightTable t{};
    constexpr double kPi = 3.14159265358979323846;
    for (std::size_t i = 0; i < t.size(); ++i) {
      const double part = static_cast<double>(i) / static_cast<double>(t.size() - 1);
      t[i] = static_cast<std::uint8_t>(std::lround(127.5 * (1.0 - std::cos(kPi * part))));
    }
    return t;
  }();
  return table;
}

}  // namespace

void tqSelectWgt::GenerateDisLookUpTab() { (void)Weights(); }

bool tqSelectWgt::CombinedWeight(tqorkit::tqExtOri& /*photo*/, tqorkit::PhotoInfo& occlusion,
                                 tqorkit::PhotoInfo& weight, int step, int floor) {
  if (occlusion.width <= 0 || occlusion.height <= 0 || occlusion.bands != 1 || step < 1) {
    return false;
  }
  const auto cols = static_cast<std::size_t>(occlusion.width);
  const std::size_t cellCount = cols * static_cast<std::size_t>(occlusion.height);
  if (occlusion.data.size() != cellCount) return false;

  // One ring of hidden cells around the raster makes its border count as hidden.
  cv::Mat seen = cv::Mat::zeros(occlusion.height + 2, occlusion.width + 2, CV_8U);
  for (int row = 0; row < occlusion.height; ++row) {
    const std::uint8_t* in = &occlusion.data[static_cast<std::size_t>(row) * cols];
    std::transform(in, in + cols, seen.ptr(row + 1) + 1,
                   [](std::uint8_t hidden) { return std::uint8_t(hidden == 0 ? 1 : 0); });
  }
  cv::Mat distance;
  cv::distanceTransform(seen, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);

  const WeightTable& weights = Weights();
  const int least = std::clamp(floor, 0, 255);
  std::vector<std::uint8_t> out(cellCount);
  for (int row = 0; row < occlusion.height; ++row) {
    const float* cells = distance.ptr<float>(row + 1) + 1;
    for (std::size_t col = 0; col < cols; ++col) {
      const double at = std::min(static_cast<double>(cells[col]) * step, double{kReach});
      const int index = tqtortho::TruncToInt(at * kPerCell);
      const int value = weights[static_cast<std::size_t>(index)];
      out[static_cast<std::size_t>(row) * cols + col] =
          static_cast<std::uint8_t>(cells[col] > 0 ? std::max(value, least) : 0);
    }
  }
  const bool sameRecord = &weight == &occlusion;
  if (!sameRecord) {
    weight = {};
    weight.width = occlusion.width;
    weight.height = occlusion.height;
    std::copy(std::begin(occlusion.geoRect), std::end(occlusion.geoRect), weight.geoRect);
    weight.resX = occlusion.resX;
    weight.resY = occlusion.resY;
  }
  weight.bands = 1;
  weight.dataType = 1;
  weight.data = std::move(out);
  return true;
}

}  // namespace TqRaster
