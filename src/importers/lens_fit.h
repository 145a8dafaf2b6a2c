// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "survey/source_lens.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// Largest and root mean square disagreement that a converted lens may have, in pixels.
inline constexpr double kLensMaxResidual = 0.15;
inline constexpr double kLensRmsResidual = 0.05;

/// A source camera expressed as a camera of the list.
struct LensFit {
  SurveyCamera camera;
  /// Distance between the position the source gives a ray and the position that rectification will
  /// use, over the whole frame, with every number rounded as the job's own files carry it.
  double maxResidual = 0;
  double rmsResidual = 0;
  /// Share of the raster that rectification can sample: positions whose straight (undistorted)
  /// ray falls outside the frame are dropped by it, so barrel distortion costs a rim.
  double usedShare = 1;
};

/// Measures how far `camera` is from `lens`.
[[nodiscard]] LensFit MeasureLens(const SourceLens& lens, const SurveyCamera& camera);

/// Expresses `lens` as a camera: the exact way when there is one, else the best least-squares fit.
///
/// Without distortion: model 0. With it: model 3 on a virtual frame twice as high as the principal
/// row, where its mirrored distortion centre coincides with the principal point; the frame is
/// widened to the right as far as straight rays need it. Different focal lengths along x and y:
/// model 1, its coefficients fitted to the inverse of the source's distortion. A term of r^8 or a
/// skew: model 3 fitted, else model 1 fitted, which has a skew of its own.
///
/// @return nothing, with one line in `error` that holds the figures, when the residual exceeds
///         kLensMaxResidual or kLensRmsResidual, or the lens model folds over inside the photo.
[[nodiscard]] std::optional<LensFit> FitLens(const SourceLens& lens, int cameraId,
                                             std::string& error);

}  // namespace tqtortho::host
