// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/input_check.h"
#include "survey/survey.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// What a job will make and need, before it starts. Memory and disk are met within 30 %, time
/// loosely; docs/accuracy.md has the figures.
struct JobEstimate {
  double gsd = 0;
  /// Median number of photos whose frame holds a place, over the places in any frame; whether
  /// something hides the place there is not asked.
  double overlap = 0;
  double orthoCells = 0;   ///< of all photos
  double mosaicCells = 0;  ///< of the mosaic's box
  double mosaicBytes = 0;  ///< mosaic.tif alone
  double diskBytes = 0;    ///< OUT and WORK together
  double memoryBytes = 0;
  double seconds = 0;
  std::vector<std::string> outside;  ///< photos whose view misses the DSM
};

/// @param threads  0: as many as OpenMP uses
/// @param area     polygon that the job is cut to; empty: everything
[[nodiscard]] JobEstimate EstimateJob(const Survey& survey, const DsmFacts& dsm, double gsd,
                                      int threads,
                                      const std::vector<tqfd::Point2_T<double>>& area = {});

/// What a check found, for people: a few lines of facts and needs. `freeBytes` is the room on the
/// disk of the job, negative when unknown.
[[nodiscard]] std::vector<std::string> DescribeJob(const Survey& survey, const SurveyFacts& facts,
                                                   const JobEstimate& estimate,
                                                   std::int64_t freeBytes);
/// The lines for the DSM.
[[nodiscard]] std::vector<std::string> DescribeDsm(const std::string& path, const DsmFacts& dsm);

struct Machine {
  std::int64_t freeBytes = -1;    ///< on the disk of the job; negative: unknown
  std::int64_t memoryBytes = -1;  ///< not above 0: unknown
};

/// A job that takes longer, in seconds, is refused when its cells are finer than kFarFiner of the
/// photos' ground resolution: cells that small show nothing that the photos do not.
inline constexpr double kLongJob = 120;
inline constexpr double kFarFiner = 0.25;

/// The one rule for jobs that are too large: an error when the estimate exceeds the free disk or
/// the machine's memory, or when the job takes more than two minutes because its cells are far
/// finer than the photos. With `allowed` these are warnings.
void CheckCost(const JobEstimate& estimate, double photoResolution, const std::string& directory,
               const Machine& machine, bool allowed, std::vector<Finding>& findings);
/// Memory of this machine in bytes; -1 when unknown.
[[nodiscard]] std::int64_t MachineMemory();

}  // namespace tqtortho::host
