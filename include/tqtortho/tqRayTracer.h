// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"
#include "tqorkit/tqExtOri.h"

namespace tqtortho {

class tqDSM;

/// Visibility of ground cells from a projection centre, by ray tracing through a DSM.
///
/// Holds no data; every operation may run for different photos on several threads at once. Masks
/// are one-band bytes, 255 hidden, 0 seen or not examined. All return true on success and let no
/// exception out.
class TQTORTHO_API tqRayTracer {
 public:
  tqRayTracer();
  // Out of line, so that a later version may hold data behind the same exported symbol.
  // NOLINTNEXTLINE(performance-trivially-destructible)
  ~tqRayTracer();

  /// Production masks: traces at one eighth of the DSM's resolution, then at one half only near
  /// what the coarse pass or the border mask marks and inside the photo's valid ortho area.
  ///
  /// @param eo         photo; its rectangle (first to last cell centre) and GSD pair fix the output
  ///                   grid of trunc((maxX - minX) / gsdX + 0.5) + 1 columns, rows likewise
  /// @param orthoPath  the photo's ortho image or valid mask (0 = no data); may be missing
  /// @return false for an unusable GSD, a rectangle off the DSM, an unreadable DSM or an output
  /// that
  ///         cannot be written.
  bool DoRayTracingOnPyr(tqorkit::tqExtOri& eo, std::string dsmPath, std::string outPath,
                         std::string orthoPath);

  /// Quick masks: traces once at the DSM's own resolution and resamples the result linearly, so
  /// that edges hold values between 0 and 255. `ignoredPath` is not used.
  bool DoRayTracingOnThumbnail(tqorkit::tqExtOri& eo, std::string dsmPath, std::string outPath,
                               std::string ignoredPath);

  /// Traces the DSM under the photo's rectangle at full resolution, blanked where the mask is 0.
  /// The mask must have exactly the DSM cells of that rectangle; so has the output.
  bool DoRayTracing(tqorkit::tqExtOri& eo, std::string dsmPath, std::string outPath,
                    std::string maskPath);

  /// Self-test: writes a DSM of 4000 x 4000 cells with square blocks of height 100 to dsmPath,
  /// traces it from (2000, 2000, 500) and writes the mask to outPath. `ignoredPath` is not used.
  bool DoRayTracing(std::string ignoredPath, std::string dsmPath, std::string outPath);

 protected:
  /// The kernel: marks every valid cell of `dsm` whose straight line to `cameraCentre` (world
  /// coordinates) is blocked by higher surface.
  ///
  /// @param occlusion      receives rows x cols bytes
  /// @param width, height  receive cols and rows
  /// @param validMask      bytes of the DSM's size, 0 = do not examine; null examines every cell
  /// @param refine         nonzero: cells at the foot of steps above 2 units count as seen, and the
  ///                       mask is closed with a 3 x 3 rectangle
  void RayTracing(tqDSM& dsm, tqfd::Point3_T<double>& cameraCentre,
                  std::vector<std::uint8_t>& occlusion, int& width, int& height,
                  std::uint8_t* validMask, int refine);
};

}  // namespace tqtortho
