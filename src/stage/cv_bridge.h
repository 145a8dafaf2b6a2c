// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <type_traits>

#include "core/grid_view.h"

namespace tqtortho {

/// OpenCV's view of a grid, without copying; `bands` interleaved samples per cell (the view's
/// columns then count samples).
template <class T>
[[nodiscard]] cv::Mat AsMat(GridView<T> grid, int bands = 1) {
  using Cell = std::remove_const_t<T>;
  return cv::Mat(grid.rows, grid.cols / bands, CV_MAKETYPE(cv::DataType<Cell>::depth, bands),
                 const_cast<Cell*>(grid.cells), static_cast<size_t>(grid.stride) * sizeof(Cell));
}

/// Dilation with the 3 x 3 rectangle, anchor at the centre, the default constant border.
inline void Dilate3x3(const cv::Mat& in, cv::Mat& out, int iterations = 1) {
  cv::dilate(in, out, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)), cv::Point(-1, -1),
             iterations, cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
}

/// Erosion with the 3 x 3 rectangle, anchor at the centre, the default constant border.
inline void Erode3x3(const cv::Mat& in, cv::Mat& out, int iterations = 1) {
  cv::erode(in, out, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)), cv::Point(-1, -1),
            iterations, cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
}

}  // namespace tqtortho
