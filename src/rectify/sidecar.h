// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqorkit/PhotoInfo.h"

namespace tqtortho {

/// Georeference sidecar of a photo's ortho image or occlusion mask: one number per line, six
/// decimals, decimal points whatever the locale.
///
///     a  cell size X          b  0                       c  X of the upper-left corner
///     d  0                    e  cell size Y, negative   f  Y of the upper-left corner
///
/// stand in the order a, d, b, e, c, f; an ortho's sidecar goes on with rows and columns. Corners
/// lie half a cell outside the first cell's centre, unlike every georeference in memory.
struct Sidecar {
  double a = 0, d = 0, b = 0, e = 0, c = 0, f = 0;
  int rows = 0, cols = 0;
};

/// The sidecar of a centre-registered raster record.
[[nodiscard]] Sidecar SidecarOf(const tqorkit::PhotoInfo& raster);

enum class SidecarLines { kSix, kEight };

/// Writes a sidecar in one step: the file appears under its name when it is complete.
[[nodiscard]] bool WriteSidecar(const std::string& path, const Sidecar& sidecar,
                                SidecarLines lines);
/// Reads an ortho's eight lines. False, and all numbers 0, when the file is missing or damaged.
[[nodiscard]] bool ReadSidecar(const std::string& path, Sidecar& sidecar);

/// The name under which a sidecar is written before it is renamed; a killed job may leave it.
[[nodiscard]] std::string UnfinishedSidecarName(const std::string& path);

}  // namespace tqtortho
