// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/numeric.h"
#include "rectify/page_block.h"

namespace tqtortho {

/// Finds the ground cells that share a photo pixel with a cell nearer to the camera.
///
/// Cells come in row order; each either takes an empty pixel, displaces a farther cell (which is
/// marked hidden), or is hidden itself. Distances are in thousandths of a ground unit: the stored
/// one is a whole number, the new one is not, so of two cells at the same true distance the later
/// one usually loses.
///
/// Sound only where a photo pixel is about as large as a cell. With finer photos hardly two cells
/// share a pixel and little is hidden; with finer cells most of flat ground is.
///
/// Memory: a 32-bit cell number per photo pixel, on pages that the system supplies at first touch
/// (pixels no cell reaches cost nothing), and a 32-bit distance per cell that has data.
class ZBuffer {
 public:
  /// @param pixelCount  pixels of the photo
  /// @param cellCount   ground cells, at most 2^32 - 2
  /// @param hidden      one zeroed byte per cell; hidden cells become 255
  /// Throws std::bad_alloc.
  ZBuffer(std::size_t pixelCount, std::size_t cellCount, std::uint8_t* hidden);

  /// Enters a cell that sees `pixel` from `distance`; each cell at most once.
  void Enter(std::size_t pixel, std::uint32_t cell, double distance) {
    const std::int32_t whole = TruncToInt(distance);
    distances_[cell] = whole;
    std::uint32_t& entry = entries_[pixel];
    // Without jumps: who wins a shared pixel is as good as random, and guessing wrong costs more
    // than all the rest. An empty entry stands for the cell itself, which hides nobody.
    const bool occupied = entry != 0;
    const std::uint32_t holder = occupied ? entry - 1 : cell;
    const double stored = distances_[holder];
    const bool nearer = stored > distance;
    const bool farther = distance > stored;
    const auto mark = static_cast<std::uint8_t>(-static_cast<int>(occupied & (nearer | farther)));
    hidden_[nearer ? holder : cell] |= mark & kHiddenCell;
    entry = (!occupied || nearer) ? cell + 1 : entry;
    // An entry of cell 0 at distance 0 cannot be told from an empty one and does not count.
    if (cell == 0 && whole == 0 && !occupied) entry = 0;
  }

  void Prefetch(std::size_t pixel) const { __builtin_prefetch(entries_ + pixel, 1); }

  static constexpr std::uint8_t kHiddenCell = 255;

 private:
  PageBlock entryPages_;
  PageBlock distancePages_;
  std::uint32_t* entries_;   // cell number + 1 per photo pixel, 0 empty
  std::int32_t* distances_;  // per cell, only set where entered
  std::uint8_t* hidden_;
};

}  // namespace tqtortho
