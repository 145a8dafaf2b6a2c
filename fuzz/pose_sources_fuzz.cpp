// SPDX-License-Identifier: Apache-2.0
#include "fuzz/require.h"
#include "importers/calibration_file.h"
#include "importers/metashape_file.h"
#include "importers/pix4d_file.h"
#include "importers/pose_table.h"

namespace {

using namespace tqtortho::host;
using namespace tqtortho::fuzz;

void RequireRotation(const Matrix3& m) {
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = i; j < 3; ++j) {
      const double dot =
          m[3 * i] * m[3 * j] + m[3 * i + 1] * m[3 * j + 1] + m[3 * i + 2] * m[3 * j + 2];
      Require(std::fabs(dot - (i == j ? 1 : 0)) < 1e-5);
    }
  }
}

void RequireRightHanded(const Matrix3& m) {
  Require(m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
              m[2] * (m[3] * m[7] - m[4] * m[6]) >
          0);
}

}  // namespace

// Whatever the text files of a source hold: no crash, every refusal says why, and what is accepted
// is usable: finite positions, rotations that are some, cameras that keep their promise. The first
// byte chooses the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text = Text(data + 1, size - 1);
  std::string error;
  switch (data[0] % 6) {
    case 0:
      (void)IsMetashapeText(text);
      if (const auto chunk = ParseMetashape(text, error)) {
        Require(!chunk->cameras.empty());
        for (const MetashapeCamera& camera : chunk->cameras) {
          RequireRotation(camera.cameraToFrame);
          RequireRightHanded(camera.cameraToFrame);
          RequireFinite(camera.centre);
        }
        Require(!chunk->sensors.empty());
        RequireUsable(chunk->sensors);
        return 0;
      }
      break;
    case 1:
      if (const auto table = ParsePoseTable(text, error)) {
        Require(IsPoseTableText(text) && !table->rows.empty());
        for (const PoseRow& row : table->rows) {
          RequireRotation(row.cameraToFrame);
          RequireFinite(row.position);
        }
        return 0;
      }
      break;
    case 2:
      if (const auto cameras = ParseCalibrations(text, error)) {
        Require(!cameras->empty());
        RequireUsable(*cameras);
        return 0;
      }
      break;
    case 3:
      if (const auto poses = ParsePix4dExternal(text, error)) {
        for (const Pix4dPose& pose : *poses) {
          RequireRotation(pose.cameraToGround);
          RequireFinite(pose.position);
        }
        return 0;
      }
      break;
    case 4:
      if (const auto cameras = ParsePix4dInternal(text, error)) {
        const auto lens = LensOfPix4d(cameras->front(), 1200, 900, error);
        if (lens) RequireUsable(*lens);
        Require(lens.has_value() || !error.empty());
        return 0;
      }
      break;
    default:
      if (const auto photos = ParsePix4dCalibrated(text, error)) {
        if (!photos->empty()) RequireUsable(photos->front().lens);
        return 0;
      }
      break;
  }
  RequireReason(error);
  return 0;
}
