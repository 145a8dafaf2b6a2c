// SPDX-License-Identifier: Apache-2.0
#include "tqtortho/tqRayTracer.h"

#include "occlusion/ray_kernel.h"
#include "occlusion/tqDSM.h"
#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

/// A cell lower than this below one of its neighbours is the foot of a step.
constexpr float kStepHeight = 2.0f;

/// Kept: the foot of every higher step counts as seen, also where a wall truly hides it; the
/// shadow of the wall then starts one cell further out.
void ClearStepFeet(const GridView<const float>& heights, const cv::Mat& dilated,
                   GridView<std::uint8_t> hidden) {
  for (int r = 0; r < heights.rows; ++r) {
    const float* high = dilated.ptr<float>(r);
    for (int c = 0; c < heights.cols; ++c) {
      if (high[c] - heights.At(r, c) > kStepHeight) hidden.At(r, c) = 0;
    }
  }
}

}  // namespace

tqRayTracer::tqRayTracer() = default;
tqRayTracer::~tqRayTracer() = default;

void tqRayTracer::RayTracing(tqDSM& dsm, tqfd::Point3_T<double>& cameraCentre,
                             std::vector<std::uint8_t>& occlusion, int& width, int& height,
                             std::uint8_t* validMask, int refine) {
  width = dsm.cols;
  height = dsm.rows;
  const RaySurface surface = dsm.Surface();
  const std::size_t count = surface.heights.CellCount();
  occlusion.assign(count, 0);
  if (count == 0 || dsm.heights.size() < count) return;

  const GridView<std::uint8_t> hidden(occlusion.data(), dsm.rows, dsm.cols);
  MarkHiddenCells(surface, dsm.ToLocal(cameraCentre),
                  GridView<const std::uint8_t>(validMask, dsm.rows, dsm.cols), hidden,
                  &processStop);
  if (refine == 0) return;
  cv::Mat dilatedHeights;
  Dilate3x3(AsMat(surface.heights), dilatedHeights);
  ClearStepFeet(surface.heights, dilatedHeights, hidden);
  cv::Mat mask = AsMat(hidden);
  cv::Mat dilated;
  Dilate3x3(mask, dilated);
  Erode3x3(dilated, mask);
}

}  // namespace tqtortho
