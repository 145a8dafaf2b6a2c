// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <map>
#include <string>
#include <vector>

#include "survey/rotation.h"
#include "survey/source_lens.h"

namespace tqtortho::host {

/// The two ways in which COLMAP writes a model.
enum class ColmapForm { kText, kBinary };

/// One oriented photo of a model.
struct ColmapPhoto {
  std::string name;    ///< path below the model's photo folder
  std::string camera;  ///< key of the camera: its number
  Matrix3 rotation{};  ///< world to camera; camera axes right, down, forward
  Vector3 centre{};    ///< projection centre in the model's frame
};

/// Reads cameras.txt or cameras.bin. Cameras whose model cannot be expressed have a fault.
///
/// Sizes that a file states are compared with its length before anything is allocated.
/// @return false, with one line in `error` without the file's name, when the file is damaged or
///         none.
[[nodiscard]] bool ReadColmapCameras(std::istream& in, ColmapForm form,
                                     std::map<std::string, SourceCamera>& cameras,
                                     std::string& error);

/// Reads images.txt or images.bin, sorted by name: a model has no times, and its numbers follow the
/// order in which features were found. Image points are skipped, not kept.
[[nodiscard]] bool ReadColmapPhotos(std::istream& in, ColmapForm form,
                                    std::vector<ColmapPhoto>& photos, std::string& error);

/// Whether a file starts as a cameras file of that form does. Leaves the stream anywhere.
[[nodiscard]] bool IsColmapCameras(std::istream& in, ColmapForm form);

}  // namespace tqtortho::host
