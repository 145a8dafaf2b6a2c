// SPDX-License-Identifier: Apache-2.0
#include "score/patch_registration.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/numeric.h"

namespace tqtortho::host {
namespace {

constexpr int kRim = 3;  ///< cells at the patch's rim that the fit leaves out, beside the shift
constexpr int kRounds = 12;
constexpr double kSettled = 1e-3;  ///< cells
constexpr double kPlain = 4;       ///< standard deviation of grey values
constexpr double kAlike = 0.8;

/// Catmull-Rom weights of the four cells around a position with this fraction.
void CubicWeights(double t, double w[4]) {
  w[0] = 0.5 * (-t + 2 * t * t - t * t * t);
  w[1] = 0.5 * (2 - 5 * t * t + 3 * t * t * t);
  w[2] = 0.5 * (t + 4 * t * t - 3 * t * t * t);
  w[3] = 0.5 * (-t * t + t * t * t);
}

/// moved(x, y) = image(x + dx, y + dy); cells beyond the border repeat it. One fraction serves all
/// cells, so the weights are exact where a library's warp would round them to 1/32 cell.
void Moved(GridView<const float> image, double dx, double dy, cv::Mat1d& moved) {
  const double fx = std::floor(dx), fy = std::floor(dy);
  const int ix = TruncToInt(fx), iy = TruncToInt(fy);
  double wx[4], wy[4];
  CubicWeights(dx - fx, wx);
  CubicWeights(dy - fy, wy);
  cv::Mat1d lines(image.rows, image.cols);
  for (int r = 0; r < image.rows; ++r) {
    for (int c = 0; c < image.cols; ++c) {
      double sum = 0;
      for (int k = 0; k < 4; ++k) {
        sum += wx[k] * image.At(r, std::clamp(c + ix + k - 1, 0, image.cols - 1));
      }
      lines(r, c) = sum;
    }
  }
  moved.create(image.rows, image.cols);
  for (int r = 0; r < image.rows; ++r) {
    for (int c = 0; c < image.cols; ++c) {
      double sum = 0;
      for (int k = 0; k < 4; ++k) {
        sum += wy[k] * lines(std::clamp(r + iy + k - 1, 0, image.rows - 1), c);
      }
      moved(r, c) = sum;
    }
  }
}

cv::Mat1f WithoutMean(GridView<const float> patch, double& deviation) {
  cv::Mat1f copy(patch.rows, patch.cols);
  for (int r = 0; r < patch.rows; ++r) std::copy_n(patch.Row(r), patch.cols, copy[r]);
  cv::Scalar mean, sigma;
  cv::meanStdDev(copy, mean, sigma);
  deviation = sigma[0];
  return copy - mean[0];
}

/// Cells beyond the product's border are not real after a move: the fit keeps away from them.
int Rim(double dx, double dy) {
  return kRim + TruncToInt(std::ceil(std::max(std::abs(dx), std::abs(dy))));
}

/// One step of the fit: reference = moved + ex * d(moved)/dx + ey * d(moved)/dy + gain * moved +
/// offset.
bool FitStep(GridView<const float> reference, const cv::Mat1d& moved, int rim, double& ex,
             double& ey) {
  cv::Matx44d normal = cv::Matx44d::zeros();
  cv::Vec4d right(0, 0, 0, 0);
  for (int r = rim; r < moved.rows - rim; ++r) {
    for (int c = rim; c < moved.cols - rim; ++c) {
      const double a[4] = {0.5 * (moved(r, c + 1) - moved(r, c - 1)),
                           0.5 * (moved(r + 1, c) - moved(r - 1, c)), moved(r, c), 1};
      const double difference = reference.At(r, c) - moved(r, c);
      for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) normal(i, j) += a[i] * a[j];
        right[i] += a[i] * difference;
      }
    }
  }
  cv::Vec4d solution;
  if (!cv::solve(normal, right, solution, cv::DECOMP_CHOLESKY)) return false;
  ex = solution[0];
  ey = solution[1];
  return std::isfinite(ex) && std::isfinite(ey);
}

double Correlation(GridView<const float> a, const cv::Mat1d& b, int rim) {
  double n = 0, sa = 0, sb = 0, aa = 0, bb = 0, ab = 0;
  for (int r = rim; r < b.rows - rim; ++r) {
    for (int c = rim; c < b.cols - rim; ++c) {
      const double p = a.At(r, c), q = b(r, c);
      n += 1;
      sa += p;
      sb += q;
      aa += p * p;
      bb += q * q;
      ab += p * q;
    }
  }
  const double va = aa - sa * sa / n, vb = bb - sb * sb / n;
  return va > 0 && vb > 0 ? (ab - sa * sb / n) / std::sqrt(va * vb) : 0;
}

}  // namespace

bool RegisterPatch(GridView<const float> reference, GridView<const float> product,
                   PatchShift& shift) {
  if (reference.rows != product.rows || reference.cols != product.cols || reference.rows < 16 ||
      reference.cols < 16) {
    return false;
  }
  double spreadReference = 0, spreadProduct = 0;
  const cv::Mat1f a = WithoutMean(reference, spreadReference);
  const cv::Mat1f b = WithoutMean(product, spreadProduct);
  if (!(spreadReference >= kPlain && spreadProduct >= kPlain)) return false;
  cv::Mat1f window;
  cv::createHanningWindow(window, a.size(), CV_32F);
  const cv::Point2d coarse = cv::phaseCorrelate(a, b, window);
  const double farthest = 0.25 * std::min(a.rows, a.cols);
  double dx = coarse.x, dy = coarse.y;
  cv::Mat1d moved;
  bool settled = false;
  for (int round = 0; round < kRounds && !settled; ++round) {
    if (!(std::hypot(dx, dy) <= farthest)) return false;
    Moved(product, dx, dy, moved);
    double ex = 0, ey = 0;
    if (!FitStep(reference, moved, Rim(dx, dy), ex, ey)) return false;
    dx += ex;
    dy += ey;
    settled = std::abs(ex) + std::abs(ey) < kSettled;
  }
  if (!settled || !(std::hypot(dx, dy) <= farthest)) return false;
  Moved(product, dx, dy, moved);
  if (Correlation(reference, moved, Rim(dx, dy)) < kAlike) return false;
  shift = {dx, dy};
  return true;
}

}  // namespace tqtortho::host
