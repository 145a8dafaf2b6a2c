// SPDX-License-Identifier: Apache-2.0
#include "survey/photo_outline.h"

#include <cmath>
#include <optional>

#include "camera/photo_camera.h"
#include "core/numeric.h"

namespace tqtortho::host {
namespace {

using Point = tqfd::Point2_T<double>;

// Sine of the smallest angle below the horizon at which a ray is said to meet the ground.
constexpr double kLowestRay = 0.1;

/// Position in an ideal photo of a position in the recorded one.
std::optional<Point> Ideal(const LensDistortion& lens, Point recorded) {
  Point ideal = recorded;
  for (int pass = 0; pass < 30; ++pass) {
    const auto seen = RecordedFromIdeal(lens, {NarrowToFloat(ideal.x), NarrowToFloat(ideal.y)});
    const double dx = recorded.x - seen.x, dy = recorded.y - seen.y;
    if (!std::isfinite(dx) || !std::isfinite(dy)) return std::nullopt;
    if (std::hypot(dx, dy) < 0.5) return ideal;  // outlines are for looking at
    ideal = {ideal.x + dx, ideal.y + dy};
  }
  return std::nullopt;
}

std::optional<Point> OnGround(const PhotoCamera& camera, Point recorded, double groundZ) {
  const auto ideal = Ideal(camera.lens, recorded);
  if (!ideal) return std::nullopt;
  const double x = (ideal->x - 0.5 * camera.width) * camera.pixelSize - camera.offsetX;
  const double y = (ideal->y - 0.5 * camera.height) * camera.pixelSize - camera.offsetY;
  // The camera looks along its negative third axis.
  const double* m = camera.rotation;
  const double down = -(m[6] * x + m[7] * y - m[8] * camera.focal);
  if (!(down > kLowestRay * std::hypot(x, y, camera.focal))) return std::nullopt;
  return GroundFromImage(camera, x, y, groundZ);
}

}  // namespace

PhotoCamera CameraOfSurvey(const SurveyCamera& camera, const SurveyPhoto& photo) {
  tqorkit::tqIntOri::INTORI inner;
  inner.imageWidth = camera.width;
  inner.imageHeight = camera.height;
  inner.focalLength = camera.focalLength;
  inner.pixelSize = camera.sensorWidth / camera.width;
  inner.offsetX = (camera.principalX - 0.5 * camera.width) * inner.pixelSize;
  inner.offsetY = (camera.principalY - 0.5 * camera.height) * inner.pixelSize;
  inner.distortionModel = camera.model;
  for (std::size_t i = 0; i < 8; ++i) inner.coefficients[i] = camera.coefficients[i];
  tqorkit::tqExtOri::EXTORI outer;
  const double pose[6] = {photo.x, photo.y, photo.z, photo.omega, photo.phi, photo.kappa};
  for (std::size_t i = 0; i < 6; ++i) outer.position[i] = pose[i];
  tqorkit::tqIntOri interior;
  interior.Set(inner);
  tqorkit::tqExtOri exterior;
  exterior.Set(outer);
  return CameraOf(interior, exterior);
}

std::vector<Point> PhotoOutline(const PhotoCamera& camera, int rasterCols, int rasterRows,
                                double groundZ, int perSide) {
  std::vector<Point> ring;
  if (!IsUsable(camera) || !(camera.centre.z > groundZ) || perSide < 1) return ring;
  const double right = (rasterCols > 0 ? rasterCols : camera.width) - 0.5;
  const double top = camera.height + 0.5;
  const double bottom = camera.height + 0.5 - (rasterRows > 0 ? rasterRows : camera.height);
  const Point corners[5] = {
      {-0.5, top}, {right, top}, {right, bottom}, {-0.5, bottom}, {-0.5, top}};
  for (int side = 0; side < 4; ++side) {
    for (int i = 0; i < perSide; ++i) {
      const double t = static_cast<double>(i) / perSide;
      const Point at = {corners[side].x + t * (corners[side + 1].x - corners[side].x),
                        corners[side].y + t * (corners[side + 1].y - corners[side].y)};
      const auto ground = OnGround(camera, at, groundZ);
      if (!ground) return {};
      ring.push_back(*ground);
    }
  }
  return ring;
}

bool Contains(const std::vector<Point>& ring, double x, double y) {
  bool inside = false;
  for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
    if ((ring[i].y > y) == (ring[j].y > y)) continue;
    const double t = (y - ring[i].y) / (ring[j].y - ring[i].y);
    if (x < ring[i].x + t * (ring[j].x - ring[i].x)) inside = !inside;
  }
  return inside;
}

}  // namespace tqtortho::host
