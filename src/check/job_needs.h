// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace tqtortho::host {

/// What the needs of a job follow from.
struct JobSizes {
  struct Photo {
    double pixels = 0;
    double orthoCells = 0;  ///< of its footprint's box
  };
  std::vector<Photo> photos;  ///< those that show something of the surface
  double orthoCells = 0;      ///< of all
  double mosaicCells = 0;
  double dsmCells = 0;
  double overlap = 0;  ///< photos on a place
  int workers = 1;     ///< threads
};

/// Bytes of OUT and WORK together at the end of a job, which is when they are largest.
[[nodiscard]] double DiskNeeded(const JobSizes& sizes);
/// Bytes of mosaic.tif alone.
[[nodiscard]] double MosaicFileBytes(const JobSizes& sizes);
/// Most memory that the process holds at a time (its resident set): the largest of the stages'.
[[nodiscard]] double MemoryNeeded(const JobSizes& sizes);
/// Time of a job on a machine that has nothing else to do; half or twice as much is possible.
[[nodiscard]] double SecondsNeeded(const JobSizes& sizes);

}  // namespace tqtortho::host
