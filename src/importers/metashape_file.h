// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "survey/rotation.h"
#include "survey/source_lens.h"

namespace tqtortho::host {

/// Similarity: p -> scale * rotation * p + translation.
struct Similarity {
  Matrix3 rotation{1, 0, 0, 0, 1, 0, 0, 0, 1};
  Vector3 translation{};
  double scale = 1;
};

/// One aligned camera of a chunk.
struct MetashapeCamera {
  std::string label;        ///< a photo's name, with or without extension
  std::string sensor;       ///< id of its sensor
  Matrix3 cameraToFrame{};  ///< columns: right, up, backward
  Vector3 centre{};         ///< in the chunk's outer frame
};

/// What cameras exported as XML hold.
struct MetashapeChunk {
  std::map<std::string, SourceCamera> sensors;  ///< by id; unusable ones with a fault
  std::vector<MetashapeCamera> cameras;         ///< in the order of the file
  /// Coordinate system of the reference; its text leads to earth-centred coordinates unless it is
  /// local. Empty when the file names none.
  std::string referenceWkt;
  bool placed = false;  ///< chunk or components carry a transform: centres are not in a free frame
  std::vector<std::string> notes;
};

/// Reads the text of an exported cameras.xml: the chunk with the most cameras (there is one in an
/// export), its sensors, camera transforms (camera to chunk, axes right, down, forward) and the
/// transform of the chunk or of the camera's component, applied.
///
/// Disabled and unaligned cameras are left out with a note. Sensors other than frame cameras and
/// sensors without calibration become cameras with a fault. No entity is expanded; texts over
/// 512 MiB are refused.
///
/// @return nothing, with one line in `error` that begins with the line number where there is one,
///         when the text is no such file or no camera is aligned.
[[nodiscard]] std::optional<MetashapeChunk> ParseMetashape(std::string_view xml,
                                                           std::string& error);

/// True when a text begins like a cameras.xml (its first 4 KiB are looked at).
[[nodiscard]] bool IsMetashapeText(std::string_view start);

}  // namespace tqtortho::host
