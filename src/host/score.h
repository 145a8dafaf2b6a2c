// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tqtortho::host {

/// Agreement of one photo's ortho and occlusion mask with the truth of a sample town.
struct PhotoScore {
  std::string photo;
  double psnr = 0;          ///< where the photo truly sees the cell, dB
  double registration = 0;  ///< median displacement of textured patches on flat ground, cells
  int patches = 0;
  double iou = 0;  ///< hidden cells, mask against truth
  double precision = 0;
  double recall = 0;
};

struct JobScore {
  std::vector<PhotoScore> photos;
  PhotoScore total;  ///< pooled over all photos
};

/// Scores the orthos of `orthoDir` (a job's output directory) against `truthDir` (a sample town).
/// False, with one line in `error`, when nothing can be compared.
bool ScoreJob(const std::string& truthDir, const std::string& orthoDir, JobScore& score,
              std::string& error);

}  // namespace tqtortho::host
