// SPDX-License-Identifier: Apache-2.0
#include "tqraster/tqSelectWgt.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "core/numeric.h"

namespace TqRaster {

namespace {

constexpr int kPerCell = 8;  // table entries per cell of distance

using WeightTable = std::array<double, tqSelectWgt::kReach * kPerCell + 1>;

const WeightTable& Weights() {
  static const WeightTable table = [] {
    WeightTable t{};
    constexpr double kPi = 3.14159265358979323846;
    for (std::size_t i = 0; i < t.size(); ++i) {
      const double part = static_cast<double>(i) / static_cast<double>(t.size() - 1);
      t[i] = 127.5 * (1.0 - std::cos(kPi * part));
    }
    return t;
  }();
  return table;
}

double DistanceWeight(const WeightTable& table, float cells) {
  const double reached = std::min(static_cast<double>(cells), double{tqSelectWgt::kReach});
  return table[static_cast<std::size_t>(tqtortho::TruncToInt(reached * kPerCell + 0.5))];
}

/// cos(theta)^power of the cells of a level raster seen from a projection centre.
class NadirFactor {
 public:
  NadirFactor(const tqorkit::tqExtOri& photo, const tqorkit::PhotoInfo& raster, int power)
      : raster_(raster), halfPower_(0.5 * power) {
    double pose[6] = {};
    photo.GetPos(pose);
    x_ = pose[0];
    y_ = pose[1];
    const double above = pose[2] - raster.defaultZ;
    squaredHeight_ = above * above;
    const double sum = x_ + y_ + raster.geoRect[0] + raster.geoRect[3] + squaredHeight_;
    applies_ = power > 0 && above > 0 && raster.resX != 0 && raster.resY != 0 &&
               std::isfinite(sum) && std::isfinite(raster.resX) && std::isfinite(raster.resY);
  }

  [[nodiscard]] double At(int row, int col) const {
    if (!applies_) return 1.0;
    const double dx = raster_.geoRect[0] + col * raster_.resX - x_;
    const double dy = raster_.geoRect[3] + row * raster_.resY - y_;
    const double squaredCosine = squaredHeight_ / (squaredHeight_ + dx * dx + dy * dy);
    return halfPower_ == 1.0 ? squaredCosine : std::pow(squaredCosine, halfPower_);
  }

 private:
  const tqorkit::PhotoInfo& raster_;
  double halfPower_;
  double x_ = 0;
  double y_ = 0;
  double squaredHeight_ = 0;
  bool applies_ = false;
};

/// Distance in cells from each shown cell to the nearest one that is not, counting a ring of such
/// cells around the raster; the result has that ring too.
cv::Mat DistanceInside(const tqorkit::PhotoInfo& occlusion) {
  const auto cols = static_cast<std::size_t>(occlusion.width);
  cv::Mat shown = cv::Mat::zeros(occlusion.height + 2, occlusion.width + 2, CV_8U);
  for (int row = 0; row < occlusion.height; ++row) {
    const std::uint8_t* in = &occlusion.data[static_cast<std::size_t>(row) * cols];
    std::transform(in, in + cols, shown.ptr(row + 1) + 1,
                   [](std::uint8_t hidden) { return std::uint8_t(hidden == 0 ? 1 : 0); });
  }
  cv::Mat distance;
  cv::distanceTransform(shown, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
  return distance;
}

}  // namespace

void tqSelectWgt::GenerateDisLookUpTab() { (void)Weights(); }

bool tqSelectWgt::CombinedWeight(tqorkit::tqExtOri& photo, tqorkit::PhotoInfo& occlusion,
                                 tqorkit::PhotoInfo& weight, int nadirPower, int least) {
  if (occlusion.width <= 0 || occlusion.height <= 0 || occlusion.bands != 1 || nadirPower < 0) {
    return false;
  }
  const auto cols = static_cast<std::size_t>(occlusion.width);
  const std::size_t cellCount = cols * static_cast<std::size_t>(occlusion.height);
  if (occlusion.data.size() != cellCount) return false;

  const cv::Mat distance = DistanceInside(occlusion);
  const NadirFactor nadir(photo, occlusion, nadirPower);
  const WeightTable& table = Weights();
  const int leastShown = std::clamp(least, 1, 255);
  std::vector<std::uint8_t> out(cellCount, 0);
  for (int row = 0; row < occlusion.height; ++row) {
    const float* cells = distance.ptr<float>(row + 1) + 1;
    std::uint8_t* line = &out[static_cast<std::size_t>(row) * cols];
    for (int col = 0; col < occlusion.width; ++col) {
      if (!(cells[col] > 0)) continue;
      const double value = DistanceWeight(table, cells[col]) * nadir.At(row, col);
      const int rounded = tqtortho::TruncToInt(value + 0.5);
      line[col] = static_cast<std::uint8_t>(std::max(rounded, leastShown));
    }
  }
  if (&weight != &occlusion) {
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
