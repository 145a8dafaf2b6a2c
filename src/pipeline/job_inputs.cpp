// SPDX-License-Identifier: Apache-2.0
#include "pipeline/job_inputs.h"

#include <cstdio>
#include <string>

#include "core/c_locale.h"

namespace tqtortho {

namespace {

bool ReadLine(std::istream& in, std::string& line) {
  if (!std::getline(in, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

// The number at the start of the next line; 0 when there is none. False at the end of the file.
bool ReadCount(std::istream& in, int& count) {
  std::string line;
  count = 0;
  if (!ReadLine(in, line)) return false;
  std::sscanf(line.c_str(), "%d", &count);
  return true;
}

bool ParseCameraValues(const std::string& line, tqorkit::tqIntOri::INTORI& camera) {
  double sensorWidth = 0;
  double sensorHeight = 0;  // part of the line, nothing depends on it: pixels are square
  double ppX = 0;
  double ppY = 0;
  double* k = camera.coefficients;
  const int parsed = std::sscanf(line.c_str(), "%lf%lf%lf%lf%lf%lf%lf%d%lf%lf%lf%lf%lf%lf%lf%lf",
                                 &camera.imageWidth, &camera.imageHeight, &camera.focalLength,
                                 &sensorWidth, &sensorHeight, &ppX, &ppY, &camera.distortionModel,
                                 &k[0], &k[1], &k[2], &k[3], &k[4], &k[5], &k[6], &k[7]);
  if (parsed != 16) return false;
  camera.pixelSize = sensorWidth / camera.imageWidth;
  camera.offsetX = (ppX - 0.5 * camera.imageWidth) * camera.pixelSize;
  camera.offsetY = (ppY - 0.5 * camera.imageHeight) * camera.pixelSize;
  return true;
}

bool ParsePhoto(const std::string& line, tqorkit::tqExtOri::EXTORI& photo) {
  std::string name(line.size() + 1, '\0');  // "%s" cannot take more than the line holds
  double* p = photo.position;
  const int parsed = std::sscanf(line.c_str(), "%s%lf%lf%lf%lf%lf%lf%d", name.data(), &p[0], &p[1],
                                 &p[2], &p[3], &p[4], &p[5], &photo.cameraId);
  photo.photoName = name.c_str();
  return parsed == 8;
}

}  // namespace

void ReadCameras(std::istream& in, std::map<int, tqorkit::tqIntOri>& cameras) {
  const CLocaleScope decimalPoint;
  int count = 0;
  ReadCount(in, count);
  for (int i = 0; i < count; ++i) {
    tqorkit::tqIntOri::INTORI record;
    std::string values;
    if (!ReadCount(in, record.cameraId) || !ReadLine(in, record.name) || !ReadLine(in, values)) {
      return;
    }
    if (!ParseCameraValues(values, record)) continue;
    tqorkit::tqIntOri camera;
    camera.Set(record);
    cameras.emplace(record.cameraId, camera);
  }
}

void ReadPhotoList(std::istream& in, double gsd, std::vector<tqorkit::tqPhotoCategory>& blocks) {
  const CLocaleScope decimalPoint;
  int blockCount = 0;
  ReadCount(in, blockCount);
  for (int b = 0; b < blockCount; ++b) {
    int photoCount = 0;
    std::string line;
    if (!ReadCount(in, photoCount) || !ReadLine(in, line)) return;
    blocks.emplace_back().SetBlkPath(line);
    for (int i = 0; i < photoCount; ++i) {
      if (!ReadLine(in, line)) return;
      tqorkit::tqExtOri::EXTORI record;
      if (!ParsePhoto(line, record)) continue;
      record.heightPair[0] = gsd;
      record.heightPair[1] = -gsd;
      record.imageBlockId = static_cast<int>(blocks.size()) - 1;
      tqorkit::tqExtOri photo;
      photo.Set(record);
      blocks.back().InsertPhoto(photo);
    }
  }
}

}  // namespace tqtortho
