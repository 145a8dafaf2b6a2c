// SPDX-License-Identifier: Apache-2.0
#include "update/feather_blend.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "core/numeric.h"
#include "stage/cv_bridge.h"

namespace tqtortho {

namespace {

constexpr int kFeather = 9;
constexpr int kBlendedBands = 3;
constexpr double kShareScale = 0.00392156862745098;  // 1 / 255

bool IsHidden(GridView<const std::uint8_t> hidden, int row, int col) {
  return hidden.Contains(row, col) && hidden.At(row, col) == 255;
}

std::uint8_t* Pixel(const ColourView& image, int row, int col) {
  return image.samples + (static_cast<std::ptrdiff_t>(row) * image.cols + col) * image.bands;
}

bool IsZero(const std::uint8_t* pixel, int bands) {
  return std::all_of(pixel, pixel + bands, [](std::uint8_t sample) { return sample == 0; });
}

}  // namespace

std::vector<std::uint8_t> KeptShare(GridView<const std::uint8_t> hidden, int rows, int cols) {
  std::vector<std::uint8_t> share(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
  const GridView<std::uint8_t> view(share.data(), rows, cols);
  bool any = false;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      if (!IsHidden(hidden, row, col)) continue;
      view.At(row, col) = 255;
      any = true;
    }
  }
  if (any) {
    cv::Mat grown = AsMat(view);
    const cv::Size size(kFeather, kFeather);
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, size);
    const auto blur = [&] { cv::GaussianBlur(grown, grown, size, 0, 0, cv::BORDER_REFLECT_101); };
    blur();
    cv::dilate(grown, grown, element, cv::Point(-1, -1), 1);
    blur();
    cv::dilate(grown, grown, element, cv::Point(-1, -1), 1);
    blur();
  }
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      std::uint8_t& cell = view.At(row, col);
      cell = IsHidden(hidden, row, col) ? std::uint8_t{0} : static_cast<std::uint8_t>(255 - cell);
    }
  }
  return share;
}

void BlendTexture(GridView<const std::uint8_t> hidden, GridView<const std::uint8_t> kept,
                  const ColourView& texture, const ColourView& ortho) {
  const int common = std::min(texture.bands, ortho.bands);
  const int blended = std::min(common, kBlendedBands);
  for (int row = 0; row < ortho.rows; ++row) {
    for (int col = 0; col < ortho.cols; ++col) {
      std::uint8_t* own = Pixel(ortho, row, col);
      std::uint8_t* other = Pixel(texture, row, col);
      if (!IsZero(other, texture.bands)) {
        if (!IsHidden(hidden, row, col)) std::copy_n(other, common, own);
      } else if (!IsZero(own, ortho.bands)) {
        std::copy_n(own, common, other);
      }
      const double w =
          static_cast<double>(NarrowToFloat(static_cast<double>(kept.At(row, col)) * kShareScale));
      for (int band = 0; band < blended; ++band) {
        own[band] = static_cast<std::uint8_t>(TruncToInt(other[band] * (1 - w) + own[band] * w));
      }
    }
  }
}

}  // namespace tqtortho
