// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_evidence.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/numeric.h"

namespace tqtortho {
namespace {

constexpr int kMostPhotos = 12;  // more do not decide more

std::size_t IndexOf(const WallGround& ground, int row, int col) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(ground.part.cols) +
         static_cast<std::size_t>(col);
}

/// Insertion sort of the first `count` numbers; a dozen at most.
void SortFirst(std::array<float, kMostPhotos>& numbers, int count) {
  for (int k = 1; k < count; ++k) {
    const float number = numbers[k];
    int at = k;
    for (; at > 0 && numbers[at - 1] > number; --at) numbers[at] = numbers[at - 1];
    numbers[at] = number;
  }
}

/// How much colours differ: their distances from the median colour, the worst third left out.
SideEvidence Judge(std::array<PhotoColour, kMostPhotos>& colours, int count) {
  SideEvidence evidence;
  evidence.photos = static_cast<std::uint8_t>(count);
  if (count == 0) return evidence;
  std::array<float, kMostPhotos> sorted{};
  std::array<float, 3> middle{};
  for (std::size_t b = 0; b < 3; ++b) {
    for (int k = 0; k < count; ++k) sorted[k] = colours[k].band[b];
    SortFirst(sorted, count);
    middle[b] = 0.5F * (sorted[(count - 1) / 2] + sorted[count / 2]);
    evidence.colour[b] = static_cast<std::uint8_t>(std::clamp(middle[b], 0.0F, 255.0F));
  }
  for (int k = 0; k < count; ++k) {
    sorted[k] = 0;
    for (std::size_t b = 0; b < 3; ++b) sorted[k] += std::fabs(colours[k].band[b] - middle[b]) / 3;
  }
  SortFirst(sorted, count);
  const int used = std::max(std::min(count, 2), (2 * count + 2) / 3);
  float sum = 0;
  for (int k = 0; k < used; ++k) sum += sorted[k];
  evidence.spread = sum / static_cast<float>(used);
  return evidence;
}

/// The least spread of a cell and its four neighbours, on one side.
void TakeLeastOfNeighbours(const WallGround& ground, std::vector<WallCell>& cells,
                           SideEvidence WallCell::*side, float share) {
  std::vector<float> spread(ground.part.CellCount(), -1);
  for (const WallCell& cell : cells) {
    const SideEvidence& evidence = cell.*side;
    if (evidence.photos >= 2) spread[IndexOf(ground, cell.row, cell.col)] = evidence.spread;
  }
  for (WallCell& cell : cells) {
    SideEvidence& evidence = cell.*side;
    if (evidence.photos < 2) continue;
    float least = evidence.spread;
    const auto look = [&](int row, int col) {
      if (!ground.part.Contains(row, col)) return;
      const float other = spread[IndexOf(ground, row, col)];
      if (other >= 0 && other < least) least = other;
    };
    look(cell.row - 1, cell.col), look(cell.row + 1, cell.col);
    look(cell.row, cell.col - 1), look(cell.row, cell.col + 1);
    evidence.spread += share * (least - evidence.spread);
  }
}

/// The way from the upper to the lower side at a cell, of any length; (0, 0) where it is unknown.
tqfd::Point2_T<double> Outwards(const WallGround& ground, const WallZone& zone, int row, int col) {
  constexpr int kReach = 2;
  tqfd::Point2_T<double> way{0, 0};
  const auto offset = [&](int r, int c) {
    return ground.part.Contains(r, c) ? zone.offset[IndexOf(ground, r, c)]
                                      : std::numeric_limits<float>::quiet_NaN();
  };
  for (int r = -kReach; r <= kReach; ++r) {
    for (int c = -kReach; c <= kReach; ++c) {
      const double difference = offset(row + r, col + c) - offset(row - r, col - c);
      if (std::isnan(difference)) continue;
      way.x += c * difference;
      way.y -= r * difference;
    }
  }
  return way;
}

}  // namespace

std::vector<WallCell> ListWallCells(GridView<const float> part, const WallZone& zone) {
  std::vector<WallCell> cells;
  std::size_t i = 0;
  for (int row = 0; row < part.rows; ++row) {
    for (int col = 0; col < part.cols; ++col, ++i) {
      if (std::isnan(zone.upper[i])) continue;
      WallCell cell;
      cell.row = row;
      cell.col = col;
      cell.height = part.At(row, col);
      cell.upper = zone.upper[i];
      cell.lower = zone.lower[i];
      cell.level = zone.level[i];
      cell.offset = zone.offset[i];
      cells.push_back(cell);
    }
  }
  return cells;
}

std::vector<float> BrightnessGains(const WallGround& ground, const WallZone& zone,
                                   const std::vector<PhotoWindow>& photos) {
  constexpr int kApart = 8;
  constexpr std::size_t kEnough = 20;
  std::vector<std::vector<float>> ratios(photos.size());
  std::vector<float> values(photos.size());
  std::vector<float> known;
  for (int row = kApart / 2; row < ground.part.rows; row += kApart) {
    for (int col = kApart / 2; col < ground.part.cols; col += kApart) {
      const float height = ground.part.At(row, col);
      const bool level = std::isnan(zone.upper[IndexOf(ground, row, col)]) &&
                         std::isfinite(height) &&
                         std::fabs(height - ground.noData) >= kRectifyNoDataTolerance;
      if (!level) continue;
      known.clear();
      for (std::size_t k = 0; k < photos.size(); ++k) {
        PhotoColour colour;
        values[k] = 0;
        if (!ColourOfGround(photos[k], ground.X(col), ground.Y(row), height, colour)) continue;
        values[k] = (colour.band[0] + colour.band[1] + colour.band[2]) / 3;
        known.push_back(values[k]);
      }
      if (known.size() < 2) continue;
      std::sort(known.begin(), known.end());
      const float middle = 0.5F * (known[(known.size() - 1) / 2] + known[known.size() / 2]);
      for (std::size_t k = 0; k < photos.size(); ++k) {
        if (values[k] > 8 && values[k] < 250) ratios[k].push_back(middle / values[k]);
      }
    }
  }
  std::vector<float> gains(photos.size(), 1);
  for (std::size_t k = 0; k < photos.size(); ++k) {
    if (ratios[k].size() < kEnough) continue;
    const auto half = ratios[k].begin() + static_cast<std::ptrdiff_t>(ratios[k].size() / 2);
    std::nth_element(ratios[k].begin(), half, ratios[k].end());
    gains[k] = std::clamp(*half, 0.5F, 2.0F);
  }
  return gains;
}

void AskPhotos(const WallGround& ground, const WallZone& zone,
               const std::vector<PhotoWindow>& photos, const std::vector<float>& gains,
               const StopFlag* stop, std::vector<WallCell>& cells) {
  const double margin = 0.75 * ground.cell;
  std::array<PhotoColour, kMostPhotos> colours;
  int lastRow = -1;
  for (WallCell& cell : cells) {
    if (cell.row != lastRow) GiveUpIfRaised(stop);
    lastRow = cell.row;
    const tqfd::Point2_T<double> outwards = Outwards(ground, zone, cell.row, cell.col);
    for (const bool upper : {true, false}) {
      const double z = upper ? HeightOnSide(cell.height, cell.upper, cell.lower, true)
                             : HeightOnSide(cell.height, cell.upper, cell.lower, false);
      int count = 0;
      int across = 0;
      for (std::size_t k = 0; k < photos.size() && count < kMostPhotos; ++k) {
        PhotoColour& colour = colours[static_cast<std::size_t>(count)];
        if (!ColourOfGround(photos[k], ground.X(cell.col), ground.Y(cell.row), z, colour) ||
            !WouldSee(ground, zone, photos[k].camera.centre, cell.row, cell.col, z, margin)) {
          continue;
        }
        for (float& band : colour.band) band *= gains[k];
        ++count;
        const auto& centre = photos[k].camera.centre;
        if (outwards.x * (centre.x - ground.X(cell.col)) +
                outwards.y * (centre.y - ground.Y(cell.row)) <
            0) {
          ++across;
        }
      }
      SideEvidence& evidence = upper ? cell.onUpper : cell.onLower;
      evidence = Judge(colours, count);
      evidence.across = static_cast<std::uint8_t>(across);
    }
  }
  TakeLeastOfNeighbours(ground, cells, &WallCell::onUpper, 0.75F);
  TakeLeastOfNeighbours(ground, cells, &WallCell::onLower, 1);
}

}  // namespace tqtortho
