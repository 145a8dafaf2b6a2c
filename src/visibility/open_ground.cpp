// SPDX-License-Identifier: Apache-2.0
#include "visibility/open_ground.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/numeric.h"

namespace tqtortho {
namespace {

/// Quads must face the camera by so much of the depth that rounding cannot matter.
constexpr double kClearlyFacing = 1e-6;

class ShadowMarker {
 public:
  ShadowMarker(const StepSurface& surface, const CameraAbove& camera)
      : surface_(surface),
        camera_(camera),
        rows_(surface.QuadRows()),
        cols_(surface.QuadCols()),
        deepest_(camera.z - surface.Lowest()),
        closed_(static_cast<std::size_t>(rows_) * static_cast<std::size_t>(cols_), 0),
        lowest_(closed_.size()) {}

  std::vector<std::uint8_t> Run() {
    // Walls may stand half a step above their own centre's height.
    if (!(camera_.z - (surface_.Highest() + 0.5 * surface_.WallStep()) > 0)) {
      std::fill(closed_.begin(), closed_.end(), std::uint8_t{1});
      return std::move(closed_);
    }
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const std::size_t i = Index(row, col);
        const bool smooth = StepSurface::KindOf(surface_.Quads()[i]) == StepSurface::kSmooth;
        lowest_[i] = smooth ? LowestCorner(row, col) : kNone;
        closed_[i] = smooth && Faces(row, col) ? 0 : 1;
      }
    }
    // Marks are 2 until all are there, lest a shadow cast another.
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        if (closed_[Index(row, col)] == 1) CastShadow(row, col);
      }
    }
    for (std::uint8_t& closed : closed_) closed = closed != 0 ? 1 : 0;
    return std::move(closed_);
  }

 private:
  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols_) +
           static_cast<std::size_t>(col);
  }
  [[nodiscard]] const float* Corner(int row, int col) const {
    return surface_.Heights().Row(row) + col;
  }
  [[nodiscard]] float LowestCorner(int row, int col) const {
    const float* north = Corner(row, col);
    const float* south = Corner(row + 1, col);
    return std::min(std::min(north[0], north[1]), std::min(south[0], south[1]));
  }

  /// Whether a smooth quad turns its upper side to the camera everywhere. The camera's height above
  /// the tangent plane of a bilinear surface is bilinear itself, so the corners tell.
  [[nodiscard]] bool Faces(int row, int col) const {
    const float* north = Corner(row, col);
    const float* south = Corner(row + 1, col);
    const double a = north[0];
    const double b = north[1] - a;
    const double c = south[0] - a;
    const double d = south[1] - a - b - c;
    const double u = camera_.col - col;
    const double v = camera_.row - row;
    const double depth = camera_.z - a;
    const double corner = depth - b * u - c * v;
    const double least =
        std::min({corner, corner - d * v, corner - d * u, corner + d * (1 - u - v)});
    return least > kClearlyFacing * depth;
  }

  [[nodiscard]] double HighestPoint(int row, int col) const {
    if (lowest_[Index(row, col)] == kNone) return surface_.UpperBound(row, col);
    const float* north = Corner(row, col);
    const float* south = Corner(row + 1, col);
    return std::max(std::max(north[0], north[1]), std::max(south[0], south[1]));
  }

  /// Closes what the highest point of a quad may hide.
  void CastShadow(int row, int col) {
    const double top = HighestPoint(row, col);
    if (!std::isfinite(top)) return;  // no surface at all
    const double depth = camera_.z - top;
    const double centreCol = col + 0.5 - camera_.col;
    const double centreRow = row + 0.5 - camera_.row;
    const bool alongColumns = std::fabs(centreCol) >= std::fabs(centreRow);
    const int sign = (alongColumns ? centreCol : centreRow) >= 0 ? 1 : -1;
    // Everything relative to the camera, the main axis outwards.
    const double main = alongColumns ? col - camera_.col : row - camera_.row;
    const double near = sign > 0 ? main : -(main + 1);
    const double far = near + 1;
    const double cross = alongColumns ? row - camera_.row : col - camera_.col;
    if (near < 1) return CloseAround(far * deepest_ / depth + 1);
    const double least = cross / (cross >= 0 ? far : near);
    const double most = (cross + 1) / (cross + 1 >= 0 ? near : far);
    const double cameraCross = alongColumns ? camera_.row : camera_.col;
    const int crossCount = alongColumns ? rows_ : cols_;
    const int mainCount = alongColumns ? cols_ : rows_;
    const double perReach = depth / far;
    int index = alongColumns ? col : row;
    for (double from = near; index >= 0 && index < mainCount; from += 1, index += sign) {
      const double below = perReach * from;  // the sight line over the top, under the camera
      if (below > deepest_) break;
      const double to = from + 1;
      const double low = cameraCross + least * (least >= 0 ? from : to);
      const double high = cameraCross + most * (most >= 0 ? to : from);
      const int first = std::max(FloorToInt(low), 0);
      const int last = std::min(FloorToInt(high), crossCount - 1);
      for (int k = first; k <= last; ++k) {
        const std::size_t i = alongColumns ? Index(k, index) : Index(index, k);
        if (closed_[i] == 0 && camera_.z - lowest_[i] > below) closed_[i] = 2;
      }
    }
  }

  /// Below the camera directions mean little; shadows are short there.
  void CloseAround(double reach) {
    const int endRow = std::min(FloorToInt(camera_.row + reach) + 1, rows_);
    const int endCol = std::min(FloorToInt(camera_.col + reach) + 1, cols_);
    for (int row = std::max(FloorToInt(camera_.row - reach), 0); row < endRow; ++row) {
      for (int col = std::max(FloorToInt(camera_.col - reach), 0); col < endCol; ++col) {
        std::uint8_t& closed = closed_[Index(row, col)];
        if (closed == 0) closed = 2;
      }
    }
  }

  static constexpr float kNone = -std::numeric_limits<float>::infinity();

  const StepSurface& surface_;
  const CameraAbove& camera_;
  int rows_;
  int cols_;
  double deepest_;
  std::vector<std::uint8_t> closed_;
  std::vector<float> lowest_;  ///< of smooth quads
};

}  // namespace

std::vector<std::uint8_t> FindClosedQuads(const StepSurface& surface, const CameraAbove& camera) {
  if (surface.Quads() == nullptr || surface.QuadRows() <= 0 || surface.QuadCols() <= 0) return {};
  return ShadowMarker(surface, camera).Run();
}

}  // namespace tqtortho
