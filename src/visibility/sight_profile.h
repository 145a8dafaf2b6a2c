// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "visibility/step_surface.h"

namespace tqtortho {

/// The surface along one vertical plane through a camera, followed from the camera outwards.
///
/// Coordinates are surface cells. The plane runs along one axis of the raster (the main axis) in
/// one sense; "reach" is the distance from the camera along it, "slope" how far the plane moves
/// along the other axis per cell of reach, -1 to 1. Angles are measured by rise over reach, which
/// within one plane orders points as their true angles do.
///
/// Follows quads exactly: on smooth quads the profile is the bilinear surface at the quad's border
/// (straight in between, up to its twist), on quads with a wall it steps from sub-cell to sub-cell.
/// Cost: some nanoseconds per quad, more on walls that can hide anything. No allocation.
class SightProfile {
 public:
  /// Where the camera is and which way the profile runs.
  struct Plane {
    bool alongColumns = true;  ///< the main axis is the column axis
    int sign = 1;              ///< sense along it
    double cameraMain = 0;     ///< camera on the main axis and on the cross axis, in cells
    double cameraCross = 0;
    double cameraZ = 0;
    double slope = 0;
  };

  /// @param closed  not 0 where a quad can hide or be hidden (see open_ground.h)
  SightProfile(const StepSurface& surface, GridView<const std::uint8_t> closed, const Plane& plane);

  /// Goes to the first point that can hide anything at `reach`, unless the profile is under way and
  /// has passed it. Nearer to the camera the sight lines pass above the highest surface, or the
  /// quads in between are open.
  void Approach(double reach);

  /// Follows the profile up to a reach (never decreasing) and gives the height there; NaN where
  /// there is no surface.
  [[nodiscard]] double AdvanceTo(double reach);

  /// Whether the profile passed so far hides a point of this reach and height.
  [[nodiscard]] bool Hides(double reach, double height) const {
    return steepest_ * reach > height - plane_.cameraZ;
  }

 private:
  [[nodiscard]] double ClosedFrom(double reach) const;
  [[nodiscard]] bool IsClosed(int main, int cross) const;
  void Open(double begin);
  void LoadCorners();
  void RunSmooth(double upTo);
  void StepOn();
  void EndProfile();
  void OpenPiece(double begin);
  void Raise(double reach, double height);
  [[nodiscard]] double HeightInQuad(double reach) const;
  [[nodiscard]] double SubCellHeight(int alongMain, int alongCross, double reach) const;

  [[nodiscard]] double CrossAt(double reach) const {
    return plane_.cameraCross + plane_.slope * reach;
  }

  const StepSurface& surface_;
  GridView<const std::uint8_t> closed_;
  Plane plane_;
  double origin_ = 0;        // camera on the main axis, counted in the plane's sense
  double inverseSlope_ = 0;  // 0 when the plane runs along the axis
  int firstMain_ = 0;        // quads of the surface in the plane's sense
  int endMain_ = 0;
  int endCross_ = 0;
  std::ptrdiff_t mainStride_ = 0;  // heights from one lattice line to the next
  std::ptrdiff_t crossStride_ = 0;

  bool started_ = false;
  double reached_ = 0;  // of the last AdvanceTo
  double steepest_ = -std::numeric_limits<double>::infinity();

  // The quad under way.
  int main_ = 0;
  int cross_ = 0;
  StepSurface::Kind kind_ = StepSurface::kVoid;
  double end_ = 0;  // reach at which the plane leaves the quad
  bool leavesSideways_ = false;
  double corner_[2][2] = {};  // heights of a smooth quad, [main][cross]

  // The piece under way: the quad, or a sub-cell of it.
  bool inPieces_ = false;
  int pieceMain_ = 0;
  int pieceCross_ = 0;
  double pieceEnd_ = 0;
  bool pieceLeavesSideways_ = false;
};

}  // namespace tqtortho
