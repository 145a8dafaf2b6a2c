// SPDX-License-Identifier: Apache-2.0
// The occlusion mask members of tqTORectify: files in and out, the work is done by the kernels.
#include "occlusion/gap_fill.h"
#include "occlusion/jut_filter.h"
#include "occlusion/speckle_filter.h"
#include "occlusion/tall_building.h"
#include "stage/border_mask.h"
#include "stage/cv_bridge.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

/// A mask file in memory. Anything but one byte band is no mask.
struct MaskFile {
  tqorkit::PhotoInfo image;
  tqimage::GeoCoefficients coefficients;

  [[nodiscard]] bool Read(const std::string& path) {
    return tqimage::TqImage::QuickReadImage(path, image, &coefficients) && image.bands == 1 &&
           image.dataType == tqimage::kByte && image.data.size() == View().CellCount();
  }
  [[nodiscard]] bool Save(const std::string& path) const {
    return tqorkit::TqFSManager::SaveImageFile(image.data.data(), image.width, image.height, 1,
                                               path, true, &coefficients);
  }
  [[nodiscard]] GridView<std::uint8_t> View() {
    return {image.data.data(), image.height, image.width};
  }
};

}  // namespace

void tqTORectify::RefineOcclusion(std::uint8_t* mask, int width, int height) {
  if (mask == nullptr) return;
  CleanMask({mask, height, width});
}

bool tqTORectify::FilterSpeckles(const std::string& maskPath) {
  MaskFile mask;
  if (!mask.Read(maskPath)) return false;
  try {
    RemoveSpeckles(mask.View(), kMaxSpeckleCells, kSpeckleDifference, &processStop);
  } catch (const WorkStopped&) {
    return false;  // the file keeps the mask as it was
  }
  // The result tells whether the file could be read; when it cannot be replaced, the unfiltered
  // mask stays, which hides a little too much and shows nothing wrong.
  (void)mask.Save(maskPath);
  return true;
}

// Kept: true also when the mask could not be read, so a photo without a mask goes on as one.
bool tqTORectify::AdjustOcclusion(const std::string& maskPath) {
  (void)FilterSpeckles(maskPath);
  return true;
}

bool tqTORectify::CheckTallBuilding(const tqfd::Rect2_T<double>& rect) {
  const auto tile = ReadBorderTile(rect);
  // Kept: without a border mask every photo counts as one with tall buildings, which costs time
  // (rays instead of the z-buffer) and no quality.
  return !tile || HasTallBuilding(tile->cells);
}

/// A stronger smoothing for masks that are looked at, kept for callers outside the pipeline. Name
/// is fixed by callers.
///
/// @param first   longest run of hidden cells that is taken away
/// @param second  longest run of seen cells that is filled
/// @param third   how often rows and columns are scanned at most
///
/// A 3 x 3 box blur, cut at one half, then rounds the corners, and a 3 x 3 dilation leaves a rim of
/// one cell so that nothing hidden is lost.
bool tqTORectify::OcculusionJutAdjust(const std::string& maskPath, int first, int second,
                                      int third) {
  MaskFile mask;
  if (!mask.Read(maskPath)) return false;
  cv::Mat work;
  AsMat(mask.View()).copyTo(work);
  cv::threshold(work, work, 0, 255, cv::THRESH_BINARY);
  const GridView<std::uint8_t> cells(work.data, work.rows, work.cols);
  for (int scan = 0; scan < third; ++scan) {
    if (!FlipShortRuns(cells, {first, second})) break;
  }
  cv::blur(work, work, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
  cv::threshold(work, work, 127, 255, cv::THRESH_BINARY);
  cv::Mat result = AsMat(mask.View());
  Dilate3x3(work, result);
  return mask.Save(maskPath);
}

}  // namespace tqtortho
