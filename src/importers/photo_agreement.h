// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/grid_view.h"
#include "survey/rotation.h"
#include "survey/source_lens.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// A camera's place on the map of a surface.
struct CameraPlace {
  Vector3 centre{};          ///< east, north, height
  Matrix3 cameraToGround{};  ///< columns: right, up, backward
};

/// A photo to compare, its raster perhaps reduced: `grey` shows the whole frame of `lens`.
struct AgreeingPhoto {
  SourceLens lens;
  CameraPlace place;
  GridView<const std::uint8_t> grey;
};

/// Heights on a north-up lattice; NaN where there is none.
struct SurfacePatch {
  std::vector<float> heights;  ///< row-major, first row northmost
  int cols = 0;
  int rows = 0;
  double west = 0, north = 0;  ///< centre of the first cell
  double cell = 1;

  /// Bilinear; NaN outside and beside cells without height.
  [[nodiscard]] double HeightAt(double x, double y) const;
};

/// Pixel position (column, row downward, of the lens's own raster) at which a photo sees a ground
/// point; nothing behind the camera, where the lens folds over, and outside the raster.
[[nodiscard]] std::optional<tqfd::Point2_T<double>> SeenAt(const SourceLens& lens,
                                                           const CameraPlace& place,
                                                           const Vector3& ground);

/// A square of ground whose texture two photos are to agree on.
struct GroundPatch {
  double x = 0, y = 0;  ///< its middle
  double step = 0;      ///< metres between samples
  int samples = 32;     ///< on a side
};

/// How much higher than the surface two photos see the ground of a patch, metres.
///
/// Both are rectified onto the surface and registered on each other: where the surface is right
/// they show the same at the same place, and where the true ground is higher or lower they are
/// displaced along the line of their bases. A displacement across it, which no height makes, is
/// taken as a sign that something moved or was hidden. Brightness and contrast may differ.
///
/// @return nothing where a sample has no height or is not seen by both, where the texture does not
///         allow a registration, and where the photos look from so nearly one direction that
///         heights do not show.
[[nodiscard]] std::optional<double> HeightAboveSurface(const AgreeingPhoto& one,
                                                       const AgreeingPhoto& other,
                                                       const SurfacePatch& surface,
                                                       const GroundPatch& patch);

/// A height seen above the surface, where the surface itself would be higher by `expected` had the
/// photos to be moved from the first hypothesis to the second. `group` (a pair of photos) shares a
/// height error of its own.
struct RelationSample {
  double expected = 0;
  double seen = 0;
  int group = 0;
};

/// The share of `expected` that is `seen`: 0 when the first hypothesis is right, 1 when the second.
struct ShareFit {
  int count = 0;
  double share = 0;
  double error = 0;  ///< standard error; infinite when nothing can be said
  /// 0 or 1 for a hypothesis, when the share is near it and far from the other by many times its
  /// error; else -1.
  [[nodiscard]] int Decides() const;
};

/// Fits the share with a free offset for each group. Robust: samples that lie far off all others
/// (moving things, walls, trees) count little.
[[nodiscard]] ShareFit FitShare(std::vector<RelationSample> samples);

}  // namespace tqtortho::host
