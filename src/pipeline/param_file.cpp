// SPDX-License-Identifier: Apache-2.0
#include "pipeline/param_file.h"

#include <fstream>

#include "core/c_locale.h"
#include "core/limits.h"
#include "stage/messages.h"
#include "tqfd/FileInput.h"

namespace tqtortho {

using tqorkit::tqExtOri;
using tqorkit::tqIntOri;
using tqorkit::tqPhotoCategory;

namespace {

constexpr int kCoefficients = 7;  // of a camera's eight, the ones that the lens models use

void WriteHeader(std::FILE* file, const ParamHeader& header) {
  std::fprintf(file, "%d\n", header.rectifyOption);
  std::fprintf(file, "%lf\n", header.scale);
  std::fprintf(file, "%d\n", header.flagA != 0 ? 1 : 0);
  std::fprintf(file, "%d\n", header.flagB ? 1 : 0);
  std::fprintf(file, "%lf\t%lf\n", header.heightPair[0], header.heightPair[1]);
  std::fprintf(file, "%s\n", header.dsmPath.c_str());
  std::fprintf(file, "%s\n", header.outputDir.c_str());
}

void WriteCameraLine(std::FILE* file, int cameraId, const tqIntOri& camera) {
  const auto size = camera.GetImageSize();
  const auto lens = camera.GetCameraCoeffs(false);
  const auto& record = camera.Get();
  std::fprintf(file, "%d\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%d", cameraId, size.x, size.y, lens.z,
               record.pixelSize, lens.x, lens.y, record.distortionModel);
  for (int i = 0; i < kCoefficients; ++i) std::fprintf(file, "\t%e", record.coefficients[i]);
  std::fprintf(file, "\n");
}

void WritePhotoLine(std::FILE* file, const tqExtOri& photo, int blockIndex) {
  double p[6];
  photo.GetPos(p);
  const auto& rect = photo.GetGeoRect();
  // GetPos gives phi before omega; lists and files hold omega first, so the two change places back.
  std::fprintf(file, "%s\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%d\t%lf\t%lf\t%lf\t%lf\t%d\n",
               photo.GetPhotoName().c_str(), p[0], p[1], p[2], p[4], p[3], p[5],
               photo.GetCameraId(), rect.minX, rect.minY, rect.maxX, rect.maxY, blockIndex);
}

void WriteBlock(std::FILE* file, int number, int cameraId, const tqIntOri& camera,
                const std::vector<int>& pending, const tqPhotoCategory& block, int blockIndex) {
  const auto& photos = block.GetPhotos();
  std::vector<int> present;  // carried-over indices may lie beyond this block
  for (const int index : pending) {
    if (index < static_cast<int>(photos.size())) present.push_back(index);
  }
  std::fprintf(file, "block%d\n", number);
  WriteCameraLine(file, cameraId, camera);
  std::fprintf(file, "%d\n", static_cast<int>(present.size()));
  std::fprintf(file, "%s\n", block.GetPhotoPath().c_str());
  for (const int index : present) {
    WritePhotoLine(file, photos[static_cast<std::size_t>(index)], blockIndex);
  }
}

}  // namespace

int WriteParamFile(std::FILE* file, const ParamHeader& header,
                   const std::map<int, tqIntOri>& cameras,
                   const std::vector<tqPhotoCategory>& photoBlocks, int groupSize) {
  const CLocaleScope decimalPoint;
  WriteHeader(file, header);
  int number = 0;
  std::vector<int> pending;
  for (const auto& entry : cameras) {
    const int cameraId = entry.first;
    const tqIntOri& camera = entry.second;
    for (std::size_t b = 0; b < photoBlocks.size(); ++b) {
      const auto& photos = photoBlocks[b].GetPhotos();
      const auto flush = [&] {
        WriteBlock(file, ++number, cameraId, camera, pending, photoBlocks[b], static_cast<int>(b));
        pending.clear();
      };
      const int photoCount = static_cast<int>(photos.size());
      for (int i = 0; i < photoCount; ++i) {
        if (photos[static_cast<std::size_t>(i)].GetCameraId() != cameraId) continue;
        pending.push_back(i);
        if (static_cast<int>(pending.size()) == groupSize) flush();
      }
      if (photoCount % groupSize != 0) flush();
    }
  }
  return number;
}

bool ParamFileReader::NextLine() {
  if (std::getline(in_, line_)) return true;
  line_.clear();
  return false;
}

bool ParamFileReader::ReadHeader(ParamHeader& header) {
  const CLocaleScope decimalPoint;
  header = {};
  NextLine();
  std::sscanf(line_.c_str(), "%d", &header.rectifyOption);
  NextLine();
  std::sscanf(line_.c_str(), "%lf", &header.scale);
  if (header.scale < 1.0) {
    LogMessage(message::kScaleAbnormal);
    return false;
  }
  NextLine();
  std::sscanf(line_.c_str(), "%d", &header.flagA);
  NextLine();
  int flagB = 0;
  std::sscanf(line_.c_str(), "%d", &flagB);
  header.flagB = flagB > 0;
  NextLine();
  std::sscanf(line_.c_str(), "%lf%lf", &header.heightPair[0], &header.heightPair[1]);
  NextLine();
  header.dsmPath = line_;
  NextLine();
  header.outputDir = line_;
  return true;
}

bool ParamFileReader::FindBlock(int number) {
  const std::string marker = "block" + std::to_string(number);
  while (NextLine()) {
    if (line_ == marker) return true;
  }
  return false;
}

void ParamFileReader::ReadBlock(ParamBlock& block) {
  const CLocaleScope decimalPoint;
  block = {};
  NextLine();
  auto& c = block.camera;
  double* k = c.coefficients;
  std::sscanf(line_.c_str(), "%d%lf%lf%lf%lf%lf%lf%d%lf%lf%lf%lf%lf%lf%lf", &c.cameraId,
              &c.imageWidth, &c.imageHeight, &c.focalLength, &c.pixelSize, &c.offsetX, &c.offsetY,
              &c.distortionModel, &k[0], &k[1], &k[2], &k[3], &k[4], &k[5], &k[6]);
  NextLine();
  int photoCount = 0;
  std::sscanf(line_.c_str(), "%d", &photoCount);
  NextLine();
  block.path = line_;

  int blockIndex = -1;
  for (int i = 0; i < photoCount && NextLine(); ++i) {
    auto& photo = block.photos.emplace_back();
    char name[256] = "";
    double* p = photo.position;
    auto& rect = photo.geoRect;
    std::sscanf(line_.c_str(), "%255s%lf%lf%lf%lf%lf%lf%d%lf%lf%lf%lf%d", name, &p[0], &p[1], &p[2],
                &p[3], &p[4], &p[5], &photo.cameraId, &rect.minX, &rect.minY, &rect.maxX,
                &rect.maxY, &blockIndex);
    photo.photoName = name;
    photo.imageBlockId = blockIndex;
  }
}

bool ReadWorkBlock(const char* path, int number, ParamHeader& header, ParamBlock& block) {
  if (path == nullptr) return false;
  std::ifstream file = tqfd::OpenInputFile(path, limits::kListBytes);
  if (!file) return false;
  ParamFileReader reader(file);
  if (!reader.ReadHeader(header) || !reader.FindBlock(number)) return false;
  reader.ReadBlock(block);
  return true;
}

}  // namespace tqtortho
