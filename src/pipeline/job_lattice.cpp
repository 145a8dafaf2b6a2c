// SPDX-License-Identifier: Apache-2.0
#include "pipeline/job_lattice.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"

namespace tqtortho {

namespace {

// How far out a corner may go to meet a DSM cell centre. Cells of 0.4 on a DSM of 0.25 meet every
// fifth cell; sizes with no small common multiple take the best of these.
constexpr int kMaxStepsOut = 32;
constexpr double kMaxDsmCellsOut = 64;
constexpr double kMeetTolerance = 1e-4;  // DSM cells

// The index among start, start + direction, ... whose position lies nearest to a DSM cell centre.
double BestIndex(double start, int direction, double anchor, double step, double dsmCentre,
                 double dsmCell) {
  const int stepsOut = std::clamp(TruncToInt(kMaxDsmCellsOut * dsmCell / step), 4, kMaxStepsOut);
  double best = start;
  double bestDistance = 1;
  for (int i = 0; i <= stepsOut; ++i) {
    const double index = start + direction * i;
    const double cells = (anchor + index * step - dsmCentre) / dsmCell;
    const double distance = std::fabs(cells - std::round(cells));
    if (distance < bestDistance) {
      best = index;
      bestDistance = distance;
    }
    if (bestDistance <= kMeetTolerance) break;
  }
  return best;
}

}  // namespace

double RoundedToFile(double value) { return std::round(value * 1e6) / 1e6; }

JobLattice::JobLattice(const tqimage::GeoCoefficients& dsm, double step)
    : step_(step), hair_(std::min(std::max(1e-3 * step, 2e-5), 0.25 * step)) {
  const auto cell = dsm.GetResolution();
  const int middleCol = dsm.GetWidth() / 2, middleRow = dsm.GetHeight() / 2;  // a whole cell
  const auto middle = dsm.Raster2World(middleCol, middleRow);
  dsmX_ = middle.x;
  dsmY_ = middle.y;
  dsmCellX_ = cell.x;
  dsmCellY_ = -cell.y;
  anchorX_ = RoundedToFile(middle.x);
  anchorY_ = RoundedToFile(middle.y);
}

tqfd::Rect2_T<double> JobLattice::SnapOutward(const tqfd::Rect2_T<double>& ground) const {
  const double left = BestIndex(std::floor((ground.minX - anchorX_) / step_), -1, anchorX_, step_,
                                dsmX_, dsmCellX_);
  const double top =
      BestIndex(std::ceil((ground.maxY - anchorY_) / step_), 1, anchorY_, step_, dsmY_, dsmCellY_);
  const double right = std::ceil((ground.maxX - anchorX_) / step_);
  // The row at this position is not scanned (see the header), so it lies below all that is needed.
  const double bottom = std::floor((ground.minY - anchorY_) / step_) - 1;
  tqfd::Rect2_T<double> rect;
  rect.minX = RoundedToFile(anchorX_ + left * step_);
  rect.maxY = RoundedToFile(anchorY_ + top * step_);
  rect.maxX = RoundedToFile(anchorX_ + right * step_ + hair_);
  rect.minY = RoundedToFile(anchorY_ + bottom * step_ + hair_);
  return rect;
}

int JobLattice::ColumnOf(double x) const { return FloorToInt((x - anchorX_) / step_ + 0.5); }

int JobLattice::RowOf(double y) const { return FloorToInt((anchorY_ - y) / step_ + 0.5); }

}  // namespace tqtortho
