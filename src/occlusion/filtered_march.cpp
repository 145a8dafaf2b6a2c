// SPDX-License-Identifier: Apache-2.0
#include "occlusion/filtered_march.h"

#include <algorithm>
#include <cmath>

namespace tqtortho {
namespace {

constexpr int kBlockSize = 16;
constexpr double kNever = 4.0 * kMaxSteps;
/// Rays that move less than this many cells per step sideways are marched plainly.
constexpr double kUpright = 1e-9;

enum class Verdict { kSeen, kHidden, kUndecided };

/// A ray in columns, rows and heights per step of the march.
struct CellRay {
  double col, row, height;     ///< origin
  double dCol, dRow, dHeight;  ///< change per step
  double colMargin, rowMargin;
};

/// Interval of steps in which a coordinate is within [low, high]; the whole line when it stands
/// still.
void ClipSteps(double origin, double change, double low, double high, double& first, double& last) {
  if (change == 0) return;
  const double a = (low - origin) / change;
  const double b = (high - origin) / change;
  first = std::max(first, std::min(a, b));
  last = std::min(last, std::max(a, b));
}

/// Walks the blocks along one axis ("major", the one that changes faster) and collects passages.
class PassageFinder {
 public:
  PassageFinder(const CellRay& ray, const BlockMaxima& blocks, GridView<const float> heights)
      : ray_(ray), blocks_(blocks), heights_(heights) {}

  void Find(double end, std::vector<Passage>& passages) const {
    const bool alongCols = std::fabs(ray_.dCol) >= std::fabs(ray_.dRow);
    const Axis cols{ray_.col, ray_.dCol, ray_.colMargin, heights_.cols, blocks_.Cols()};
    const Axis rows{ray_.row, ray_.dRow, ray_.rowMargin, heights_.rows, blocks_.Rows()};
    const Axis& major = alongCols ? cols : rows;
    const Axis& minor = alongCols ? rows : cols;
    int block = 0;
    int lastBlock = 0;
    major.Blocks(0, end, block, lastBlock);
    if (major.change < 0) std::swap(block, lastBlock);
    const int direction = major.change < 0 ? -1 : 1;
    for (; block != lastBlock + direction; block += direction) {
      double first = 0;
      double last = end;
      ClipSteps(major.origin, major.change, major.Low(block), major.High(block), first, last);
      if (first > last) continue;
      int sideBlock = 0;
      int lastSide = 0;
      minor.Blocks(first, last, sideBlock, lastSide);
      for (; sideBlock <= lastSide; ++sideBlock) {
        const float top = alongCols ? blocks_.At(sideBlock, block) : blocks_.At(block, sideBlock);
        AddIfHigh(minor, sideBlock, static_cast<double>(top), first, last, passages);
      }
    }
  }

 private:
  struct Axis {
    double origin, change, margin;
    int cells, blocks;

    /// Positions that belong to a block; truncation gives the first one a cell before the grid.
    [[nodiscard]] double Low(int block) const {
      return (block == 0 ? -1.0 : static_cast<double>(block) * kBlockSize) - margin;
    }
    [[nodiscard]] double High(int block) const {
      return std::min<double>(cells, (block + 1.0) * kBlockSize) + margin;
    }
    void Blocks(double first, double last, int& low, int& high) const {
      const double a = std::clamp(origin + first * change, -1.0, static_cast<double>(cells));
      const double b = std::clamp(origin + last * change, -1.0, static_cast<double>(cells));
      low = std::clamp(FloorToInt((std::min(a, b) - margin) / kBlockSize), 0, blocks - 1);
      high = std::clamp(FloorToInt((std::max(a, b) + margin) / kBlockSize), 0, blocks - 1);
    }
  };

  void AddIfHigh(const Axis& minor, int block, double top, double first, double last,
                 std::vector<Passage>& passages) const {
    ClipSteps(minor.origin, minor.change, minor.Low(block), minor.High(block), first, last);
    if (first > last) return;
    // A rising march never falls below its start.
    if (ray_.dHeight >= 0 && !(top > ray_.height)) return;
    const double lowest = ray_.height + (ray_.dHeight >= 0 ? first : last) * ray_.dHeight;
    if (top > lowest - MarchMargins::Height(ray_.height, lowest)) passages.push_back({first, last});
  }

  const CellRay& ray_;
  const BlockMaxima& blocks_;
  GridView<const float> heights_;
};

/// Step at which one axis ends a march, between `low` and `high`.
struct StopStep {
  double low = 1;
  double high = kNever;
};

/// @param greater  the axis ends the march when p > exit, else when exit >= p
StopStep StopOf(bool greater, double start, double step, double exit, double margin) {
  if (step == 0) {
    const bool ends = greater ? start > exit : exit >= start;
    return ends ? StopStep{1, 1} : StopStep{kNever, kNever};
  }
  if (greater == (step > 0)) {  // ends once the exit is passed
    const double count = (exit - start) / step;
    const double slack = margin / std::fabs(step) + kCountSlack;
    return {std::max(1.0, std::ceil(count - slack)), std::max(1.0, std::floor(count + slack) + 1)};
  }
  // Ends at once, unless the first step passes the exit.
  const double beyond = greater ? start + step - exit : exit - start - step;
  if (beyond > margin) return {1, 1};
  if (beyond < -margin) return {kNever, kNever};
  return {};
}

/// The steps of one leaf's march, in closed form.
class LeafSteps {
 public:
  LeafSteps(const RaySurface& surface, const CellRay& ray, double startStep, StopStep stop)
      : surface_(surface), ray_(ray), startStep_(startStep), stop_(stop) {}

  [[nodiscard]] Verdict Decide(const std::vector<Passage>& passages) const {
    Verdict verdict = Verdict::kSeen;
    for (const Passage& passage : passages) {
      double k = std::max(1.0, std::ceil(passage.first - startStep_ - kCountSlack));
      const double end = std::min({std::floor(passage.last - startStep_ + kCountSlack), stop_.high,
                                   static_cast<double>(kMaxSteps)});
      while (k <= end) {
        double run = 1;
        const Verdict step = DecideStep(k, run);
        if (step == Verdict::kHidden && k <= stop_.low) return Verdict::kHidden;
        if (step != Verdict::kSeen) verdict = Verdict::kUndecided;
        k += run;
      }
    }
    return verdict;
  }

 private:
  /// One step; `run` receives the number of steps that share its answer.
  [[nodiscard]] Verdict DecideStep(double k, double& run) const {
    const double n = startStep_ + k;
    const double col = ray_.col + n * ray_.dCol;
    const double row = ray_.row + n * ray_.dRow;
    const int col0 = TruncToInt(col - ray_.colMargin);
    const int col1 = TruncToInt(col + ray_.colMargin);
    const int row0 = TruncToInt(row - ray_.rowMargin);
    const int row1 = TruncToInt(row + ray_.rowMargin);
    bool anyHit = false;
    bool allHit = true;
    bool unsure = false;
    const double z = ray_.height + n * ray_.dHeight;
    const double margin = MarchMargins::Height(ray_.height, z);
    const GridView<const float>& heights = surface_.heights;
    float top = 0;
    for (int r = row0; r <= row1; ++r) {
      for (int c = col0; c <= col1; ++c) {
        top = heights.Contains(r, c) ? heights.At(r, c) : -HUGE_VALF;
        const double h = static_cast<double>(top);
        const bool hit = h > z + margin;
        if (!hit && h > z - margin && !(ray_.dHeight >= 0 && h <= ray_.height)) unsure = true;
        anyHit |= hit;
        allHit &= hit;
      }
    }
    if (unsure || (anyHit && !allHit)) return Verdict::kUndecided;
    if (anyHit) return Verdict::kHidden;
    if (col0 == col1 && row0 == row1) run = RunInCell(col, row, z, static_cast<double>(top));
    return Verdict::kSeen;
  }

  /// Steps that an upright ray spends in a cell it clears for all of them.
  [[nodiscard]] double RunInCell(double col, double row, double z, double top) const {
    const double speed = std::max(std::fabs(ray_.dCol), std::fabs(ray_.dRow));
    if (speed > 0.05) return 1;
    const double toBorder = std::min({col - std::floor(col), std::floor(col) + 1 - col,
                                      row - std::floor(row), std::floor(row) + 1 - row}) -
                            std::max(ray_.colMargin, ray_.rowMargin);
    const double run = std::floor(std::min(toBorder / std::max(speed, 1e-12), kNever));
    if (run < 2) return 1;
    const double zEnd = z + run * ray_.dHeight;
    const bool clears = ray_.dHeight >= 0 || !(top > zEnd - MarchMargins::Height(z, zEnd));
    return clears ? run : 1;
  }

  const RaySurface& surface_;
  const CellRay& ray_;
  double startStep_;
  StopStep stop_;
};

StopStep StopOfLeaf(LeafCase leafCase, const Point3& start, const Point3& step, const Point3& exit,
                    const MarchMargins& margins) {
  const bool greaterX = leafCase == LeafCase::kUpperRight || leafCase == LeafCase::kLowerRight;
  const bool greaterY = leafCase == LeafCase::kUpperRight || leafCase == LeafCase::kUpperLeft;
  const StopStep x = StopOf(greaterX, start.x, step.x, exit.x, margins.x);
  const StopStep y = StopOf(greaterY, start.y, step.y, exit.y, margins.y);
  return {std::min(x.low, y.low), std::min(x.high, y.high)};
}

}  // namespace

MarchMargins::MarchMargins(const RaySurface& surface) {
  const double sizeX = static_cast<double>(surface.cellSizeX);
  const double sizeY = std::fabs(static_cast<double>(surface.cellSizeY));
  x = kRelative * (std::max(surface.box.maxX, surface.heights.cols * sizeX) + sizeX);
  y = kRelative * (std::max(surface.box.maxY, surface.heights.rows * sizeY) + sizeY);
  cols = 2 * x / sizeX;
  rows = 2 * y / sizeY;
}

FilteredMarch::FilteredMarch(const RayScene& scene)
    : scene_(scene), margins_(scene.surface), blocks_(scene.surface.heights, kBlockSize) {
  usable_ = scene.surface.cellSizeX > 0 && scene.surface.cellSizeY < 0 && margins_.cols < 0.01 &&
            margins_.rows < 0.01;
}

bool FilteredMarch::IsHidden(int row, int col, Scratch& scratch) const {
  if (!usable_) return IsHiddenByMarch(scene_, row, col, scratch.hits);
  const RaySurface& surface = scene_.surface;
  Ray ray;
  if (!MakeRay(surface.CellPoint(row, col), scene_.camera, ray)) return false;
  if (ray.direction.z >= 0 && scene_.highest <= ray.origin.z) return false;

  const double size = static_cast<double>(surface.cellSizeX);
  const Point3 step{ray.direction.x * size, ray.direction.y * size, ray.direction.z * size};
  CellRay cells{static_cast<double>(col),
                static_cast<double>(row),
                ray.origin.z,
                ray.direction.x,
                step.y / static_cast<double>(surface.cellSizeY),
                step.z,
                step.x == 0 ? 0 : margins_.cols,
                step.y == 0 ? 0 : margins_.rows};
  if (std::fabs(cells.dCol) < kUpright && std::fabs(cells.dRow) < kUpright) {
    return IsHiddenByMarch(scene_, row, col, scratch.hits);
  }
  double end = 1e18;
  if (step.z > 0) end = std::min(end, (scene_.highest - ray.origin.z) / step.z * (1 + 1e-9) + 1);
  scratch.passages.clear();
  PassageFinder(cells, blocks_, surface.heights).Find(end, scratch.passages);
  if (scratch.passages.empty()) return false;

  scratch.hits.clear();
  scene_.tree.Query(ray, scratch.hits);
  for (const LeafHit& hit : scratch.hits) {
    const LeafCase leafCase = scene_.cases[hit.node];
    if (leafCase == LeafCase::kNone) continue;
    const Point3 start = MarchStart(ray, hit.entry);
    const StopStep stop = StopOfLeaf(leafCase, start, step, hit.exit, margins_);
    const double startStep = start == ray.origin ? 0 : hit.entryT / size;
    const Verdict verdict = LeafSteps(surface, cells, startStep, stop).Decide(scratch.passages);
    if (verdict == Verdict::kHidden) return true;
    if (verdict == Verdict::kUndecided &&
        LeafBlocks(surface, scene_.highest, ray, leafCase, hit.entry, hit.exit)) {
      return true;
    }
  }
  return false;
}

}  // namespace tqtortho
