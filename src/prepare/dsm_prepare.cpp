// SPDX-License-Identifier: Apache-2.0
#include "prepare/dsm_prepare.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/numeric.h"
#include "core/stop_flag.h"
#include "geo/RasterTools.h"
#include "rectify/photo_outputs.h"
#include "stage/surface_limit.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqfd::Rect2_T;
using tqimage::GeoCoefficients;
using tqimage::TqImage;

/// The DSM with its rim of empty cells.
struct WideDsm {
  int cols = 0;
  int rows = 0;
  std::vector<float> heights;
  std::vector<std::uint8_t> origin;
  GeoCoefficients coefficients;
};

bool ReadWide(const std::string& path, int rim, WideDsm& dsm, std::string& error) {
  TqImage image;
  if (!image.Open(path, true)) {
    error = path + ": cannot be opened as a raster; give a GeoTIFF surface model";
    return false;
  }
  const std::int64_t cols = static_cast<std::int64_t>(image.GetWidth()) + 2 * rim;
  const std::int64_t rows = static_cast<std::int64_t>(image.GetHeight()) + 2 * rim;
  error = SurfaceTooLarge(path, image.GetWidth(), image.GetHeight(), rim);
  if (!error.empty()) return false;
  dsm.cols = static_cast<int>(cols);
  dsm.rows = static_cast<int>(rows);
  dsm.heights.resize(static_cast<std::size_t>(cols * rows));
  const Rect2_T<int> rect{-rim, -rim, dsm.cols - rim, dsm.rows - rim};
  const float none = static_cast<float>(kDefaultNoData);
  if (!image.ReadHeights(0, rect, none, dsm.heights.data())) {
    error = path + ": heights cannot be read; the file may be truncated";
    return false;
  }
  dsm.origin.resize(dsm.heights.size());
  std::transform(dsm.heights.begin(), dsm.heights.end(), dsm.origin.begin(),
                 [none](float height) { return height != none ? kHeightTrue : kHeightNone; });
  const GeoCoefficients in = image.GetGeoCoefficients();
  const auto first = in.Raster2World(-rim, -rim);
  const double transform[6] = {first.x, in.GetResolution().x, 0, first.y, 0, in.GetResolution().y};
  dsm.coefficients = GeoCoefficients(transform, dsm.cols, dsm.rows);
  dsm.coefficients.SetProjection(in.GetProjection());
  return true;
}

/// Whether two neighbouring cells with true heights, on the rim of the hole `label` within `box`,
/// differ by more than a wall of one metre and a half steps.
bool CrossesWall(const WideDsm& dsm, const cv::Mat& labels, int label, const cv::Rect& box) {
  constexpr float kWall = 1.5F;
  const auto onRim = [&](int row, int col) {
    if (dsm.origin[static_cast<std::size_t>(row) * dsm.cols + col] != kHeightTrue) return false;
    for (int r = std::max(row - 1, box.y); r <= std::min(row + 1, box.br().y - 1); ++r) {
      for (int c = std::max(col - 1, box.x); c <= std::min(col + 1, box.br().x - 1); ++c) {
        if (labels.at<int>(r, c) == label) return true;
      }
    }
    return false;
  };
  for (int r = box.y; r + 1 < box.br().y; ++r) {
    for (int c = box.x; c + 1 < box.br().x; ++c) {
      if (!onRim(r, c)) continue;
      const std::size_t i = static_cast<std::size_t>(r) * dsm.cols + c;
      if (onRim(r, c + 1) && std::fabs(dsm.heights[i] - dsm.heights[i + 1]) > kWall) return true;
      const std::size_t below = i + static_cast<std::size_t>(dsm.cols);
      if (onRim(r + 1, c) && std::fabs(dsm.heights[i] - dsm.heights[below]) > kWall) return true;
    }
  }
  return false;
}

/// Gives each cell of a hole the height of the nearest cell that has one: walls go on through the
/// hole, where interpolation would lay a ramp from roof to ground.
void ContinueLevels(WideDsm& dsm, const cv::Mat& labels, int label, const cv::Rect& box) {
  const cv::Mat origin(dsm.rows, dsm.cols, CV_8UC1, dsm.origin.data());
  const cv::Mat empty = origin(box) != kHeightTrue;
  cv::Mat distance, nearest;
  cv::distanceTransform(empty, distance, nearest, cv::DIST_L2, cv::DIST_MASK_5,
                        cv::DIST_LABEL_PIXEL);
  std::vector<float> heightOf(1, static_cast<float>(kDefaultNoData));
  const auto cell = [&](int r, int c) -> float& {
    return dsm.heights[static_cast<std::size_t>(box.y + r) * dsm.cols + box.x + c];
  };
  for (int r = 0; r < box.height; ++r) {
    for (int c = 0; c < box.width; ++c) {
      if (empty.at<std::uint8_t>(r, c) != 0) continue;
      const auto k = static_cast<std::size_t>(nearest.at<int>(r, c));
      if (k >= heightOf.size()) heightOf.resize(k + 1, static_cast<float>(kDefaultNoData));
      heightOf[k] = cell(r, c);
    }
  }
  for (int r = 0; r < box.height; ++r) {
    for (int c = 0; c < box.width; ++c) {
      if (labels.at<int>(box.y + r, box.x + c) != label) continue;
      cell(r, c) = heightOf[static_cast<std::size_t>(nearest.at<int>(r, c))];
    }
  }
}

/// Marks the cells of small enclosed holes as filled, and fills those that a wall runs into. The
/// outside and large holes touch a hole label that is too large or reaches the outermost ring,
/// which never holds a height.
void MarkSmallHoles(WideDsm& dsm, int maxHoleCells) {
  const cv::Mat origin(dsm.rows, dsm.cols, CV_8UC1, dsm.origin.data());
  cv::Mat labels, stats, centroids;
  const int count =
      cv::connectedComponentsWithStats(origin == kHeightNone, labels, stats, centroids, 4, CV_32S);
  std::vector<std::uint8_t> small(static_cast<std::size_t>(count), 0);
  for (int k = 1; k < count; ++k) {
    const int* s = stats.ptr<int>(k);
    const bool enclosed = s[cv::CC_STAT_LEFT] > 0 && s[cv::CC_STAT_TOP] > 0 &&
                          s[cv::CC_STAT_LEFT] + s[cv::CC_STAT_WIDTH] < dsm.cols &&
                          s[cv::CC_STAT_TOP] + s[cv::CC_STAT_HEIGHT] < dsm.rows;
    small[static_cast<std::size_t>(k)] = enclosed && s[cv::CC_STAT_AREA] <= maxHoleCells ? 1 : 0;
  }
  for (int k = 1; k < count; ++k) {
    if (small[static_cast<std::size_t>(k)] == 0) continue;
    // The hole and the ring of cells around it; enclosed, so the ring lies in the raster.
    const int* s = stats.ptr<int>(k);
    const cv::Rect box(s[cv::CC_STAT_LEFT] - 1, s[cv::CC_STAT_TOP] - 1, s[cv::CC_STAT_WIDTH] + 2,
                       s[cv::CC_STAT_HEIGHT] + 2);
    if (CrossesWall(dsm, labels, k, box)) ContinueLevels(dsm, labels, k, box);
  }
  for (int r = 0; r < dsm.rows; ++r) {
    const int* label = labels.ptr<int>(r);
    std::uint8_t* row = dsm.origin.data() + static_cast<std::size_t>(r) * dsm.cols;
    for (int c = 0; c < dsm.cols; ++c) {
      if (small[static_cast<std::size_t>(label[c])]) row[c] = kHeightFilled;
    }
  }
}

/// Interpolates holes and rim. Interpolated heights are kept in small holes and within the rim's
/// distance of a true height; everything further stays no data.
bool FillHeights(WideDsm& dsm, const DsmPrepareOptions& options) {
  const float none = static_cast<float>(kDefaultNoData);
  std::vector<float> filled = dsm.heights;
  const int reach = std::max(options.rimCells, TruncToInt(std::sqrt(options.maxHoleCells)) + 1);
  if (!geo::FillNoData(filled, dsm.cols, dsm.rows, none, reach)) return false;

  cv::Mat near;
  const cv::Mat origin(dsm.rows, dsm.cols, CV_8UC1, dsm.origin.data());
  const int side = 2 * options.rimCells + 1;
  cv::dilate(origin == kHeightTrue, near, cv::Mat::ones(side, side, CV_8UC1));
  for (std::size_t i = 0; i < filled.size(); ++i) {
    const bool wanted = dsm.origin[i] == kHeightFilled || near.data[i] != 0;
    if (dsm.heights[i] != none || !wanted) continue;  // true, or continued from beside a wall
    dsm.heights[i] = filled[i];
    if (filled[i] == none && dsm.origin[i] == kHeightFilled) dsm.origin[i] = kHeightNone;
  }
  return true;
}

bool Write(const std::string& path, const WideDsm& dsm, int dataType, const void* cells,
           bool heights) {
  TqImage image;
  return image.Create(path, dsm.cols, dsm.rows, 1, dataType, tqimage::kGeoTiff, true) &&
         image.SetGeoCoefficients(dsm.coefficients) &&
         (!heights || image.SetNoDataValue(0, kDefaultNoData)) &&
         image.WriteImage(0, {0, 0, dsm.cols, dsm.rows}, dataType, cells) && image.Close();
}

}  // namespace

bool PrepareDsm(const std::string& dsmPath, const std::string& outPath,
                const std::string& originPath, const DsmPrepareOptions& options,
                DsmPrepareReport& report, std::string& error) {
  WideDsm dsm;
  if (!ReadWide(dsmPath, options.rimCells, dsm, error)) return false;
  report = {};
  report.cells = static_cast<std::int64_t>(dsm.cols - 2 * options.rimCells) *
                 (dsm.rows - 2 * options.rimCells);
  report.trueCells = std::count(dsm.origin.begin(), dsm.origin.end(), kHeightTrue);
  if (report.trueCells == 0) {
    error = dsmPath + ": holds no height at all (every cell is no data)";
    return false;
  }
  if (processStop.Raised()) return false;
  MarkSmallHoles(dsm, options.maxHoleCells);
  if (processStop.Raised() || !FillHeights(dsm, options)) {
    error = dsmPath + ": holes could not be filled";
    return false;
  }
  report.filledCells = std::count(dsm.origin.begin(), dsm.origin.end(), kHeightFilled);
  if (!Write(outPath, dsm, tqimage::kFloat32, dsm.heights.data(), true) ||
      !Write(originPath, dsm, tqimage::kByte, dsm.origin.data(), false)) {
    error = outPath + ": cannot be written; is the disk full or the directory read-only?";
    return false;
  }
  return true;
}

bool BlankWithoutHeight(const std::string& orthoPath, const std::string& originPath,
                        std::string& error) {
  tqorkit::PhotoInfo ortho;
  GeoCoefficients at;
  if (!TqImage::QuickReadImage(orthoPath, ortho, &at)) {
    error = orthoPath + ": cannot be read back";
    return false;
  }
  TqImage origin;
  if (!origin.Open(originPath, true)) {
    error = originPath + ": cannot be read back";
    return false;
  }
  const GeoCoefficients grid = origin.GetGeoCoefficients();
  std::vector<std::uint8_t> row(static_cast<std::size_t>(grid.GetWidth()));
  int loadedRow = -1;
  bool changed = false;
  for (int r = 0; r < ortho.height; ++r) {
    const auto left = at.Raster2World(0, r);
    const int gridRow = grid.World2Raster(left.x, left.y, -1, -1).y;
    const bool inside = gridRow >= 0 && gridRow < grid.GetHeight();
    if (inside && gridRow != loadedRow) {
      if (!origin.ReadImage(0, {0, gridRow, grid.GetWidth(), gridRow + 1}, tqimage::kByte,
                            row.data())) {
        error = originPath + ": cannot be read back";
        return false;
      }
      loadedRow = gridRow;
    }
    for (int c = 0; c < ortho.width; ++c) {
      const double x = at.Raster2World(c, r).x;
      const int gridCol = grid.World2Raster(x, left.y, -1, -1).x;
      const bool known = inside && gridCol >= 0 && gridCol < grid.GetWidth() &&
                         row[static_cast<std::size_t>(gridCol)] != kHeightNone;
      if (known) continue;
      const std::size_t cell = (static_cast<std::size_t>(r) * ortho.width + c) * ortho.bands;
      for (int b = 0; b < ortho.bands; ++b) {
        changed = changed || ortho.data[cell + b] != 0;
        ortho.data[cell + b] = 0;
      }
    }
  }
  if (changed && !WriteOrthoImage(orthoPath, ortho, at)) {
    error = orthoPath + ": cannot be written; is the disk full?";
    return false;
  }
  return true;
}

}  // namespace tqtortho::host
