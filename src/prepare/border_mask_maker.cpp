// SPDX-License-Identifier: Apache-2.0
#include "prepare/border_mask_maker.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <vector>

#include "core/numeric.h"
#include "stage/border_mask.h"
#include "stage/call_guard.h"
#include "stage/cv_bridge.h"
#include "stage/surface_limit.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
constexpr int kMaxBorderCells = 10000;
constexpr int kMaxReachCells = 1000;

/// Half the reach in cells of the mask.
int ReachCells(const BorderMaskOptions& options, double cellSize) {
  return std::clamp(TruncToInt(0.5 * options.reachM / cellSize + 0.5), 1, kMaxReachCells);
}

/// Rows beyond a strip that its result can depend on: the median, the profiles, the longest way
/// through a border that is just long enough, and the widening.
int OverlapRows(const BorderMaskOptions& options, double cellSize) {
  return 1 + 3 * ReachCells(options, cellSize) + options.minBorderCells + options.widenCells;
}

/// 3 x 3 median of the cells with a height; cells without one stay so.
std::vector<float> Median3x3(GridView<const float> heights, const StopFlag* stop) {
  std::vector<float> result(heights.CellCount());
  std::size_t next = 0;
  for (int row = 0; row < heights.rows; ++row) {
    GiveUpIfRaised(stop);
    for (int col = 0; col < heights.cols; ++col, ++next) {
      result[next] = kNone;
      if (std::isnan(heights.At(row, col))) continue;
      std::array<float, 9> window;
      int count = 0;
      for (int r = std::max(row - 1, 0); r <= std::min(row + 1, heights.rows - 1); ++r) {
        for (int c = std::max(col - 1, 0); c <= std::min(col + 1, heights.cols - 1); ++c) {
          if (!std::isnan(heights.At(r, c))) window[count++] = heights.At(r, c);
        }
      }
      std::nth_element(window.begin(), window.begin() + count / 2, window.begin() + count);
      result[next] = window[count / 2];
    }
  }
  return result;
}

/// Steps of one height field.
class StepFinder {
 public:
  StepFinder(GridView<const float> heights, int reach, double step, double slopeFactor)
      : heights_(heights), reach_(reach), step_(step), slopeFactor_(slopeFactor) {}

  [[nodiscard]] bool IsStep(int row, int col) const {
    if (std::isnan(heights_.At(row, col))) return false;
    return IsStepAlong(row, col, 0, 1) || IsStepAlong(row, col, 1, 0) ||
           IsStepAlong(row, col, 1, 1) || IsStepAlong(row, col, 1, -1);
  }

 private:
  [[nodiscard]] float Height(int row, int col) const {
    return heights_.Contains(row, col) ? heights_.At(row, col) : kNone;
  }

  [[nodiscard]] bool IsStepAlong(int row, int col, int down, int right) const {
    const int r = reach_;
    const float ahead = Height(row + r * down, col + r * right);
    const float behind = Height(row - r * down, col - r * right);
    // NaN is no step: the comparison is false.
    const double rise = std::fabs(static_cast<double>(ahead) - behind);
    if (!(rise > step_)) return false;
    if (slopeFactor_ == 0) return true;
    return rise - slopeFactor_ * std::max(RiseBeyond(ahead, row, col, down, right),
                                          RiseBeyond(behind, row, col, -down, -right)) >
           step_;
  }

  /// What the slope of one side explains of the rise between the two sides; NaN when unknown.
  [[nodiscard]] double RiseBeyond(float side, int row, int col, int down, int right) const {
    const int r = reach_;
    const float far = Height(row + 3 * r * down, col + 3 * r * right);
    if (!std::isnan(far)) return std::fabs(static_cast<double>(far) - side);
    const float near = Height(row + 2 * r * down, col + 2 * r * right);
    return std::isnan(near) ? std::numeric_limits<double>::infinity()
                            : 2 * std::fabs(static_cast<double>(near) - side);
  }

  GridView<const float> heights_;
  int reach_;
  double step_;
  double slopeFactor_;
};

/// Clears the 8-connected borders of fewer than `minCells` cells.
void DropShortBorders(GridView<std::uint8_t> mask, int minCells) {
  if (minCells <= 1) return;
  constexpr std::uint8_t kVisited = 1;  // of a border that is long enough, until the end
  std::vector<tqfd::Point2_T<int>> border;
  for (int row = 0; row < mask.rows; ++row) {
    for (int col = 0; col < mask.cols; ++col) {
      if (mask.At(row, col) != kTallBorder) continue;
      border.assign(1, {col, row});
      mask.At(row, col) = kVisited;
      for (std::size_t i = 0; i < border.size(); ++i) {
        const tqfd::Point2_T<int> cell = border[i];
        for (int r = cell.y - 1; r <= cell.y + 1; ++r) {
          for (int c = cell.x - 1; c <= cell.x + 1; ++c) {
            if (!mask.Contains(r, c) || mask.At(r, c) != kTallBorder) continue;
            mask.At(r, c) = kVisited;
            border.push_back({c, r});
          }
        }
      }
      if (border.size() >= static_cast<std::size_t>(minCells)) continue;
      for (const tqfd::Point2_T<int>& cell : border) mask.At(cell.y, cell.x) = 0;
    }
  }
  for (int row = 0; row < mask.rows; ++row) {
    std::replace(mask.Row(row), mask.Row(row) + mask.cols, kVisited, kTallBorder);
  }
}

/// Reads DSM rows in halves: the mask's rows [begin, end).
bool ReadHalfRows(const TqImage& dsm, double noData, int begin, int end, std::vector<float>& half) {
  const int cols = dsm.GetWidth();
  const int halfCols = (cols + 1) / 2;
  half.resize(static_cast<std::size_t>(end - begin) * halfCols);
  constexpr int kRowsAtATime = 64;  // of the mask
  std::vector<float> full;
  for (int row = begin; row < end; row += kRowsAtATime) {
    const int halfEnd = std::min(row + kRowsAtATime, end);
    const int fullEnd = std::min(2 * halfEnd, dsm.GetHeight());
    const int fullRows = fullEnd - 2 * row;
    full.resize(static_cast<std::size_t>(fullRows) * cols);
    if (!dsm.ReadHeights(0, {0, 2 * row, cols, fullEnd}, NarrowToFloat(noData), full.data())) {
      return false;
    }
    HalveHeights(
        {full.data(), fullRows, cols}, noData,
        {half.data() + static_cast<std::size_t>(row - begin) * halfCols, halfEnd - row, halfCols});
  }
  return true;
}

bool WriteStrips(const TqImage& dsm, const GeoCoefficients& coefficients,
                 const BorderMaskOptions& options, TqImage& out, BorderMaskReport& report,
                 const std::function<bool(double)>& progress) {
  const int cols = coefficients.GetWidth();
  const int rows = coefficients.GetHeight();
  const double noData = dsm.HasNoDataValue(0) ? dsm.GetNoDataValue(0) : kDefaultNoData;
  const double cell = coefficients.GetResolution().x;
  const int overlap = OverlapRows(options, cell);
  const int stripRows = static_cast<int>(
      std::clamp<std::int64_t>(options.stripCells / cols, overlap, std::max(rows, overlap)));
  std::vector<float> heights;
  std::vector<std::uint8_t> mask;
  for (int row = 0; row < rows; row += stripRows) {
    const int end = std::min(row + stripRows, rows);
    const int begin = std::max(row - overlap, 0);
    const int readRows = std::min(end + overlap, rows) - begin;
    if (!ReadHalfRows(dsm, noData, begin, begin + readRows, heights)) return false;
    mask.resize(heights.size());
    MarkTallBorders({heights.data(), readRows, cols}, cell, options, {mask.data(), readRows, cols});
    const std::size_t first = static_cast<std::size_t>(row - begin) * cols;
    const std::size_t count = static_cast<std::size_t>(end - row) * cols;
    report.cells += static_cast<std::int64_t>(count);
    report.heightCells +=
        std::count_if(heights.begin() + static_cast<std::ptrdiff_t>(first),
                      heights.begin() + static_cast<std::ptrdiff_t>(first + count),
                      [](float height) { return !std::isnan(height); });
    report.borderCells +=
        std::count(mask.begin() + static_cast<std::ptrdiff_t>(first),
                   mask.begin() + static_cast<std::ptrdiff_t>(first + count), kTallBorder);
    const bool everywhere = options.code == BorderCode::kTraceEverywhere;
    for (std::size_t i = first; options.code != BorderCode::kTall && i < first + count; ++i) {
      if (mask[i] == kTallBorder) {
        mask[i] = kBorderLine;
      } else if (everywhere && !std::isnan(heights[i])) {
        mask[i] = kTallBorder;
      }
    }
    if (!out.WriteImage(0, {0, row, cols, end}, tqimage::kByte, mask.data() + first)) return false;
    if (progress && !progress(static_cast<double>(end) / rows)) return false;
  }
  return true;
}

}  // namespace

void HalveHeights(GridView<const float> heights, double noData, GridView<float> half) {
  for (int row = 0; row < half.rows; ++row) {
    for (int col = 0; col < half.cols; ++col) {
      double sum = 0;
      int count = 0;
      for (int r = 2 * row; r < std::min(2 * row + 2, heights.rows); ++r) {
        for (int c = 2 * col; c < std::min(2 * col + 2, heights.cols); ++c) {
          const float height = heights.At(r, c);
          if (!std::isfinite(height) || std::fabs(height - noData) < kRectifyNoDataTolerance) {
            continue;
          }
          sum += height;
          ++count;
        }
      }
      half.At(row, col) = count > 0 ? NarrowToFloat(sum / count) : kNone;
    }
  }
}

void MarkTallBorders(GridView<const float> heights, double cellSize,
                     const BorderMaskOptions& options, GridView<std::uint8_t> mask) {
  std::vector<float> smoothed;
  if (options.median) {
    smoothed = Median3x3(heights, options.stop);
    heights = GridView<const float>(smoothed.data(), heights.rows, heights.cols);
  }
  const StepFinder finder(heights, ReachCells(options, cellSize), options.stepM,
                          options.slopeFactor);
  for (int row = 0; row < heights.rows; ++row) {
    GiveUpIfRaised(options.stop);
    for (int col = 0; col < heights.cols; ++col) {
      mask.At(row, col) = finder.IsStep(row, col) ? kTallBorder : 0;
    }
  }
  DropShortBorders(mask, options.minBorderCells);
  if (options.widenCells > 0 && !mask.Empty()) {
    const cv::Mat borders = AsMat(mask);
    cv::Mat widened;
    Dilate3x3(borders, widened, options.widenCells);
    widened.copyTo(borders);
  }
}

bool WriteBorderMask(const std::string& dsmPath, const std::string& outPath,
                     const BorderMaskOptions& options, std::string& error, BorderMaskReport* report,
                     const std::function<bool(double)>& progress) {
  error = outPath + ": not enough memory";
  return Guarded([&] {
    const auto fail = [&](const std::string& line) {
      error = line;
      return false;
    };
    if (!(options.stepM > 0) || !(options.reachM >= 0) || !(options.slopeFactor >= 0) ||
        options.minBorderCells < 0 || options.minBorderCells > kMaxBorderCells ||
        options.widenCells < 0 || options.widenCells > kMaxReachCells) {
      return fail(
          "border mask: give a positive step, a reach and a slope factor of 0 or more, 0 to 10000 "
          "cells");
    }
    TqImage dsm;
    if (!dsm.Open(dsmPath, true))
      return fail(dsmPath + ": cannot be opened as a raster; give a GeoTIFF surface model");
    const std::string tooLarge = SurfaceTooLarge(dsmPath, dsm.GetWidth(), dsm.GetHeight());
    if (!tooLarge.empty()) return fail(tooLarge);
    const GeoCoefficients from = dsm.GetGeoCoefficients();
    const auto cell = from.GetResolution();
    if (!(cell.x > 0) || !(cell.y < 0)) return fail(dsmPath + ": is not north-up");
    const auto first = from.Raster2World(0.5, 0.5);
    const double transform[6] = {first.x, 2 * cell.x, 0, first.y, 0, 2 * cell.y};
    GeoCoefficients to(transform, (dsm.GetWidth() + 1) / 2, (dsm.GetHeight() + 1) / 2);
    to.SetProjection(from.GetProjection());

    std::error_code ignored;
    const std::filesystem::path directory = std::filesystem::path(outPath).parent_path();
    if (!directory.empty()) std::filesystem::create_directories(directory, ignored);
    TqImage out;
    if (!out.Create(outPath, to.GetWidth(), to.GetHeight(), 1, tqimage::kByte, tqimage::kGeoTiff,
                    true) ||
        !out.SetGeoCoefficients(to)) {
      return fail(outPath + ": cannot be created");
    }
    BorderMaskReport made;
    BorderMaskOptions stoppable = options;
    stoppable.stop = &processStop;
    if (!WriteStrips(dsm, to, stoppable, out, made, progress)) {
      return fail(outPath + ": heights of " + dsmPath + " cannot be read, or the mask not written");
    }
    if (!out.Close()) return fail(outPath + ": cannot be written; the disk may be full");
    if (report != nullptr) *report = made;
    error.clear();
    return true;
  });
}

}  // namespace tqtortho::host
