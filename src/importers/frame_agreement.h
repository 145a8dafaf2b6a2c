// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "importers/photo_agreement.h"

namespace tqtortho::host {

/// A photo with its place on the DSM's map under two hypotheses of the frame of its pose.
struct TwoPlaces {
  std::string path;
  SourceLens lens;
  CameraPlace first, second;
};

/// Where photos see the relief of a surface.
struct FrameAgreement {
  ShareFit fit;   ///< 0: where the first hypothesis has it; 1: where the second has it
  int pairs = 0;  ///< of photos that were compared
};

/// Tells two hypotheses apart by the relief of the DSM. Photos that are turned or shifted together
/// go on showing the same of level ground, but see each slope, roof and hollow beside the place
/// where the DSM has it: on a patch they find the ground higher or lower by what the DSM rises or
/// falls between the two places. Heights found so on patches of overlapping pairs are compared with
/// that, under either hypothesis.
///
/// Reads at most sixteen photos, reduced towards the DSM's cells, and a bounded part of the DSM for
/// each pair: a second or two, whatever the size of the survey. What cannot be read does not count.
[[nodiscard]] FrameAgreement CompareFrames(const std::string& dsmPath,
                                           const std::vector<TwoPlaces>& photos);

}  // namespace tqtortho::host
