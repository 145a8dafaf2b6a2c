// SPDX-License-Identifier: Apache-2.0
#include "visibility/sight_profile.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"

namespace tqtortho {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kSteps = StepSurface::kSub;

int SubIndex(double fraction) { return std::clamp(TruncToInt(fraction * kSteps), 0, kSteps - 1); }

}  // namespace

SightProfile::SightProfile(const StepSurface& surface, GridView<const std::uint8_t> closed,
                           const Plane& plane)
    : surface_(surface), closed_(closed), plane_(plane) {
  const bool forward = plane.sign > 0;
  const int quads = plane.alongColumns ? surface.QuadCols() : surface.QuadRows();
  origin_ = plane.sign * plane.cameraMain;
  inverseSlope_ = plane.slope == 0 ? 0 : 1 / plane.slope;
  // Against the raster's sense, lattice line p is counted as -p and quad p as -p - 1.
  firstMain_ = forward ? 0 : -quads;
  endMain_ = forward ? quads : 0;
  endCross_ = plane.alongColumns ? surface.QuadRows() : surface.QuadCols();
  const std::ptrdiff_t rowStride = surface.Heights().stride;
  mainStride_ = (plane.alongColumns ? 1 : rowStride) * plane.sign;
  crossStride_ = plane.alongColumns ? rowStride : 1;
}

void SightProfile::Approach(double reach) {
  constexpr double kNear = 2;
  if (started_ && reach - reached_ < kNear) return;
  if (surface_.Quads() == nullptr || endMain_ <= firstMain_ || endCross_ <= 0) return EndProfile();
  // Walls may stand half a step above their own centre's height.
  const double above = plane_.cameraZ - (surface_.Highest() + 0.5 * surface_.WallStep());
  const double depth = plane_.cameraZ - (surface_.Lowest() - 0.5 * surface_.WallStep());
  double begin = above > 0 ? std::max(reach * (above / depth), ClosedFrom(reach)) : 0;
  if (started_ && begin <= reached_) return;
  started_ = true;
  steepest_ = -kInfinity;
  begin = std::max(begin, firstMain_ - origin_);
  if (plane_.slope > 0) begin = std::max(begin, -plane_.cameraCross * inverseSlope_);
  if (plane_.slope < 0) begin = std::max(begin, (endCross_ - plane_.cameraCross) * inverseSlope_);
  main_ = std::max(FloorToInt(origin_ + begin), firstMain_);
  cross_ = FloorToInt(CrossAt(begin));
  // On the border the plane is on its way in.
  if (plane_.slope > 0) cross_ = std::max(cross_, 0);
  if (plane_.slope < 0) cross_ = std::min(cross_, endCross_ - 1);
  Open(begin);
}

bool SightProfile::IsClosed(int main, int cross) const {
  if (cross < 0 || cross >= endCross_) return false;
  const int raster = plane_.sign > 0 ? main : -main - 1;
  return (plane_.alongColumns ? closed_.At(cross, raster) : closed_.At(raster, cross)) != 0;
}

/// Where the unbroken row of closed quads begins that leads to a reach.
double SightProfile::ClosedFrom(double reach) const {
  int main = std::min(FloorToInt(origin_ + reach), endMain_ - 1);
  const int first = std::max(firstMain_, FloorToInt(origin_));
  for (; main >= first; --main) {
    const double begin = main - origin_;
    if (!IsClosed(main, FloorToInt(CrossAt(begin))) &&
        !IsClosed(main, FloorToInt(CrossAt(begin + 1)))) {
      break;
    }
  }
  return std::clamp(main + 1 - origin_, 0.0, reach);
}

void SightProfile::EndProfile() {
  started_ = true;
  kind_ = StepSurface::kVoid;
  inPieces_ = false;
  end_ = kInfinity;
  pieceEnd_ = kInfinity;
}

/// Enters the quad (main_, cross_).
void SightProfile::Open(double begin) {
  if (main_ >= endMain_ || cross_ < 0 || cross_ >= endCross_) return EndProfile();
  const double forward = main_ + 1 - origin_;
  double sideways = kInfinity;
  if (plane_.slope > 0) sideways = (cross_ + 1 - plane_.cameraCross) * inverseSlope_;
  if (plane_.slope < 0) sideways = (cross_ - plane_.cameraCross) * inverseSlope_;
  leavesSideways_ = sideways < forward;
  end_ = std::max(begin, leavesSideways_ ? sideways : forward);
  pieceEnd_ = end_;
  inPieces_ = false;

  const int main = plane_.sign > 0 ? main_ : -main_ - 1;
  const int row = plane_.alongColumns ? cross_ : main;
  const int col = plane_.alongColumns ? main : cross_;
  kind_ = StepSurface::KindOf(
      surface_.Quads()[static_cast<std::size_t>(row) * surface_.QuadCols() + col]);
  if (kind_ == StepSurface::kSmooth) {
    LoadCorners();
    return Raise(begin, HeightInQuad(begin));
  }
  if (kind_ == StepSurface::kVoid) return;
  // Only where the quad can hide more than what was passed is it worth going through.
  const double top = surface_.UpperBound(row, col) - plane_.cameraZ;
  if (top <= steepest_ * begin && top <= steepest_ * end_) return;
  inPieces_ = true;
  pieceMain_ = SubIndex(origin_ + begin - main_);
  pieceCross_ = SubIndex(CrossAt(begin) - cross_);
  OpenPiece(begin);
}

void SightProfile::LoadCorners() {
  const float* corner = surface_.Heights().cells + main_ * mainStride_ + cross_ * crossStride_;
  corner_[0][0] = corner[0];
  corner_[0][1] = corner[crossStride_];
  corner_[1][0] = corner[mainStride_];
  corner_[1][1] = corner[mainStride_ + crossStride_];
}

/// Enters a sub-cell.
void SightProfile::OpenPiece(double begin) {
  const double forward = main_ + (pieceMain_ + 1) * (1.0 / kSteps) - origin_;
  double sideways = kInfinity;
  if (plane_.slope != 0) {
    const double line = cross_ + (pieceCross_ + (plane_.slope > 0 ? 1 : 0)) * (1.0 / kSteps);
    sideways = (line - plane_.cameraCross) * inverseSlope_;
  }
  pieceLeavesSideways_ = sideways < forward;
  pieceEnd_ = std::clamp(pieceLeavesSideways_ ? sideways : forward, begin, end_);
  Raise(begin, SubCellHeight(pieceMain_, pieceCross_, begin));
}

/// Leaves the piece under way, not of a smooth quad, and enters the next one.
void SightProfile::StepOn() {
  if (inPieces_) {
    Raise(pieceEnd_, SubCellHeight(pieceMain_, pieceCross_, pieceEnd_));
    (pieceLeavesSideways_ ? pieceCross_ : pieceMain_) +=
        pieceLeavesSideways_ && plane_.slope < 0 ? -1 : 1;
    if (pieceEnd_ < end_ && pieceMain_ < kSteps && pieceCross_ >= 0 && pieceCross_ < kSteps) {
      return OpenPiece(pieceEnd_);
    }
  }
  (leavesSideways_ ? cross_ : main_) += leavesSideways_ && plane_.slope < 0 ? -1 : 1;
  Open(end_);
}

/// Leaves the smooth quad under way and all smooth quads after it that end before `upTo`: most of
/// every profile, so its state lives in registers here.
void SightProfile::RunSmooth(double upTo) {
  const float* const heights = surface_.Heights().cells;
  const StepSurface::Quad* const quads = surface_.Quads();
  const bool forward = plane_.sign > 0;
  const std::ptrdiff_t quadCols = surface_.QuadCols();
  const std::ptrdiff_t quadMain = plane_.alongColumns ? 1 : quadCols;
  const std::ptrdiff_t quadCross = plane_.alongColumns ? quadCols : 1;
  const int sideStep = plane_.slope < 0 ? -1 : 1;
  const int sideLine = plane_.slope < 0 ? 0 : 1;
  const bool straight = plane_.slope == 0;
  int main = main_;
  int cross = cross_;
  double end = end_;
  bool sideways = leavesSideways_;
  double steepest = steepest_;
  bool isSmooth = true;
  while (isSmooth && upTo >= end) {
    // The height where the plane crosses the border between this quad and the next.
    const float* corner = heights + main * mainStride_ + cross * crossStride_;
    const float* from = corner + (sideways ? sideLine * crossStride_ : mainStride_);
    const float* to = corner + (mainStride_ + (sideways ? sideLine : 1) * crossStride_);
    const double share = sideways ? origin_ + end - main : CrossAt(end) - cross;
    const double rise = *from + share * (static_cast<double>(*to) - *from) - plane_.cameraZ;
    if (rise > steepest * end && end > 0) steepest = rise / end;
    (sideways ? cross : main) += sideways ? sideStep : 1;
    isSmooth = main < endMain_ && cross >= 0 && cross < endCross_ &&
               quads[(forward ? main : -main - 1) * quadMain + cross * quadCross] == 0;
    if (!isSmooth) break;
    const double ahead = main + 1 - origin_;
    const double aside =
        straight ? kInfinity : (cross + sideLine - plane_.cameraCross) * inverseSlope_;
    sideways = aside < ahead;
    end = std::max(end, sideways ? aside : ahead);
  }
  main_ = main;
  cross_ = cross;
  steepest_ = steepest;
  if (!isSmooth) return Open(end);
  end_ = end;
  pieceEnd_ = end;
  leavesSideways_ = sideways;
  LoadCorners();
}

double SightProfile::AdvanceTo(double reach) {
  reached_ = reach;
  while (reach >= pieceEnd_) {
    if (kind_ == StepSurface::kSmooth) {
      RunSmooth(reach);
    } else {
      StepOn();
    }
  }
  switch (kind_) {
    case StepSurface::kVoid:
      return std::numeric_limits<double>::quiet_NaN();
    case StepSurface::kSmooth:
      return HeightInQuad(reach);
    default:
      return SubCellHeight(SubIndex(origin_ + reach - main_), SubIndex(CrossAt(reach) - cross_),
                           reach);
  }
}

void SightProfile::Raise(double reach, double height) {
  const double rise = height - plane_.cameraZ;
  if (reach > 0 && rise > steepest_ * reach) steepest_ = rise / reach;
}

double SightProfile::HeightInQuad(double reach) const {
  const double alongMain = origin_ + reach - main_;
  const double alongCross = CrossAt(reach) - cross_;
  const double near = corner_[0][0] + alongCross * (corner_[0][1] - corner_[0][0]);
  const double far = corner_[1][0] + alongCross * (corner_[1][1] - corner_[1][0]);
  return near + alongMain * (far - near);
}

double SightProfile::SubCellHeight(int alongMain, int alongCross, double reach) const {
  const bool forward = plane_.sign > 0;
  const int quad = forward ? main_ : -main_ - 1;
  const int sub = forward ? alongMain : kSteps - 1 - alongMain;
  const double toMain = std::clamp(origin_ + reach - main_, 0.0, 1.0);
  const double inMain = forward ? toMain : 1 - toMain;
  const double inCross = std::clamp(CrossAt(reach) - cross_, 0.0, 1.0);
  return plane_.alongColumns
             ? surface_.SubCellHeight(cross_, quad, alongCross, sub, inCross, inMain)
             : surface_.SubCellHeight(quad, cross_, sub, alongCross, inMain, inCross);
}

}  // namespace tqtortho
