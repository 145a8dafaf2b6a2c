// SPDX-License-Identifier: Apache-2.0
#include "geo/FileEnd.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <vector>

#include "internal/gdal_raster.h"
#include "tqfd/FileInput.h"

namespace geo {
namespace {

using Bytes = std::vector<unsigned char>;

// Cameras append previews and maker notes behind the picture; they are no longer than this.
constexpr std::int64_t kTail = 1 << 20;

Bytes ReadAt(std::ifstream& in, std::int64_t at, std::int64_t count) {
  Bytes bytes(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
  in.clear();
  in.seekg(at);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

bool TailHolds(std::ifstream& in, std::int64_t from, std::int64_t size, std::string_view mark) {
  // The end of the file first: nearly every picture ends there.
  for (const std::int64_t reach : {std::int64_t{4096}, kTail}) {
    const std::int64_t start = std::max(from, size - reach);
    const Bytes tail = ReadAt(in, start, size - start);
    const auto found =
        std::search(tail.begin(), tail.end(), mark.begin(), mark.end(),
                    [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); });
    if (found != tail.end()) return true;
  }
  return false;
}

/// Walks the segments up to the coded lines, so that the end mark of an embedded preview does not
/// count. In coded lines no end mark can stand but the picture's own.
bool JpegEndsEarly(std::ifstream& in, std::int64_t size) {
  std::int64_t at = 2;
  for (int segments = 0; segments < 10000; ++segments) {
    const Bytes head = ReadAt(in, at, 4);
    if (head.size() < 4) return true;
    if (head[0] != 0xFF) return false;  // not as JPEG is written; the decoder will tell
    if (head[1] == 0xFF) {              // padding
      ++at;
      continue;
    }
    at += 2 + (head[2] << 8 | head[3]);
    if (head[1] == 0xDA) return at >= size || !TailHolds(in, at, size, "\xFF\xD9");
  }
  return false;
}

bool TiffEndsEarly(const std::string& path, std::int64_t size) {
  const tqimage::GdalScope scope;
  const tqimage::DatasetPtr file = tqimage::OpenRaster(path, false);
  if (!file) return false;
  // With separate planes each band has blocks of its own; the last one's lie last.
  GDALRasterBand* band = file->GetRasterBand(file->GetRasterCount());
  int width = 0, height = 0;
  band->GetBlockSize(&width, &height);
  if (width < 1 || height < 1) return false;
  const int cols = (band->GetXSize() - 1) / width + 1, rows = (band->GetYSize() - 1) / height + 1;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      std::int64_t end = 0;
      for (const char* what : {"BLOCK_OFFSET", "BLOCK_SIZE"}) {
        char key[60];
        std::snprintf(key, sizeof key, "%s_%d_%d", what, col, row);
        const char* value = band->GetMetadataItem(key, "TIFF");
        if (value != nullptr) end += std::strtoll(value, nullptr, 10);
      }
      if (end > size) return true;
    }
  }
  return false;
}

}  // namespace

bool EndsEarly(const std::string& path) {
  std::ifstream in = tqfd::OpenInputFile(path, INT64_MAX);
  if (!in) return false;
  in.seekg(0, std::ios::end);
  const std::int64_t size = in.tellg();
  const Bytes head = ReadAt(in, 0, 8);
  if (head.size() < 8) return false;
  if (head[0] == 0xFF && head[1] == 0xD8) return JpegEndsEarly(in, size);
  const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
  if (text == "\x89PNG\r\n\x1A\n") return !TailHolds(in, 8, size, "IEND");
  if (text.starts_with("II") || text.starts_with("MM")) return TiffEndsEarly(path, size);
  return false;
}

}  // namespace geo
