// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "mosaic/mosaic_stage.h"
#include "report/run_report.h"

namespace tqtortho::host {

/// What a report is made of, beside the files of the job.
struct ReportInput {
  const RunReport& run;
  const MosaicInput& mosaic;  ///< all photos in job order, footprints as measured
  std::string outDir;         ///< mosaic.tif, source.tif, quality.tif
  std::string workDir;        ///< dsm.tif
  std::string title;          ///< of the survey, for people
  std::vector<std::pair<std::string, std::string>> settings;  ///< name and value, as shown
  std::vector<std::pair<std::string, std::string>> versions;
  std::vector<std::string> notes;                    ///< warnings and notes of the run, a line each
  std::vector<std::int64_t> stagePeakMemoryBytes{};  ///< parallel to run.stages, or empty
};

/// Writes one page that shows a finished job to people: the mosaic with its layers on a map, and
/// tables of photos, stages, settings and versions. It holds everything it needs and asks no
/// network for anything.
///
/// Layers whose files are missing are left out. Pictures are reduced to limits::kReportSide cells;
/// the page stays below about 15 MB. Photos are read again, reduced, for the naive mosaic. Appears
/// under its name when it is complete.
/// @return false, with one line in `error`, when the page cannot be written
[[nodiscard]] bool WriteReportPage(const ReportInput& input, const std::string& path,
                                   std::string& error);

}  // namespace tqtortho::host
