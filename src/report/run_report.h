// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/input_check.h"
#include "check/job_estimate.h"
#include "mosaic/mosaic_stage.h"
#include "prepare/dsm_prepare.h"
#include "walls/wall_stage.h"

namespace tqtortho::host {

/// What became of one photo.
struct PhotoOutcome {
  std::string name;
  int block = 0;
  bool done = false;
  std::string reason;      ///< why it failed, one line
  std::int64_t cells = 0;  ///< of its ortho image
  double hiddenShare = 0;  ///< cells that the photo cannot see, 0 to 1
  std::string orthoPath;
};

struct StageTime {
  std::string name;
  double seconds = 0;
  std::int64_t peakMemoryBytes = 0;  ///< of the process, up to the stage's end
};

struct RunReport {
  SurveyFacts facts;
  JobEstimate estimate;
  double gsd = 0;
  DsmPrepareReport dsm;
  WallReport walls;
  std::vector<PhotoOutcome> photos;
  std::vector<std::string> leftOut;  ///< names of the survey's photos that took no part or failed
  std::vector<StageTime> stages;
  int photosKept = 0;  ///< photos whose files an earlier run had finished
  std::int64_t cells = 0;
  MosaicReport mosaic;
  std::string mosaicPath;  ///< empty when none was made
  double seconds = 0;
  std::int64_t peakMemoryBytes = 0;
  std::string previewPath;
  std::string reportPath;  ///< empty when none was made
  std::string vrtPath;
};

}  // namespace tqtortho::host
