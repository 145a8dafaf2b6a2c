// SPDX-License-Identifier: Apache-2.0
// Any bytes as a parameter file: no crash; and what was read, written and read again is the same
// plan.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "pipeline/param_file.h"
#include "tqfd/Logger.h"

namespace {

std::vector<tqtortho::ParamBlock> ReadBlocks(const std::string& text,
                                             tqtortho::ParamHeader& header) {
  std::istringstream in(text);
  tqtortho::ParamFileReader reader(in);
  std::vector<tqtortho::ParamBlock> blocks;
  if (!reader.ReadHeader(header)) return blocks;
  for (int k = 1; k <= 50 && reader.FindBlock(k); ++k) reader.ReadBlock(blocks.emplace_back());
  return blocks;
}

std::string Write(const tqtortho::ParamHeader& header, const tqtortho::ParamBlock& block) {
  std::map<int, tqorkit::tqIntOri> cameras;
  cameras[block.camera.cameraId].Set(block.camera);
  std::vector<tqorkit::tqPhotoCategory> photoBlocks(1);
  photoBlocks[0].SetBlkPath(block.path);
  for (auto record : block.photos) {
    record.cameraId = block.camera.cameraId;
    tqorkit::tqExtOri photo;
    photo.Set(record);
    photoBlocks[0].InsertPhoto(photo);
  }
  char* text = nullptr;
  std::size_t length = 0;
  std::FILE* file = open_memstream(&text, &length);
  tqtortho::WriteParamFile(file, header, cameras, photoBlocks,
                           static_cast<int>(block.photos.size()) + 1);
  std::fclose(file);
  std::string written(text, length);
  std::free(text);
  return written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tqfd::Logger::SetSink([](std::string_view) {});
  tqtortho::ParamHeader header;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find('\0') != std::string::npos) return 0;  // no line that printf could have written
  for (const auto& block : ReadBlocks(text, header)) {
    if (block.photos.empty() || block.path.find("block1") == 0) continue;
    if (header.dsmPath.find('\n') != std::string::npos) continue;
    bool whole = true;  // a line without a name is read shifted, as stated for damaged lines
    for (const auto& photo : block.photos) whole = whole && !photo.photoName.empty();
    if (!whole) continue;
    tqtortho::ParamHeader again;
    const auto back = ReadBlocks(Write(header, block), again);
    if (again.scale == again.scale && back.size() != 1) std::abort();
    if (back.size() == 1 && back[0].photos.size() != block.photos.size()) std::abort();
    if (back.size() == 1 && back[0].photos[0].photoName != block.photos[0].photoName) std::abort();
  }
  return 0;
}
