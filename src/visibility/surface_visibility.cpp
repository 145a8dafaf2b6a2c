// SPDX-License-Identifier: Apache-2.0
#include "visibility/surface_visibility.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "camera/photo_frame.h"
#include "core/numeric.h"
#include "visibility/open_ground.h"
#include "visibility/sight_profile.h"

namespace tqtortho {
namespace {

/// Default tolerance in surface cells.
constexpr double kToleranceCells = 0.15;
/// Cells held at a time.
constexpr double kCellsAtATime = 1 << 20;
constexpr double kPlanesAtATime = 1 << 22;
constexpr double kMaxCells = 4e9;
/// Only lattices of silly shapes want more; their planes then lie wider apart.
constexpr double kMaxPlanes = 1e9;
constexpr int kMaxSide = 100'000'000;
/// Side of the blocks of quads that are tested against the frame at once.
constexpr int kBlock = 8;
/// Far beyond any survey; keeps every index below in range.
constexpr double kMaxSteps = 1e9;

/// One of the four directions in which profiles run: the main axis and the sense along it. A cell
/// belongs to the direction in which it lies farthest.
struct Direction {
  bool alongColumns;
  int sign;
};

class Sweep {
 public:
  Sweep(const StepSurface& surface, const SurfacePlacement& placement, const PhotoCamera& camera,
        const VisibilityLattice& lattice, const VisibilityOptions& options,
        GridView<std::uint8_t> mask)
      : surface_(surface),
        placement_(placement),
        camera_(camera),
        lattice_(lattice),
        options_(options),
        mask_(mask),
        frame_(camera) {
    cameraCol_ = (camera.centre.x - placement.originX) / placement.cellX;
    cameraRow_ = (placement.originY - camera.centre.y) / placement.cellY;
    tolerance_ = options.tolerance >= 0
                     ? options.tolerance
                     : kToleranceCells * std::min(placement.cellX, placement.cellY);
    columns_.reserve(lattice.cols);
    for (int col = 0; col < lattice.cols; ++col) {
      columns_.push_back((X(col) - camera.centre.x) / placement.cellX);
    }
    rows_.reserve(lattice.rows);
    for (int row = 0; row < lattice.rows; ++row) {
      rows_.push_back((camera.centre.y - Y(row)) / placement.cellY);
    }
  }

  void Run() {
    for (int row = 0; row < lattice_.rows; ++row) {
      std::fill_n(mask_.Row(row), lattice_.cols, options_.noHeight);
    }
    if (surface_.Quads() == nullptr || surface_.QuadRows() <= 0 || surface_.QuadCols() <= 0) return;
    closedQuads_ = FindClosedQuads(surface_, {cameraRow_, cameraCol_, camera_.centre.z});
    sightQuads_.assign(closedQuads_.size(), 0);
    cellCols_ = CellsOfQuads(columns_, cameraCol_, surface_.QuadCols());
    cellRows_ = CellsOfQuads(rows_, cameraRow_, surface_.QuadRows());
    for (int row = 0; row < surface_.QuadRows(); row += kBlock) {
      GiveUpIfRaised(options_.stop);
      for (int col = 0; col < surface_.QuadCols(); col += kBlock) FillBlock(row, col);
    }
    for (const bool alongColumns : {true, false}) {
      for (const int sign : {-1, 1}) RunDirection({alongColumns, sign});
    }
  }

 private:
  [[nodiscard]] double X(int col) const { return lattice_.firstX + col * lattice_.step; }
  [[nodiscard]] double Y(int row) const { return lattice_.firstY - row * lattice_.step; }

  /// The first lattice column or row in each quad, and the end of the last quad's.
  [[nodiscard]] static std::vector<int> CellsOfQuads(const std::vector<double>& cells,
                                                     double camera, int quads) {
    std::vector<int> first(static_cast<std::size_t>(quads) + 1);
    const int count = static_cast<int>(cells.size());
    int cell = 0;
    for (int quad = 0; quad <= quads; ++quad) {
      while (cell < count && cells[cell] + camera < quad) ++cell;
      first[quad] = cell;
    }
    return first;
  }

  [[nodiscard]] StepSurface::Kind KindOf(int row, int col) const {
    return StepSurface::KindOf(surface_.Quads()[QuadIndex(row, col)]);
  }
  [[nodiscard]] std::size_t QuadIndex(int row, int col) const {
    return static_cast<std::size_t>(row) * surface_.QuadCols() + col;
  }

  /// Where the quads [row, endRow) x [col, endCol) lie; the heights include what walls may add.
  [[nodiscard]] PhotoFrame::Place PlaceOf(int row, int endRow, int col, int endCol) const {
    float lowest = std::numeric_limits<float>::infinity();
    float highest = -lowest;
    bool smooth = true;
    for (int r = row; r <= endRow; ++r) {
      const float* heights = surface_.Heights().Row(r);
      for (int c = col; c <= endCol; ++c) {
        lowest = std::min(lowest, heights[c]);
        highest = std::max(highest, heights[c]);
        smooth = smooth && (r == endRow || c == endCol || KindOf(r, c) == StepSurface::kSmooth);
      }
    }
    // Marks for no data count as heights here, which makes the box too large but not wrong.
    if (!std::isfinite(lowest) || !std::isfinite(highest)) return PhotoFrame::Place::kAcross;
    const double more = smooth ? 0 : 0.5 * surface_.WallStep();
    return frame_.PlaceOf(
        placement_.originX + col * placement_.cellX, placement_.originX + endCol * placement_.cellX,
        placement_.originY - endRow * placement_.cellY, placement_.originY - row * placement_.cellY,
        lowest - more, highest + more);
  }

  /// Settles what a few quads tell without sight lines.
  void FillBlock(int row, int col) {
    const int endRow = std::min(row + kBlock, surface_.QuadRows());
    const int endCol = std::min(col + kBlock, surface_.QuadCols());
    if (cellRows_[row] == cellRows_[endRow] || cellCols_[col] == cellCols_[endCol]) return;
    const PhotoFrame::Place whole = PlaceOf(row, endRow, col, endCol);
    for (int r = row; r < endRow; ++r) {
      for (int c = col; c < endCol; ++c) {
        const StepSurface::Kind kind = KindOf(r, c);
        if (kind == StepSurface::kVoid) continue;
        const PhotoFrame::Place place =
            whole == PhotoFrame::Place::kAcross ? PlaceOf(r, r + 1, c, c + 1) : whole;
        if (kind != StepSurface::kRagged && place == PhotoFrame::Place::kOutside) {
          FillQuad(r, c, options_.outside);
        } else if (closedQuads_[QuadIndex(r, c)] != 0) {
          sightQuads_[QuadIndex(r, c)] = 1;
        } else if (place == PhotoFrame::Place::kInside) {
          FillQuad(r, c, options_.seen);
        } else {
          TestFrame(r, c);
        }
      }
    }
  }

  void FillQuad(int row, int col, std::uint8_t value) {
    const int first = cellCols_[col];
    const int count = cellCols_[col + 1] - first;
    for (int r = cellRows_[row]; r < cellRows_[row + 1]; ++r) {
      std::fill_n(mask_.Row(r) + first, count, value);
    }
  }

  /// Open ground across the end of the frame.
  void TestFrame(int row, int col) {
    for (int r = cellRows_[row]; r < cellRows_[row + 1]; ++r) {
      for (int c = cellCols_[col]; c < cellCols_[col + 1]; ++c) {
        const double height = surface_.HeightAt(rows_[r] + cameraRow_, columns_[c] + cameraCol_);
        mask_.At(r, c) = frame_.Contains(X(c), Y(r), height) ? options_.seen : options_.outside;
      }
    }
  }

  /// The cells of a direction in lines of equal main coordinate, from the camera outwards: main
  /// index, reach and the span of cross indices [first, last) that belong to the direction.
  template <class Visit>
  void ForLines(const Direction& direction, Visit visit) const {
    const std::vector<double>& mains = direction.alongColumns ? columns_ : rows_;
    const std::vector<double>& crosses = direction.alongColumns ? rows_ : columns_;
    const int count = static_cast<int>(mains.size());
    for (int k = 0; k < count; ++k) {
      const int main = direction.sign > 0 ? k : count - 1 - k;
      const double reach = direction.sign * mains[main];
      // Diagonal cells belong to the column directions, the one below the camera to one of them.
      if (reach < 0 || (reach == 0 && !(direction.alongColumns && direction.sign > 0))) continue;
      const double bound = direction.alongColumns ? reach : std::nextafter(reach, 0.0);
      const auto first = std::lower_bound(crosses.begin(), crosses.end(), -bound);
      const auto last = std::upper_bound(first, crosses.end(), bound);
      if (first == last) continue;
      visit(main, reach, static_cast<int>(first - crosses.begin()),
            static_cast<int>(last - crosses.begin()));
    }
  }

  /// The planes of a direction: numbered by slope from `lowest` on, `perSlope` to a unit.
  struct Planes {
    double lowest = 0;
    double perSlope = 0;
    int count = 1;
    [[nodiscard]] int Of(double slope) const {
      return std::min(TruncToInt((slope - lowest) * perSlope), count - 1);
    }
    [[nodiscard]] double Slope(int plane) const {
      return perSlope > 0 ? lowest + (plane + 0.5) / perSlope : lowest;
    }
  };

  void RunDirection(const Direction& direction) {
    const std::vector<double>& crosses = direction.alongColumns ? rows_ : columns_;
    double cells = 0;
    double highest = -1;
    double farthest = 0;
    Planes planes;
    planes.lowest = 1;
    ForLines(direction, [&](int, double reach, int first, int last) {
      const double perReach = reach > 0 ? 1 / reach : 0;
      cells += last - first;
      planes.lowest = std::min(planes.lowest, crosses[first] * perReach);
      highest = std::max(highest, crosses[last - 1] * perReach);
      farthest = std::max(farthest, reach);
    });
    if (cells == 0) return;
    const double crossStep =
        lattice_.step / (direction.alongColumns ? placement_.cellY : placement_.cellX);
    const double range = highest - planes.lowest;
    const double wanted = std::ceil(range * farthest / (options_.planeSpacing * crossStep)) + 1;
    planes.count = TruncToInt(std::min(wanted, kMaxPlanes));
    planes.perSlope = range > 0 ? planes.count / range : 0;
    const int perRun =
        TruncToInt(std::clamp(planes.count * (kCellsAtATime / cells), 1.0, kPlanesAtATime));
    for (int plane = 0; plane < planes.count; plane += perRun) {
      RunPlanes(direction, planes, plane, std::min(perRun, planes.count - plane));
    }
  }

  /// Visits the cells of the planes [begin, begin + count) that need a sight line: main, cross,
  /// plane counted from begin.
  template <class Visit>
  void ForCells(const Direction& direction, const Planes& planes, int begin, int count,
                Visit visit) const {
    const std::vector<double>& crosses = direction.alongColumns ? rows_ : columns_;
    const std::vector<int>& mainCells = direction.alongColumns ? cellCols_ : cellRows_;
    const std::vector<int>& crossCells = direction.alongColumns ? cellRows_ : cellCols_;
    const std::ptrdiff_t quadCols = surface_.QuadCols();
    const std::ptrdiff_t mainStride = direction.alongColumns ? 1 : quadCols;
    const std::ptrdiff_t crossStride = direction.alongColumns ? quadCols : 1;
    const bool all = count == planes.count;
    ForLines(direction, [&](int main, double reach, int first, int last) {
      const double perReach = reach > 0 ? 1 / reach : 0;
      if (!all) {
        // A plane more at both ends: the plane number decides, not these products.
        const double low = (planes.lowest + (begin - 1) / planes.perSlope) * reach;
        const double high = (planes.lowest + (begin + count + 1) / planes.perSlope) * reach;
        const auto from = crosses.begin() + first;
        const auto to = crosses.begin() + last;
        last = static_cast<int>(std::upper_bound(from, to, high) - crosses.begin());
        first = static_cast<int>(std::lower_bound(from, to, low) - crosses.begin());
      }
      const int mainQuad = QuadOf(mainCells, main);
      if (mainQuad < 0 || first >= last) return;
      const std::uint8_t* sight = sightQuads_.data() + mainQuad * mainStride;
      for (int quad = std::max(QuadOf(crossCells, first), 0);
           quad + 1 < static_cast<int>(crossCells.size()) && crossCells[quad] < last; ++quad) {
        if (sight[quad * crossStride] == 0) continue;
        const int end = std::min(crossCells[quad + 1], last);
        for (int cross = std::max(crossCells[quad], first); cross < end; ++cross) {
          const int plane = planes.Of(crosses[cross] * perReach) - begin;
          if (plane >= 0 && plane < count) visit(main, cross, plane);
        }
      }
    });
  }

  /// The quad of a lattice column or row; -1 before the first and behind the last.
  [[nodiscard]] static int QuadOf(const std::vector<int>& cells, int cell) {
    if (cell >= cells.back()) return -1;
    return static_cast<int>(std::upper_bound(cells.begin(), cells.end(), cell) - cells.begin()) - 1;
  }

  /// Sorts the cells of some planes by plane, nearest first, and follows each plane's profile.
  void RunPlanes(const Direction& direction, const Planes& planes, int begin, int count) {
    GiveUpIfRaised(options_.stop);
    starts_.assign(static_cast<std::size_t>(count) + 1, 0);
    ForCells(direction, planes, begin, count, [&](int, int, int plane) { ++starts_[plane + 1]; });
    for (int plane = 0; plane < count; ++plane) starts_[plane + 1] += starts_[plane];
    cells_.resize(starts_[count]);
    // Lines come from the camera outwards, so placing them in turn leaves each plane sorted.
    next_.assign(starts_.begin(), starts_.end());
    ForCells(direction, planes, begin, count, [&](int main, int cross, int plane) {
      cells_[next_[plane]++] = {main, cross};
    });
    for (int plane = 0; plane < count; ++plane) {
      if (starts_[plane] == starts_[plane + 1]) continue;
      GiveUpIfRaised(options_.stop);
      FollowPlane(direction, planes.Slope(begin + plane), starts_[plane], starts_[plane + 1]);
    }
  }

  void FollowPlane(const Direction& direction, double slope, std::uint32_t begin,
                   std::uint32_t end) {
    const std::vector<double>& mains = direction.alongColumns ? columns_ : rows_;
    SightProfile profile(
        surface_, {closedQuads_.data(), surface_.QuadRows(), surface_.QuadCols()},
        {direction.alongColumns, direction.sign, direction.alongColumns ? cameraCol_ : cameraRow_,
         direction.alongColumns ? cameraRow_ : cameraCol_, camera_.centre.z, slope});
    for (std::uint32_t i = begin; i < end; ++i) {
      const Cell cell = cells_[i];
      const double reach = direction.sign * mains[cell.main];
      profile.Approach(reach);
      const double height = profile.AdvanceTo(reach);
      const int row = direction.alongColumns ? cell.cross : cell.main;
      const int col = direction.alongColumns ? cell.main : cell.cross;
      std::uint8_t& value = mask_.At(row, col);
      if (std::isnan(height)) {
        value = options_.noHeight;
      } else if (!frame_.Contains(X(col), Y(row), height)) {
        value = options_.outside;
      } else {
        value = profile.Hides(reach, height + tolerance_) ? options_.hidden : options_.seen;
      }
    }
  }

  struct Cell {
    std::int32_t main;
    std::int32_t cross;
  };

  const StepSurface& surface_;
  const SurfacePlacement& placement_;
  const PhotoCamera& camera_;
  const VisibilityLattice& lattice_;
  const VisibilityOptions& options_;
  GridView<std::uint8_t> mask_;
  PhotoFrame frame_;
  double cameraCol_ = 0;
  double cameraRow_ = 0;
  double tolerance_ = 0;
  // Lattice columns and rows relative to the camera, in surface cells.
  std::vector<double> columns_;
  std::vector<double> rows_;
  std::vector<int> cellCols_;  // first lattice column of each quad column
  std::vector<int> cellRows_;
  std::vector<std::uint8_t> closedQuads_;  // can hide or be hidden
  std::vector<std::uint8_t> sightQuads_;   // cells here need sight lines
  std::vector<std::uint32_t> starts_;
  std::vector<std::uint32_t> next_;
  std::vector<Cell> cells_;
};

bool IsSane(const SurfacePlacement& placement, const PhotoCamera& camera,
            const VisibilityLattice& lattice, const GridView<std::uint8_t>& mask) {
  const bool finite = std::isfinite(placement.originX) && std::isfinite(placement.originY) &&
                      std::isfinite(camera.centre.x) && std::isfinite(camera.centre.y) &&
                      std::isfinite(camera.centre.z) && std::isfinite(lattice.firstX) &&
                      std::isfinite(lattice.firstY);
  if (!finite || !IsUsable(camera) || !(placement.cellX > 0) || !(placement.cellY > 0) ||
      !(lattice.step > 0) || lattice.rows <= 0 || lattice.cols <= 0 || lattice.rows > kMaxSide ||
      lattice.cols > kMaxSide || static_cast<double>(lattice.rows) * lattice.cols > kMaxCells ||
      mask.rows != lattice.rows || mask.cols != lattice.cols) {
    return false;
  }
  const double cell = std::min(placement.cellX, placement.cellY);
  const double spanX = lattice.cols * lattice.step;
  const double spanY = lattice.rows * lattice.step;
  const double farthest = std::max({std::fabs(lattice.firstX - camera.centre.x) + spanX,
                                    std::fabs(lattice.firstY - camera.centre.y) + spanY,
                                    std::fabs(placement.originX - camera.centre.x),
                                    std::fabs(placement.originY - camera.centre.y)});
  return farthest < kMaxSteps * cell && farthest < kMaxSteps * lattice.step;
}

}  // namespace

bool ComputeVisibility(const StepSurface& surface, const SurfacePlacement& placement,
                       const PhotoCamera& camera, const VisibilityLattice& lattice,
                       const VisibilityOptions& options, GridView<std::uint8_t> mask) {
  if (!IsSane(placement, camera, lattice, mask)) return false;
  if (!(options.planeSpacing >= 0.01 && options.planeSpacing <= 10)) return false;
  Sweep(surface, placement, camera, lattice, options, mask).Run();
  return true;
}

}  // namespace tqtortho
