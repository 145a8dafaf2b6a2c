// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "tqfd/Export.h"
#include "tqimage/GeoCoefficients.h"

namespace tqorkit {

/// File naming and mask files of a job. The table behind these members is the only place that knows
/// an extension. Stateless but for the temporary directory; thread-safe.
class TQTORTHO_API TqFSManager {
 public:
  /// Codes of the files that stand beside a photo's ortho image.
  enum FILE_EXT : int {
    kOwnershipMask = 1,     ///< replaces the extension by ".msk"
    kReducedCopy = 4,       ///< replaces the extension by ".tif"
    kOrthoSidecar = 6,      ///< replaces the extension by ".georef"
    kOrtho = 7,             ///< keeps the extension
    kObscuredSidecar = 11,  ///< replaces the extension by ".obsref"
    kObscuredMask = 13,     ///< appends "_obs.tif" to the whole name
  };

  /// The name with its extension changed as the table says; an unknown code returns it unchanged.
  static std::string ModifyExtName(const std::string& name, int type);
  /// Inserts `text` into a photo name: for the text "3_" the name "d/a.jpg" becomes "d/a_3.jpg"
  /// (a trailing "_" of the text joins nothing and is dropped), then ModifyExtName for `type`.
  static void ModifyExtAndName(const std::string& name, const std::string& text, std::string& out,
                               int type);
  /// The file name of `path`, through ModifyExtName, in the directory `directory` ("/rs/") that
  /// stands beside the directory `outputDir`.
  static std::string ChangeFileDirectory(const std::string& path, const std::string& outputDir,
                                         const std::string& directory, int type);
  /// Writes interleaved bytes as a GeoTIFF.
  static bool SaveImageFile(const std::uint8_t* data, int width, int height, int bands,
                            const std::string& path, bool overwrite,
                            const tqimage::GeoCoefficients* coefficients);
  /// The job's temporary output directory, without a trailing separator. Order: the setter, the
  /// environment variable TQTORTHO_TMP_DIR, $XDG_CACHE_HOME/tqtortho, ~/.cache/tqtortho.
  static std::string GetOutputTmpFilePath();
  static void SetOutputTmpFilePath(const std::string& directory);
};

}  // namespace tqorkit
