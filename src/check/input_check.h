// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "survey/finding.h"
#include "survey/survey.h"
#include "tqimage/GeoCoefficients.h"

namespace tqtortho::host {

/// Facts of a DSM; heights from a sample of its cells.
struct DsmFacts {
  int cols = 0;
  int rows = 0;
  double cell = 0;      ///< ground size of a cell
  std::string crsName;  ///< empty when unknown
  std::string crsCode;  ///< "EPSG:..." or empty
  double minHeight = 0;
  double maxHeight = 0;
  double meanHeight = 0;
  double noDataShare = 0;  ///< 0 to 1
  tqimage::GeoCoefficients coefficients;
};

/// What a survey holds, as far as it could be read.
struct SurveyFacts {
  DsmFacts dsm;
  int photos = 0;
  double photoResolution = 0;   ///< median ground resolution of the photos
  std::int64_t photoBytes = 0;  ///< largest photo raster in memory
  double meanHeightAboveGround = 0;
};

struct CheckResult {
  SurveyFacts facts;
  std::vector<Finding> findings;
  [[nodiscard]] bool Usable() const;
};

/// Why a photo is too large, before a pixel of it is read; empty when it is not.
[[nodiscard]] std::string PhotoSizeFault(const std::string& path, int width, int height, int bands);
/// Why a surface is too large for a job, with figures, before a cell of it is read; empty when it
/// is not. `machineBytes`: memory of the machine, not above 0 when unknown.
[[nodiscard]] std::string SurfaceSizeFault(const std::string& path, int cols, int rows,
                                           std::int64_t machineBytes);
/// Looks at a DSM alone; what its map's scale calls for is said for its middle.
void CheckDsm(const std::string& dsmPath, DsmFacts& facts, std::vector<Finding>& findings);
/// The same without the map's scale, for a survey, which lies somewhere on the DSM.
void CheckSurface(const std::string& dsmPath, DsmFacts& facts, std::vector<Finding>& findings);

/// Looks at everything a job would read, before hours of work start. Brings a survey that names its
/// own coordinate system onto the DSM's (see photo_crs.h). Opens every photo's header and looks for
/// its end, never reads its pixels. Photos that cannot be used are taken out of `survey` and named
/// in a warning; a survey left without photos is an error.
[[nodiscard]] CheckResult CheckSurvey(Survey& survey, const std::string& dsmPath);

/// A number for a message, six digits.
[[nodiscard]] std::string ShortNumber(double value);
/// A resolution rounded up to two significant digits (0.0873 becomes 0.088).
[[nodiscard]] double RoundUpTwoDigits(double value);

/// Free space of the file system that will hold `directory`, in bytes; -1 when unknown.
[[nodiscard]] std::int64_t FreeSpace(const std::string& directory);
/// Creates the directory and writes and removes a file in it. False, with a line in `error`.
bool CheckWritable(const std::string& directory, std::string& error);

}  // namespace tqtortho::host
