// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqfd/Export.h"

namespace tqorkit {

/// Thumbnails of masks, for a glance at a whole block. Holds nothing; different objects may run at
/// once on different files.
class TQTORTHO_API tqMapSpotSimpler {
 public:
  /// The thumbnail of the raster `path`: "_thumb.png" appended to its whole name.
  [[nodiscard]] static std::string ThumbnailName(const std::string& path);

  /// Writes the thumbnail of a byte raster beside it, as PNG without georeference: at most `size`
  /// cells on its longer side, each the mean of the cells it covers, so that a thin shadow turns
  /// grey instead of vanishing; a smaller raster keeps its size. An older thumbnail is replaced.
  /// @return false, and no thumbnail, for a size below 1, a raster that cannot be read or a place
  ///         that cannot be written.
  bool DoMapSpotSimpling(std::string path, int size);
};

}  // namespace tqorkit
