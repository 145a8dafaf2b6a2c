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

/// Agreement of a mosaic with the truth of a sample town.
struct MosaicScore {
  double psnr = 0;          ///< over all covered cells, hidden and filled ones too, dB
  double registration = 0;  ///< as in PhotoScore
  int patches = 0;
  double covered = 0;  ///< share of the mosaic's cells inside the town that hold a colour
  double facades = 0;  ///< share of them that show a facade, which no cell truly does
};

/// Scores a job's mosaic. False, with one line in `error`, when it cannot be compared.
bool ScoreMosaic(const std::string& truthDir, const std::string& mosaicPath, MosaicScore& score,
                 std::string& error);

}  // namespace tqtortho::host
