// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Progress.h"
#include "tqorkit/tqPhotoCategory.h"

namespace TqRaster {

/// The job's mosaic masks, which decide the photo that supplies each part of the mosaic.
///
/// The masks are made by the maker that the process has installed; a job installs the library's own
/// (the nearest photo that shows the cell) unless the host has set another. Without a maker no mask
/// is written.
class TQTORTHO_API tqRasterTorMsk {
 public:
  using Maker = std::function<bool(std::vector<tqorkit::tqPhotoCategory>& photoBlocks,
                                   tqfd::ProgressCallback progress, void* user)>;

  tqRasterTorMsk() = default;
  virtual ~tqRasterTorMsk() = default;

  /// Calls the maker and returns its answer; true, with nothing written and no progress, without
  /// one.
  virtual bool DoMosaicMskByBlock(std::vector<tqorkit::tqPhotoCategory>& photoBlocks,
                                  tqfd::ProgressCallback progress, void* user);

  /// Installs the maker for the whole process; an empty one removes it. Thread-safe; a run that has
  /// begun keeps the maker it began with.
  static void SetMaker(Maker maker);
  [[nodiscard]] static bool HasMaker();
};

}  // namespace TqRaster
