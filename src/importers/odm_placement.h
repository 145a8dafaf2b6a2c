// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "importers/import_assembly.h"
#include "importers/odm_frame.h"
#include "importers/opensfm_file.h"

namespace tqtortho::host {

/// What the frame of an OpenDroneMap project's poses is decided from.
struct OdmEvidence {
  std::string projectDir;
  std::string projectWkt;                  ///< map of the project's own DSM
  std::string dsmPath;                     ///< the surface that the job stands on
  std::optional<TopocentricToGrid> toDsm;  ///< from the project's map to that surface's, if other
  std::string photoDir;
  FrameChoice choice = FrameChoice::kAuto;  ///< what the user says
};

/// Puts the shots of an OpenDroneMap project on the DSM's map; made once per project.
class OdmPlacement {
 public:
  /// Finds the frame of the poses, the cheapest evidence first:
  /// what the user says; the local poses kept beside the moved ones; the turn of the projection
  /// centres against the photos' own positions, in the reconstruction or in coords.txt; ground
  /// control; and how well photos agree on the surface in either frame, which alone reads pixels.
  /// Adds a note that says what was found, and why, with figures.
  /// @return nothing, with a line in `error`, when the project is not georeferenced.
  static std::optional<OdmPlacement> Create(const OdmEvidence& evidence,
                                            const OpenSfmReconstruction& file,
                                            std::vector<std::string>& notes, std::string& error);

  /// Nothing where the map is not defined.
  [[nodiscard]] std::optional<GroundPose> Place(const OpenSfmShot& shot) const {
    return PlaceIn(frame_, shot, toDsm_);
  }

 private:
  struct Finding {
    OdmFrame frame = OdmFrame::kGrid;
    std::string why;  ///< empty: not told
  };
  [[nodiscard]] std::optional<GroundPose> PlaceIn(
      OdmFrame frame, const OpenSfmShot& shot,
      const std::optional<TopocentricToGrid>& onward) const;
  bool ReadOffset(const std::string& projectDir, std::vector<std::string>& notes,
                  std::string& error);
  [[nodiscard]] Finding FindByLayout(const OdmEvidence& evidence,
                                     const OpenSfmReconstruction& file) const;
  [[nodiscard]] Finding FindByControl(const OdmEvidence& evidence,
                                      const OpenSfmReconstruction& file) const;
  [[nodiscard]] Finding FindByPhotos(const OdmEvidence& evidence, const OpenSfmReconstruction& file,
                                     std::string& undecided) const;
  [[nodiscard]] double FramesApart(const OpenSfmReconstruction& file) const;

  OdmFrame frame_ = OdmFrame::kGrid;
  std::array<double, 2> offset_{};
  TopocentricToGrid toGrid_;
  std::optional<TopocentricToGrid> toDsm_;
  double gridTurn_ = 0;
};

}  // namespace tqtortho::host
