// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "importers/opensfm_file.h"
#include "survey/rotation.h"

namespace tqtortho::host {

/// In which frame the poses of a reconstruction stand.
enum class OdmFrame {
  kTopocentric,  ///< east, north, up about the reference point, as the reconstruction makes it
  kGrid,         ///< the map grid minus an offset: a finished project, poses moved with the surface
};

/// Map coordinates of a point of the topocentric frame; nothing where the map is not defined.
using TopocentricToGrid = std::function<std::optional<Vector3>(const Vector3&)>;

/// What the layout of the projection centres says of its frame.
struct FrameFinding {
  OdmFrame frame = OdmFrame::kGrid;
  bool certain = false;
  double gridTurn = 0;  ///< radians from true east to the grid's east (meridian convergence)
  double foundTurn =
      0;  ///< radians by which the poses are turned against the photos' own positions
  double turnError = 0;  ///< standard error of foundTurn; infinite when it cannot be found
};

/// Compares the layout of the projection centres with the photos' own (GPS) positions, which stay
/// topocentric whatever became of the poses. Only the turn between the two is looked at: shifts
/// (ground control, antenna offsets) do not matter. Without enough photos or precision the answer
/// is the grid, not certain: projects that have a surface are finished ones.
/// @return nothing when the map is not defined at the reference.
[[nodiscard]] std::optional<FrameFinding> FindFrame(const std::vector<OpenSfmShot>& shots,
                                                    const TopocentricToGrid& toGrid);

/// The same against positions that stand on the grid, by photo; those without a shot do not count.
using GridPositions = std::map<std::string, std::array<double, 2>>;
[[nodiscard]] std::optional<FrameFinding> FindFrame(const std::vector<OpenSfmShot>& shots,
                                                    const GridPositions& positions,
                                                    const TopocentricToGrid& toGrid);

/// A photo's pose on the map.
struct GroundPose {
  Vector3 centre{};
  Matrix3 cameraToGround{};
};

/// Pose of a camera of any metric frame: the centre point by point through the map projection, the
/// rotation through its derivative at the centre (convergence, and the tilt of "up" away from the
/// reference), made orthogonal. `cameraToFrame` has the camera's right, up and backward as columns.
/// Nothing where the map is not defined.
[[nodiscard]] std::optional<GroundPose> PoseThrough(const Vector3& centre,
                                                    const Matrix3& cameraToFrame,
                                                    const TopocentricToGrid& toGrid);
/// The same of a topocentric shot.
[[nodiscard]] std::optional<GroundPose> PoseFromTopocentric(const OpenSfmShot& shot,
                                                            const TopocentricToGrid& toGrid);
/// Pose of a shot that is on the grid already.
[[nodiscard]] GroundPose PoseFromGrid(const OpenSfmShot& shot, double offsetEast,
                                      double offsetNorth);

/// Reads the offset (east, north) of a coords.txt; nothing when the text holds none.
[[nodiscard]] std::optional<std::array<double, 2>> ParseCoordsOffset(std::string_view text);
/// Reads its positions (east, north, less the offset), one a line in the order of the photos'
/// names; none when a line holds no position.
[[nodiscard]] std::vector<std::array<double, 2>> ParseCoordsPositions(std::string_view text);

}  // namespace tqtortho::host
