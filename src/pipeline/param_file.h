// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// The parameter file hands a job to its block workers: seven header lines, then work blocks of
/// photos of one camera. Text, "\n" line ends, decimal points, six decimals for every length: a
/// metre keeps a micrometre, a pixel size of 1e-6 metres would lose everything but one digit.

/// Job-wide settings, the header lines in order. The values here are those of a line that cannot be
/// parsed.
struct ParamHeader {
  int rectifyOption = 0;
  double scale = 1.0;
  int flagA = 0;
  bool flagB = false;
  double heightPair[2] = {0, 0};
  std::string dsmPath;
  std::string outputDir;
};

/// One work block as a reader gets it back.
struct ParamBlock {
  tqorkit::tqIntOri::INTORI camera;  ///< without name and eighth coefficient
  std::string path;                  ///< directory of the photos
  std::vector<tqorkit::tqExtOri::EXTORI> photos;
};

/// Writes header and work blocks.
///
/// Cameras go by id and photo blocks in order. Indices of a camera's photos gather until there are
/// `groupSize` of them; a photo block whose size is no multiple of `groupSize` also closes with a
/// work block of whatever is gathered, even nothing.
///
/// Kept: indices gathered in a photo block whose size IS a multiple carry over into the next photo
/// block, and even to the next camera, and name photos there; what is left at the very end is never
/// written. An index beyond the later block is dropped. A job whose photo blocks hold one camera
/// each is cut without any of this.
///
/// @return the number of work blocks
int WriteParamFile(std::FILE* file, const ParamHeader& header,
                   const std::map<int, tqorkit::tqIntOri>& cameras,
                   const std::vector<tqorkit::tqPhotoCategory>& photoBlocks, int groupSize);

/// Reads a parameter file; the only reader of the format. One object reads forward only:
/// ReadHeader, then FindBlock and ReadBlock for one block or for several in growing order.
class ParamFileReader {
 public:
  explicit ParamFileReader(std::istream& in) : in_(in) {}

  /// False, with a message in the log, when the scale is below 1. Lines that are missing or do not
  /// parse leave the defaults.
  [[nodiscard]] bool ReadHeader(ParamHeader& header);
  /// Moves behind the line that is exactly "block<number>"; false at the end of the file.
  ///
  /// Kept: any such line is taken for the marker, also a photo directory named "block2".
  [[nodiscard]] bool FindBlock(int number);
  /// Reads the block behind its marker. Fields that do not parse keep their defaults, so that a
  /// damaged photo line yields a photo without position or camera, which then fails alone; a file
  /// that ends early gives the photos up to there. Photo names are cut at 255 bytes. A photo's
  /// block index starts at -1 and a line without one repeats that of the line before.
  void ReadBlock(ParamBlock& block);

 private:
  // The next line, empty at the end of the file (then also false).
  bool NextLine();

  std::istream& in_;
  std::string line_;
};

/// Header and one block of the parameter file at `path`, as every worker takes them. False when the
/// file cannot be opened, its scale is below 1 (logged) or the block is missing.
[[nodiscard]] bool ReadWorkBlock(const char* path, int number, ParamHeader& header,
                                 ParamBlock& block);

}  // namespace tqtortho
