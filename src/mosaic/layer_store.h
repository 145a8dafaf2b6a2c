// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_view.h"
#include "mosaic/mosaic_blend.h"

namespace tqtortho::host {

/// What the mosaic keeps of each photo between judging the photos and making tiles: the rating of
/// every cell of its ortho, and colours that replace the ortho's at some cells.
///
/// Ratings change slowly and replaced cells are few, so rows are stored as runs: some tenths of a
/// byte per cell, read much faster than any file of pixels. Layers stay in memory up to a budget;
/// what exceeds it goes to working files, so memory does not grow with the job. While there is
/// room, whole pictures are kept as well, which saves reading the ortho again.
///
/// Put may be called for different photos at a time; reading is thread-safe afterwards.
class LayerStore {
 public:
  /// @param dir     receives working files, if any; removed with them by the destructor
  /// @param budget  bytes of memory for all layers; pictures have four times as many
  LayerStore(std::string dir, std::size_t photos, std::size_t budget);
  ~LayerStore();
  LayerStore(const LayerStore&) = delete;
  LayerStore& operator=(const LayerStore&) = delete;

  /// Stores a photo's layer.
  /// @param replaced  not 0 where the pixels are not the ortho's
  /// @param pixels    three bytes per cell, as the mosaic is to show the photo; moved from
  /// @return false when the working file cannot be written
  [[nodiscard]] bool Put(std::size_t photo, GridView<const std::uint8_t> rating,
                         const std::uint8_t* replaced, std::vector<std::uint8_t>& pixels);

  /// Copies the ratings of a part of the photo's cells.
  [[nodiscard]] bool ReadRatings(std::size_t photo, const CellSpan& part,
                                 GridView<std::uint8_t> out) const;
  /// Copies the pixels of a part, when they were kept. Views of pixels count samples as columns.
  [[nodiscard]] bool ReadPixels(std::size_t photo, const CellSpan& part,
                                GridView<std::uint8_t> out) const;
  /// Overwrites pixels of the ortho by those that replace them.
  [[nodiscard]] bool ReplacePixels(std::size_t photo, const CellSpan& part,
                                   GridView<std::uint8_t> pixels) const;

  /// A working file could not be written.
  [[nodiscard]] bool Failed() const { return failed_; }
  [[nodiscard]] const std::string& Directory() const { return dir_; }

 private:
  struct Layer {
    int rows = 0;
    int cols = 0;
    std::vector<std::uint64_t> starts;  ///< of the rows' runs, and their end; empty when in a file
    std::vector<std::uint8_t> bytes;    ///< empty when in a file
    std::vector<std::uint8_t> pixels;   ///< empty when not kept
    bool inFile = false;
  };
  /// The bytes of some rows, and where each of them begins.
  struct Rows {
    std::vector<std::uint8_t> buffer;
    const std::uint8_t* bytes = nullptr;
    std::vector<std::uint64_t> starts;
    [[nodiscard]] const std::uint8_t* Row(int index) const {
      return bytes + (starts[index] - starts[0]);
    }
  };
  [[nodiscard]] std::string PathOf(std::size_t photo) const;
  [[nodiscard]] bool Load(std::size_t photo, const CellSpan& part, Rows& rows) const;
  bool WriteFile(std::size_t photo, const Layer& layer) const;

  std::string dir_;
  std::vector<Layer> layers_;
  std::atomic<std::int64_t> roomForRuns_;
  std::atomic<std::int64_t> roomForPixels_;
  std::atomic<bool> failed_{false};
};

}  // namespace tqtortho::host
