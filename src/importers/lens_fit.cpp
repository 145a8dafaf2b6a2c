// SPDX-License-Identifier: Apache-2.0
#include "importers/lens_fit.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <opencv2/core.hpp>
#include <vector>

#include "camera/camera_model.h"
#include "camera/lens_distortion.h"
#include "core/numeric.h"
#include "survey/number_text.h"

namespace tqtortho::host {
namespace {

using Point = tqfd::Point2_T<double>;

// Rows and columns of the grid on which lenses are compared and fitted.
constexpr int kGridCols = 160;
constexpr int kGridRows = 120;
// How far the frame may be widened for straight rays, of its size.
constexpr double kWidest = 1.5;

double AsFixed(double value) { return ReadDouble(Fixed(value, 6)).value_or(value); }
double AsScientific(double value) { return ReadDouble(Scientific(value, 6)).value_or(value); }

/// The camera as rectification gets it from the job's parameter file: lengths with six decimals,
/// coefficients with seven digits.
PhotoCamera AsCarried(const SurveyCamera& c) {
  const double pixelSize = c.sensorWidth / c.width;
  const double offsetX = AsFixed((c.principalX - 0.5 * c.width) * pixelSize);
  const double offsetY = AsFixed((c.principalY - 0.5 * c.height) * pixelSize);
  const double carried = AsFixed(pixelSize), focal = AsFixed(c.focalLength);
  PhotoCamera camera;
  camera.width = AsFixed(c.width);
  camera.height = AsFixed(c.height);
  camera.focal = kLengthScale * focal;
  camera.offsetX = kLengthScale * offsetX;
  camera.offsetY = kLengthScale * offsetY;
  camera.pixelSize = kLengthScale * carried;
  LensDistortion& lens = camera.lens;
  lens.model = c.model;
  lens.height = camera.height;
  lens.centreCol = camera.width * 0.5 + offsetX / carried;
  lens.centreUp = camera.height * 0.5 + offsetY / carried;
  lens.focalPixels = focal / carried;
  lens.pixelSize = camera.pixelSize;
  double* const targets[] = {&lens.k1, &lens.k2, &lens.k3, &lens.p1, &lens.p2, &lens.b1, &lens.b2};
  for (std::size_t i = 0; i < std::size(targets); ++i) {
    *targets[i] = AsScientific(c.coefficients[i]);
  }
  return camera;
}

bool InRaster(const SourceLens& lens, Point recorded) {
  return recorded.x >= 0 && recorded.x <= lens.width - 1 && recorded.y >= 0 &&
         recorded.y <= lens.height - 1;
}

/// The ray whose straight position is (col, row) in a frame of the given focal length.
Point RayOf(const SourceLens& lens, double focal, double col, double row) {
  return {(col - lens.PrincipalCol()) / focal, (row - lens.PrincipalRow()) / focal};
}

/// True when no two rays of the frame share a pixel of the raster.
bool IsOneToOne(const SourceLens& lens, const SurveyCamera& camera) {
  for (int i = 0; i <= kGridRows; ++i) {
    for (int j = 0; j <= kGridCols; ++j) {
      const Point ray = RayOf(lens, camera.focalLength, camera.width * j / kGridCols,
                              camera.height * i / kGridRows);
      if (!(FoldDeterminant(lens, ray) > 0) && InRaster(lens, RecordedFromRay(lens, ray))) {
        return false;
      }
    }
  }
  return true;
}

/// Size of the frame along one axis that takes straight rays up to the raster's last column (or
/// row): at least the raster's, more with barrel distortion.
double StraightSize(const SourceLens& lens, double focal, bool vertical) {
  const int size = vertical ? lens.height : lens.width;
  double before = -1;
  for (int straight = size; straight <= kWidest * size; ++straight) {
    const Point ray = vertical ? RayOf(lens, focal, lens.PrincipalCol(), straight)
                               : RayOf(lens, focal, straight, lens.PrincipalRow());
    const Point recorded = RecordedFromRay(lens, ray);
    const double at = vertical ? recorded.y : recorded.x;
    if (at >= size - 1) return straight;
    if (!(at > before)) break;
    before = at;
  }
  return size;
}

SurveyCamera PlainCamera(const SourceLens& lens, int id, double focal) {
  SurveyCamera camera;
  camera.id = id;
  camera.name = lens.name;
  camera.width = lens.width;
  camera.height = lens.height;
  camera.rasterWidth = lens.width;
  camera.rasterHeight = lens.height;
  camera.focalLength = focal;
  return camera;
}

/// Pixel units, and the principal point counted upward from the frame's lower edge.
void Finish(const SourceLens& lens, SurveyCamera& camera) {
  camera.sensorWidth = camera.width;
  camera.sensorHeight = camera.height;
  camera.principalX = lens.PrincipalCol();
  camera.principalY = camera.height - lens.PrincipalRow();
}

SurveyCamera Undistorted(const SourceLens& lens, int id, double focal) {
  SurveyCamera camera = PlainCamera(lens, id, focal);
  Finish(lens, camera);
  return camera;
}

SurveyCamera RadialTangential(const SourceLens& lens, int id, double focal, bool widened) {
  SurveyCamera camera = PlainCamera(lens, id, focal);
  if (widened) camera.width = StraightSize(lens, focal, false);
  // Model 3 mirrors its distortion centre about half the frame height: a frame twice as high as the
  // principal row puts both at the same place. Six decimals, as the file will carry it.
  camera.height = AsFixed(2 * lens.PrincipalRow());
  camera.model = 3;
  const double k[] = {lens.k1, lens.k2, lens.k3, lens.p1, lens.p2};
  std::copy(std::begin(k), std::end(k), camera.coefficients);
  Finish(lens, camera);
  camera.principalY = 0.5 * camera.height;
  return camera;
}

/// As RadialTangential, with its coefficients and focal length fitted over the photo: expresses the
/// term of r^8 and takes the mean of what a skew or unequal focal lengths ask for.
SurveyCamera RadialFitted(const SourceLens& lens, int id, double focal, bool widened) {
  SurveyCamera camera = RadialTangential(lens, id, focal, widened);
  constexpr int kUnknowns = 6;  // focal length, and focal length times k1 k2 k3 p1 p2
  std::vector<double> rows, right;
  for (int i = 0; i <= kGridRows; ++i) {
    for (int j = 0; j <= kGridCols; ++j) {
      const Point ray =
          RayOf(lens, focal, camera.width * j / kGridCols, camera.height * i / kGridRows);
      const Point recorded = RecordedFromRay(lens, ray);
      if (!InRaster(lens, recorded)) continue;
      const double x = ray.x, y = ray.y, r2 = x * x + y * y;
      rows.insert(rows.end(),
                  {x, r2 * x, r2 * r2 * x, r2 * r2 * r2 * x, 2 * x * y, r2 + 2 * x * x, y, r2 * y,
                   r2 * r2 * y, r2 * r2 * r2 * y, r2 + 2 * y * y, 2 * x * y});
      right.insert(right.end(),
                   {recorded.x - lens.PrincipalCol(), recorded.y - lens.PrincipalRow()});
    }
  }
  const int count = static_cast<int>(right.size());
  cv::Mat solution;
  if (count < kUnknowns ||
      !cv::solve(cv::Mat(count, kUnknowns, CV_64F, rows.data()),
                 cv::Mat(count, 1, CV_64F, right.data()), solution, cv::DECOMP_SVD)) {
    return camera;
  }
  const double fitted = solution.at<double>(0);
  if (!(fitted > 0.5 * focal && fitted < 2 * focal)) return camera;
  camera.focalLength = fitted;
  for (int i = 1; i < kUnknowns; ++i) camera.coefficients[i - 1] = solution.at<double>(i) / fitted;
  return camera;
}

/// Least squares over the frame: recorded + correction(recorded) = straight, linear in the seven
/// coefficients and in the focal length of the straight frame, which is free.
SurveyCamera PixelCorrection(const SourceLens& lens, int id, double focal, bool widened) {
  SurveyCamera camera = PlainCamera(lens, id, focal);
  if (widened) {
    camera.width = StraightSize(lens, focal, false);
    camera.height = StraightSize(lens, focal, true);
  }
  camera.model = 1;
  const double unit = 0.5 * lens.Size();  // coordinates near 1 keep the equations well conditioned
  std::vector<double> rows, right;
  for (int i = 0; i <= kGridRows; ++i) {
    for (int j = 0; j <= kGridCols; ++j) {
      const Point ray =
          RayOf(lens, focal, camera.width * j / kGridCols, camera.height * i / kGridRows);
      const Point recorded = RecordedFromRay(lens, ray);
      if (!InRaster(lens, recorded)) continue;
      const double x = (recorded.x - lens.PrincipalCol()) / unit;
      const double y = (lens.PrincipalRow() - recorded.y) / unit;  // upward
      const double r2 = x * x + y * y;
      for (const double v :
           {r2 * x, r2 * r2 * x, r2 * r2 * r2 * x, 2 * x * x + r2, 2 * x * y, x, y, -ray.x}) {
        rows.push_back(v);
      }
      right.push_back(-x);
      for (const double v :
           {r2 * y, r2 * r2 * y, r2 * r2 * r2 * y, 2 * x * y, 2 * y * y + r2, 0.0, 0.0, ray.y}) {
        rows.push_back(v);
      }
      right.push_back(-y);
    }
  }
  constexpr int kUnknowns = 8;
  const int count = static_cast<int>(right.size());
  cv::Mat solution;
  if (count >= kUnknowns &&
      cv::solve(cv::Mat(count, kUnknowns, CV_64F, rows.data()),
                cv::Mat(count, 1, CV_64F, right.data()), solution, cv::DECOMP_SVD)) {
    const double r2 = unit * unit;
    const double scale[] = {r2, r2 * r2, r2 * r2 * r2, unit, unit, 1, 1};
    for (int i = 0; i < kUnknowns - 1; ++i) {
      camera.coefficients[i] = solution.at<double>(i) / scale[i];
    }
    camera.focalLength = solution.at<double>(kUnknowns - 1) * unit;
  }
  Finish(lens, camera);
  return camera;
}

/// Share of the raster that lies inside the outline of the frame's straight rays.
double UsedShare(const SourceLens& lens, const SurveyCamera& camera) {
  constexpr int kSteps = 200;
  const double w = camera.width, h = camera.height;
  const Point corners[] = {{0, 0}, {w, 0}, {w, h}, {0, h}, {0, 0}};
  double area = 0;
  Point first{}, before{};
  for (int side = 0; side < 4; ++side) {
    for (int i = 0; i < kSteps; ++i) {
      const double t = static_cast<double>(i) / kSteps;
      const Point a = corners[side], b = corners[side + 1];
      Point at = RecordedFromRay(
          lens, RayOf(lens, camera.focalLength, a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)));
      at = {std::clamp(at.x, 0.0, lens.width - 1.0), std::clamp(at.y, 0.0, lens.height - 1.0)};
      if (side == 0 && i == 0) {
        first = at;
      } else {
        area += before.x * at.y - at.x * before.y;
      }
      before = at;
    }
  }
  area += before.x * first.y - first.x * before.y;
  return 0.5 * area / (std::max(1.0, lens.width - 1.0) * std::max(1.0, lens.height - 1.0));
}

bool Accepted(const LensFit& fit) {
  return fit.maxResidual <= kLensMaxResidual && fit.rmsResidual <= kLensRmsResidual;
}

std::string CheckSource(const SourceLens& lens) {
  const double values[] = {lens.focalX, lens.focalY, lens.centreX, lens.centreY, lens.k1,  lens.k2,
                           lens.k3,     lens.k4,     lens.p1,      lens.p2,      lens.skew};
  for (const double v : values) {
    if (!std::isfinite(v)) return "holds a number that is not finite";
  }
  if (lens.width < 2 || lens.height < 2 || lens.width > 1000000 || lens.height > 1000000) {
    return "has no image size";
  }
  if (!(lens.focalX > 0.01 && lens.focalY > 0.01 && lens.focalX < 1000 && lens.focalY < 1000)) {
    return "has a focal length that is none (of the longer image side, 0.01 to 1000)";
  }
  if (!(std::fabs(lens.centreX) < 0.4 && std::fabs(lens.centreY) < 0.4 &&
        lens.PrincipalRow() > 0.1 * lens.height && lens.PrincipalCol() > 0.1 * lens.width)) {
    return "has its principal point near the border of the image or outside";
  }
  return {};
}

}  // namespace

LensFit MeasureLens(const SourceLens& lens, const SurveyCamera& camera) {
  LensFit fit;
  fit.camera = camera;
  const PhotoCamera carried = AsCarried(camera);
  double sum = 0;
  std::int64_t count = 0;
  for (int i = 0; i <= kGridRows; ++i) {
    for (int j = 0; j <= kGridCols; ++j) {
      const Point ray = RayOf(lens, camera.focalLength, camera.width * j / kGridCols,
                              camera.height * i / kGridRows);
      const Point source = RecordedFromRay(lens, ray);
      if (!InRaster(lens, source)) continue;
      const Point ideal = PixelFromImage(carried, {carried.focal * ray.x, -carried.focal * ray.y});
      const auto ours =
          RecordedFromIdeal(carried.lens, {NarrowToFloat(ideal.x), NarrowToFloat(ideal.y)});
      const double off = std::hypot(ours.x - source.x, carried.height - ours.y - source.y);
      sum += off * off;
      ++count;
      if (!(off <= fit.maxResidual)) fit.maxResidual = off;
    }
  }
  fit.rmsResidual = count > 0 ? std::sqrt(sum / static_cast<double>(count)) : HUGE_VAL;
  if (count == 0) fit.maxResidual = HUGE_VAL;
  fit.usedShare = UsedShare(lens, camera);
  return fit;
}

std::optional<LensFit> FitLens(const SourceLens& lens, int cameraId, std::string& error) {
  const std::string who = "camera \"" + lens.name + "\" (" + lens.projection + ")";
  if (const std::string fault = CheckSource(lens); !fault.empty()) {
    error = who + " " + fault + "; correct the calibration";
    return std::nullopt;
  }
  const double focal = std::sqrt(lens.focalX * lens.focalY) * lens.Size();
  // The correction of model 1 acts on x alone, so there the focal length along y is the frame's.
  const double focalY = lens.focalY * lens.Size();
  if (!IsOneToOne(lens, Undistorted(lens, cameraId, focal))) {
    error = who + " folds over inside the photo: two rays share a pixel; calibrate it anew";
    return std::nullopt;
  }
  // Terms that model 3 does not have are fitted; where it has them all, its coefficients are exact.
  const bool fitted = lens.k4 != 0 || lens.skew != 0;
  const auto radial = fitted ? RadialFitted : RadialTangential;
  const std::function<SurveyCamera()> candidates[] = {
      [&] { return Undistorted(lens, cameraId, focal); },
      [&] { return radial(lens, cameraId, focal, true); },
      [&] { return radial(lens, cameraId, focal, false); },
      [&] { return PixelCorrection(lens, cameraId, focalY, true); },
      [&] { return PixelCorrection(lens, cameraId, focalY, false); },
      // Where the focal lengths hardly differ and the distortion is too strong for model 1.
      [&] { return RadialFitted(lens, cameraId, focal, true); },
  };
  std::optional<LensFit> best;
  for (const auto& make : candidates) {
    const SurveyCamera candidate = make();
    if (candidate.model == 0 && lens.HasDistortion()) continue;
    if (!(candidate.focalLength > 0) || !IsOneToOne(lens, candidate)) continue;
    const LensFit fit = MeasureLens(lens, candidate);
    if (Accepted(fit)) return fit;
    if (!best || fit.rmsResidual < best->rmsResidual) best = fit;
  }
  if (!best) {
    error = who + " cannot be expressed: its numbers are out of reason; calibrate it anew";
    return std::nullopt;
  }
  error = who + " cannot be expressed: best fit off by " + Fixed(best->maxResidual, 2) +
          " pixels at most, " + Fixed(best->rmsResidual, 3) + " RMS (allowed " +
          Fixed(kLensMaxResidual, 2) + " and " + Fixed(kLensRmsResidual, 2) +
          "); undistort the photos and import again";
  return std::nullopt;
}

}  // namespace tqtortho::host
