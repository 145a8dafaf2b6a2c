// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tqtortho::host {

/// One camera as the camera list holds it (sixteen values).
struct SurveyCamera {
  int id = 0;
  std::string name;
  double width = 0;             ///< pixels
  double height = 0;            ///< pixels
  double focalLength = 0;       ///< unit of sensorWidth; importers use pixels
  double sensorWidth = 0;       ///< importers set it to `width`, so that a pixel has size 1
  double sensorHeight = 0;      ///< carried, not used
  double principalX = 0;        ///< pixels from the left
  double principalY = 0;        ///< pixels from the BOTTOM (upward)
  int model = 0;                ///< 0 none, 1 correction in pixels, 3 radial-tangential
  double coefficients[8] = {};  ///< k1 k2 k3 p1 p2 b1 b2, unused
  /// Size of the photos' rasters where it differs from width x height (a virtual frame), else 0.
  int rasterWidth = 0;
  int rasterHeight = 0;
};

/// One photo as the photo list holds it.
struct SurveyPhoto {
  std::string name;                      ///< file name relative to the block's path
  double x = 0, y = 0, z = 0;            ///< projection centre, CRS of the DSM
  double omega = 0, phi = 0, kappa = 0;  ///< radians
  int cameraId = 0;
};

/// Photos that lie in one directory.
struct SurveyBlock {
  std::string path;
  std::vector<SurveyPhoto> photos;
};

/// A survey ready to run: where it came from does not matter any more.
struct Survey {
  std::string source;   ///< "OpenDroneMap project /path", for people
  std::string dsmPath;  ///< empty when the source has none
  std::string crs;      ///< of the photos' positions and angles where it is not the DSM's
  std::vector<SurveyCamera> cameras;
  std::vector<SurveyBlock> blocks;
  std::vector<std::string> leftOut;  ///< names of photos that were listed and take no part
  bool bandsChosen = false;  ///< photos are virtual rasters of ours over those of the survey
  std::vector<std::string>
      notes;  ///< what a user should know (residuals, photos left out), a line each
};

/// Gives every block photos of one camera only: the library divides a job by camera and block, and
/// loses photos of blocks that hold several. A block keeps its number and its first photo's camera;
/// its photos of other cameras go to new blocks at the end. Returns how many blocks were divided.
int SplitBlocksByCamera(Survey& survey);

/// Writes the lists in the library's text formats. False when a file cannot be written.
bool WriteCameraFile(const std::string& path, const Survey& survey);
bool WritePhotoList(const std::string& path, const Survey& survey);

}  // namespace tqtortho::host
