// SPDX-License-Identifier: Apache-2.0
#include "occlusion/tile_tracer.h"

#include <algorithm>
#include <cmath>

namespace tqtortho {
namespace {

constexpr int kBlock = 8;
constexpr int kTile = 16;
/// Parts of a tile that have their own blockers; a row of a part is one group of lanes.
constexpr int kPartCols = 8;
constexpr int kPartRows = 4;
constexpr int kPartsAcross = kTile / kPartCols;
static_assert(kPartsAcross * (kTile / kPartRows) == TileParts::kCount);
/// The lanes' margins are this much wider than a single march needs: a step interval may be cut by
/// leaf borders into that many pieces.
constexpr double kPieces = 8;

/// The strip of a tile's rays on their way to the camera, along the axis they follow most.
class Strip {
 public:
  /// @param near, far    tile's first and last cell along the axis, as seen from the camera
  /// @param side0, side1 tile's extent across it
  Strip(double near, double far, double camera, double side0, double side1, double sideCamera)
      : near_(near),
        far_(far),
        camera_(camera),
        side0_(side0),
        side1_(side1),
        sideCamera_(sideCamera) {}

  /// Part of the way to the camera that a ray from the tile has made at least when it reaches `at`.
  [[nodiscard]] double LeastWay(double at) const { return Way(near_, at); }
  [[nodiscard]] double Low(double at) const {
    return std::min(Side(side0_, Way(near_, at)), Side(side0_, Way(far_, at)));
  }
  [[nodiscard]] double High(double at) const {
    return std::max(Side(side1_, Way(near_, at)), Side(side1_, Way(far_, at)));
  }

 private:
  [[nodiscard]] double Way(double from, double at) const {
    return std::clamp((at - from) / (camera_ - from), 0.0, 1.0);
  }
  [[nodiscard]] double Side(double from, double way) const {
    return from + way * (sideCamera_ - from);
  }

  double near_, far_, camera_, side0_, side1_, sideCamera_;
};

void AddSpans(int begin, int middle, int end, std::vector<std::pair<int, int>>& spans) {
  for (const auto& [first, last] : {std::pair(begin, middle), std::pair(middle, end)}) {
    for (int i = first; i < last; i += kTile) spans.emplace_back(i, std::min(i + kTile, last));
  }
}

}  // namespace

TileTracer::TileTracer(const RayScene& scene, const FilteredMarch& march)
    : scene_(scene),
      march_(march),
      kernel_(ChooseLaneKernel()),
      blocks_(scene.surface.heights, kBlock) {
  const RaySurface& s = scene.surface;
  const LocalBox& box = s.box;
  const Point3& camera = scene.camera;
  const double sizeX = static_cast<double>(s.cellSizeX);
  const double sizeY = static_cast<double>(s.cellSizeY);
  const MarchMargins& margins = march.Margins();
  leafTop_ = QuadTree::LeafTop(s);
  cameraCol_ = camera.x / sizeX;
  cameraRow_ = camera.y / sizeY + (s.heights.rows - 1);
  // Well above everything, and never so flat that an axis counts as parallel.
  const double above = camera.z - std::max(scene.highest, leafTop_);
  const double reach = std::fabs(camera.x) + std::fabs(camera.y) + box.maxX + box.maxY;
  const bool regular =
      sizeX > 0 && sizeY < 0 && -sizeY >= 0.1 * sizeX && -sizeY <= 10 * sizeX &&
      kPieces * margins.cols < 0.01 && kPieces * margins.rows < 0.01 &&
      std::isfinite(scene.highest) && s.heights.CellCount() < (std::size_t{1} << 31) &&
      s.heights.stride == s.heights.cols && leafTop_ >= box.minZ && leafTop_ <= box.maxZ;
  usable_ = regular && above >= sizeX && above > 1e-5 * reach &&
            reach < 1e4 * (box.maxX + box.maxY) && camera.z < 1e9 && ReadLeafBorders();
}

bool TileTracer::ReadLeafBorders() {
  const RaySurface& s = scene_.surface;
  const LocalBox& box = s.box;
  const Point3& camera = scene_.camera;
  const bool insideX = camera.x > box.minX && camera.x < box.maxX;
  const bool insideY = camera.y > box.minY && camera.y < box.maxY;
  const bool splitAtCamera = insideX && insideY;
  if (splitAtCamera && scene_.tree.Nodes().front().IsLeaf()) return false;
  std::vector<double> x;
  std::vector<double> y;
  std::size_t leaves = 0;
  for (const QuadNode& node : scene_.tree.Nodes()) {
    if (!node.IsLeaf()) continue;
    // Only the leaves to the lower left of a split camera matter.
    if (splitAtCamera && (node.box.minX >= camera.x || node.box.minY >= camera.y)) continue;
    x.insert(x.end(), {node.box.minX, node.box.maxX});
    y.insert(y.end(), {node.box.minY, node.box.maxY});
    ++leaves;
  }
  for (std::vector<double>* borders : {&x, &y}) {
    std::sort(borders->begin(), borders->end());
    borders->erase(std::unique(borders->begin(), borders->end()), borders->end());
  }
  // Rounding may divide one neighbour and not the other; then there are no common borders.
  if ((x.size() - 1) * (y.size() - 1) != leaves) return false;
  const auto leafAt = [](const std::vector<double>& borders, double at) {
    return static_cast<int>(std::upper_bound(borders.begin(), borders.end(), at) -
                            borders.begin()) -
           1;
  };
  if (insideX && !splitAtCamera) againstCol_ = leafAt(x, camera.x);
  if (insideY && !splitAtCamera) againstRow_ = leafAt(y, camera.y);
  for (const double border : x) leafCols_.push_back(border / static_cast<double>(s.cellSizeX));
  for (const double border : y) {
    leafRows_.push_back(border / static_cast<double>(s.cellSizeY) + (s.heights.rows - 1));
  }
  return true;
}

LaneScene TileTracer::LanesOf(const Tile& tile) const {
  const RaySurface& s = scene_.surface;
  const double rows = s.heights.rows - 1;
  const double sizeX = static_cast<double>(s.cellSizeX);
  const double sizeY = static_cast<double>(s.cellSizeY);
  LaneScene lanes{};
  lanes.heights = s.heights;
  lanes.cellSizeX = sizeX;
  lanes.cellSizeY = sizeY;
  lanes.cameraX = scene_.camera.x;
  lanes.cameraY = scene_.camera.y;
  lanes.cameraZ = scene_.camera.z;
  lanes.leafTop = leafTop_;
  lanes.colMargin = kPieces * march_.Margins().cols;
  lanes.rowMargin = kPieces * march_.Margins().rows;
  lanes.boxCol0 = s.box.minX / sizeX;
  lanes.boxCol1 = s.box.maxX / sizeX;
  lanes.boxRow0 = s.box.maxY / sizeY + rows;
  lanes.boxRow1 = s.box.minY / sizeY + rows;
  lanes.toRight = tile.col0 < cameraCol_;
  lanes.up = tile.row0 > cameraRow_;
  // Only rays to the right (up) can be against the case of the leaves that hold the camera's x (y).
  lanes.endsAtCol = lanes.toRight && againstCol_ >= 0;
  lanes.endsAtRow = lanes.up && againstRow_ >= 0;
  if (lanes.endsAtCol) lanes.endCol = leafCols_[againstCol_];
  if (lanes.endsAtRow) lanes.endRow = leafRows_[againstRow_];
  lanes.leafCols = leafCols_.data();
  lanes.leafRows = leafRows_.data();
  lanes.shortLeafCol = againstCol_;
  lanes.shortLeafRow = againstRow_;
  return lanes;
}

std::vector<TileTracer::Tile> TileTracer::Tiles() const {
  const GridView<const float>& heights = scene_.surface.heights;
  std::vector<std::pair<int, int>> rows;
  std::vector<std::pair<int, int>> cols;
  const auto split = [&](double camera, int cells) {
    return usable_ ? std::clamp(FloorToInt(camera), -1, cells - 1) + 1 : 0;
  };
  AddSpans(0, split(cameraRow_, heights.rows), heights.rows, rows);
  AddSpans(0, split(cameraCol_, heights.cols), heights.cols, cols);
  std::vector<Tile> tiles;
  for (const auto& row : rows) {
    for (const auto& col : cols) tiles.push_back({row.first, row.second, col.first, col.second});
  }
  return tiles;
}

void TileTracer::AddBlocker(int blockRow, int blockCol, const LaneScene& lanes,
                            std::vector<Blocker>& blockers) const {
  // Truncation adds a cell before the grid's first.
  const double col0 = blockCol == 0 ? -1 : static_cast<double>(blockCol) * kBlock;
  const double col1 = (blockCol + 1.0) * kBlock;
  const double row0 = blockRow == 0 ? -1 : static_cast<double>(blockRow) * kBlock;
  const double row1 = (blockRow + 1.0) * kBlock;
  Blocker blocker{};
  blocker.nearCol = lanes.toRight ? col0 : col1;
  blocker.farCol = lanes.toRight ? col1 : col0;
  blocker.nearRow = lanes.up ? row1 : row0;
  blocker.farRow = lanes.up ? row0 : row1;
  blocker.top = static_cast<double>(blocks_.At(blockRow, blockCol));
  if (lanes.UpperRight()) {
    // A march looks one step past its leaf, so the leaves before the block count too.
    constexpr double kRounding = 0.01;
    const double reach = -lanes.cellSizeX / lanes.cellSizeY;
    const int lastCol = static_cast<int>(leafCols_.size()) - 2;
    const int lastRow = static_cast<int>(leafRows_.size()) - 2;
    const auto colLeaf = [&](double col) {
      const auto after = std::upper_bound(leafCols_.begin(), leafCols_.end(), col);
      return std::clamp(static_cast<int>(after - leafCols_.begin()) - 1, 0, lastCol);
    };
    const auto rowLeaf = [&](double row) {
      const auto after =
          std::upper_bound(leafRows_.begin(), leafRows_.end(), row, std::greater<double>());
      return std::clamp(static_cast<int>(after - leafRows_.begin()) - 1, 0, lastRow);
    };
    blocker.leafCol0 = colLeaf(col0 - 1 - kRounding);
    blocker.leafCol1 = colLeaf(col1 + kRounding);
    blocker.leafRow0 = rowLeaf(row1 + reach + kRounding);
    blocker.leafRow1 = rowLeaf(row0 - kRounding);
  }
  blockers.push_back(blocker);
}

bool TileTracer::FindBlockers(const Tile& tile, double lowest, const LaneScene& lanes,
                              std::vector<Blocker>& blockers) const {
  const double rowWay = std::fabs(cameraRow_ - (tile.row0 + tile.row1) / 2.0);
  const double colWay = std::fabs(cameraCol_ - (tile.col0 + tile.col1) / 2.0);
  const bool alongCols = colWay >= rowWay;
  const int first = alongCols ? tile.col0 : tile.row0;
  const int last = (alongCols ? tile.col1 : tile.row1) - 1;
  const double camera = alongCols ? cameraCol_ : cameraRow_;
  const bool forward = camera >= last;
  const double near = forward ? last : first;
  if (std::fabs(camera - near) < 1) return false;
  const Strip strip =
      alongCols ? Strip(near, forward ? first : last, camera, tile.row0, tile.row1 - 1, cameraRow_)
                : Strip(near, forward ? first : last, camera, tile.col0, tile.col1 - 1, cameraCol_);
  const double margin = kPieces * std::max(march_.Margins().cols, march_.Margins().rows) + 1e-6;
  const int sideBlocks = alongCols ? blocks_.Rows() : blocks_.Cols();
  const int direction = forward ? 1 : -1;
  const int blocks = alongCols ? blocks_.Cols() : blocks_.Rows();
  const int lastBlock = std::clamp(FloorToInt(camera / kBlock), 0, blocks - 1);
  for (int block = (forward ? first : last) / kBlock; block != lastBlock + direction;
       block += direction) {
    const double begin = (forward ? block : block + 1) * static_cast<double>(kBlock);
    const double end = begin + direction * (kBlock + (block == 0 ? 1 : 0));
    const double height =
        lowest + std::max(0.0, strip.LeastWay(begin) - 1e-9) * (scene_.camera.z - lowest);
    const double cleared = height - MarchMargins::Height(lowest, scene_.camera.z);
    if (cleared >= scene_.highest) break;
    const double low = std::min(strip.Low(begin), strip.Low(end)) - margin;
    const double high = std::max(strip.High(begin), strip.High(end)) + margin;
    // Truncation gives the first block a cell before the grid.
    if (!(high > -1)) continue;
    const int side1 = std::min(std::max(FloorToInt(high / kBlock), 0), sideBlocks - 1);
    for (int side = std::max(FloorToInt(low / kBlock), 0); side <= side1; ++side) {
      const int row = alongCols ? side : block;
      const int col = alongCols ? block : side;
      const double top = static_cast<double>(blocks_.At(row, col));
      if (top > cleared && top > lowest) AddBlocker(row, col, lanes, blockers);
    }
  }
  return true;
}

void TileTracer::TraceRays(const Tile& tile, GridView<const std::uint8_t> examine,
                           GridView<std::uint8_t> hidden, Scratch& scratch) const {
  const RaySurface& s = scene_.surface;
  for (int r = tile.row0; r < tile.row1; ++r) {
    for (int c = tile.col0; c < tile.col1; ++c) {
      if (examine.cells != nullptr && examine.At(r, c) == 0) continue;
      if (!IsValidHeight(s.heights.At(r, c), s.noData)) continue;
      if (march_.IsHidden(r, c, scratch.ray)) hidden.At(r, c) = 255;
    }
  }
}

void TileTracer::TracePart(const Tile& part, const unsigned* wanted, const LaneScene& lanes,
                           GridView<std::uint8_t> hidden, Scratch& scratch) const {
  for (int r = part.row0; r < part.row1; ++r) {
    LaneGroup group{r, part.col0, wanted[r - part.row0], 0, 0};
    if (group.wanted == 0) continue;
    kernel_.decide(lanes, scratch.partBlockers, group);
    for (int i = 0; i < kPartCols; ++i) {
      const int c = group.firstCol + i;
      if ((group.hidden >> i & 1) != 0 ||
          ((group.undecided >> i & 1) != 0 && march_.IsHidden(r, c, scratch.ray))) {
        hidden.At(r, c) = 255;
      }
    }
  }
}

void TileTracer::Trace(const Tile& tile, GridView<const std::uint8_t> examine,
                       GridView<std::uint8_t> hidden, Scratch& scratch) const {
  if (!usable_) return TraceRays(tile, examine, hidden, scratch);
  const RaySurface& s = scene_.surface;
  float lowest = HUGE_VALF;
  float highest = -HUGE_VALF;
  Tile cells[TileParts::kCount];
  TileParts parts;
  unsigned wanted[TileParts::kCount][kPartRows] = {};
  for (int p = 0; p < TileParts::kCount; ++p) {
    Tile& part = cells[p];
    part.row0 = std::min(tile.row0 + p / kPartsAcross * kPartRows, tile.row1);
    part.row1 = std::min(part.row0 + kPartRows, tile.row1);
    part.col0 = std::min(tile.col0 + p % kPartsAcross * kPartCols, tile.col1);
    part.col1 = std::min(part.col0 + kPartCols, tile.col1);
    float partLowest = HUGE_VALF;
    for (int r = part.row0; r < part.row1; ++r) {
      for (int c = part.col0; c < part.col1; ++c) {
        const float h = s.heights.At(r, c);
        if (!IsValidHeight(h, s.noData) || (examine.cells != nullptr && examine.At(r, c) == 0)) {
          continue;
        }
        partLowest = std::min(partLowest, h);
        highest = std::max(highest, h);
        wanted[p][r - part.row0] |= 1u << (c - part.col0);
      }
    }
    lowest = std::min(lowest, partLowest);
    parts.col[p] = (part.col0 + part.col1 - 1) / 2.0;
    parts.row[p] = (part.row0 + part.row1 - 1) / 2.0;
    parts.halfCols[p] = (part.col1 - part.col0 - 1) / 2.0;
    parts.halfRows[p] = (part.row1 - part.row0 - 1) / 2.0;
    parts.lowest[p] = static_cast<double>(partLowest);
  }
  if (lowest > highest) return;  // nothing to examine
  const LaneScene lanes = LanesOf(tile);
  scratch.blockers.clear();
  if (!std::isfinite(lowest) || static_cast<double>(lowest) < s.box.minZ ||
      static_cast<double>(highest) > s.box.maxZ ||
      !FindBlockers(tile, static_cast<double>(lowest), lanes, scratch.blockers)) {
    return TraceRays(tile, examine, hidden, scratch);
  }
  if (scratch.blockers.empty()) return;

  scratch.meets.resize(scratch.blockers.size());
  kernel_.sieve(lanes, parts, scratch.blockers, scratch.meets.data());
  for (int p = 0; p < TileParts::kCount; ++p) {
    scratch.partBlockers.clear();
    for (std::size_t i = 0; i < scratch.blockers.size(); ++i) {
      if ((scratch.meets[i] >> p & 1) != 0) scratch.partBlockers.push_back(scratch.blockers[i]);
    }
    if (!scratch.partBlockers.empty()) TracePart(cells[p], wanted[p], lanes, hidden, scratch);
  }
}

}  // namespace tqtortho
