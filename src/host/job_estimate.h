// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/input_check.h"
#include "host/survey.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// What a job will make and need, before it starts; sizes are those of photos with much detail.
/// Against finished jobs: two synthetic towns (150 and 300 m, photos nearly vertical) disk +3 and
/// +4 %, memory 0 and +12 %, time -2 and -13 % on two cores; fields with a village, photos tilted
/// by 30 degrees, disk +66 % (frames reach beyond the surface), memory +40 %, time -12 %. On a busy
/// machine times grow as they do.
struct JobEstimate {
  double gsd = 0;
  double overlap = 0;     ///< median number of photos over a ground cell that any shows
  double orthoCells = 0;  ///< of all photos
  double largestOrthoCells = 0;
  double mosaicCells = 0;  ///< of the mosaic's box
  double mosaicBytes = 0;  ///< mosaic.tif alone
  double diskBytes = 0;    ///< OUT and WORK together
  double memoryBytes = 0;
  double seconds = 0;
  std::vector<std::string> outside;  ///< photos whose view misses the DSM
};

/// @param threads  0: all cores
[[nodiscard]] JobEstimate EstimateJob(const Survey& survey, const DsmFacts& dsm, double gsd,
                                      int threads);

/// What a check found, for people: a few lines of facts and needs. `freeBytes` is the room on the
/// disk of the job, negative when unknown.
[[nodiscard]] std::vector<std::string> DescribeJob(const Survey& survey, const SurveyFacts& facts,
                                                   const JobEstimate& estimate,
                                                   std::int64_t freeBytes);
/// The lines for the DSM.
[[nodiscard]] std::vector<std::string> DescribeDsm(const std::string& path, const DsmFacts& dsm);

/// Room on the disk and in memory against what is needed: an error only when the disk is clearly
/// too small (less than a third), else warnings.
void CheckRoom(const JobEstimate& estimate, const std::string& directory, std::int64_t freeBytes,
               std::int64_t machineBytes, std::vector<Finding>& findings);
/// Memory of this machine in bytes; -1 when unknown.
[[nodiscard]] std::int64_t MachineMemory();

}  // namespace tqtortho::host
