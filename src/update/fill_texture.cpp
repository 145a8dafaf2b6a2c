// SPDX-License-Identifier: Apache-2.0
//
// The fill texture and the final pixel-to-photo map: members over the kernel of one block.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <limits>
#include <optional>

#include "camera/photo_camera.h"
#include "core/limits.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqfd/FileInput.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqBinaryData.h"
#include "tqtortho/tqTORProc.h"
#include "update/mosaic_grid.h"
#include "update/photo_rasters.h"
#include "update/texture_block.h"

namespace tqtortho {

namespace {

using tqimage::TqImage;

/// Cells on the side of a block: a multiple of the side of the files' tiles.
constexpr int kBlockSide = 1024;
/// More blocks than this, four million million cells, come from a damaged resolution.
constexpr std::int64_t kMostBlocks = 4'000'000;
/// The map's cells hold 16 bits.
constexpr int kMostPhotos = std::numeric_limits<std::uint16_t>::max();

/// The two files that blocks go to.
struct TextureFiles {
  TqImage texture;
  tqorkit::tqBinaryData map;

  bool Start(const tqimage::GeoCoefficients& grid) {
    const int cols = grid.GetWidth();
    const int rows = grid.GetHeight();
    return tqfd::PathHelper::MakeParentDirectory(PixMapPath()) &&
           texture.Create(TexturePath(), cols, rows, 3, tqimage::kByte, tqimage::kGeoTiff, true) &&
           texture.SetGeoCoefficients(grid) && map.Create(PixMapPath(), cols, rows) &&
           map.SetGeoCoefficients(grid);
  }

  bool Write(const tqfd::Rect2_T<int>& cells, const std::vector<std::uint8_t>& colours,
             const std::vector<std::uint16_t>& numbers) {
    std::vector<std::uint8_t> band(numbers.size());
    for (std::size_t b = 0; b < 3; ++b) {
      for (std::size_t i = 0; i < band.size(); ++i) band[i] = colours[3 * i + b];
      if (!texture.WriteImage(static_cast<int>(b), cells, tqimage::kByte, band.data())) {
        return false;
      }
    }
    return map.SaveBlkData(cells.minX, cells.minY, cells.maxX - cells.minX, cells.maxY - cells.minY,
                           numbers.data());
  }

  bool Finish() { return map.Close() && texture.Close(); }
};

}  // namespace

bool tqTORProc::GenTextureByBlock(const std::string& orthoDir, const tqfd::Rect2_T<int>& cells,
                                  std::vector<std::uint8_t>& colours,
                                  std::vector<std::uint16_t>& numbers) const {
  return Guarded([&] {
    TextureJob job;
    job.grid = GetGeoCoeff();
    if (!HasArea(cells) || cells.minX < 0 || cells.minY < 0 || cells.maxX > job.grid.GetWidth() ||
        cells.maxY > job.grid.GetHeight()) {
      return false;
    }
    std::ifstream file = tqfd::OpenInputFile(ParamFilePath(), limits::kListBytes);
    ParamHeader header;
    if (file && ParamFileReader(file).ReadHeader(header)) {
      job.dsmPath = header.dsmPath;
      job.startHeight = header.heightPair[1];
    }
    for (const PlacedPhoto& placed : PlacedPhotos(photoBlocks)) {
      const auto& photo = photoBlocks[static_cast<std::size_t>(placed.photo.x)]
                              .GetPhotos()[static_cast<std::size_t>(placed.photo.y)];
      const auto camera = cameras.find(photo.GetCameraId());
      const int number = GlobalPhotoNumber(photoBlocks, placed.photo);
      if (camera == cameras.end() || number > kMostPhotos) continue;
      const auto at = job.grid.World2Raster(placed.rect, -1, -1);
      job.photos.push_back({static_cast<std::uint16_t>(number),
                            OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId()),
                            CameraOf(camera->second, photo),
                            {at.minY, at.minX, at.maxY + 1, at.maxX + 1}});
    }
    TextureBlock block;
    MakeTextureBlock(job, {cells.minY, cells.minX, cells.maxY, cells.maxX}, block);
    colours.swap(block.colours);
    numbers.swap(block.numbers);
    return true;
  });
}

bool tqTORProc::FillBlkTexture(int cols, int rows, const std::vector<std::uint8_t>& wanted,
                               const std::vector<std::uint16_t>& numbers,
                               const std::vector<float>& heights,
                               std::vector<std::uint8_t>& colours) {
  return Guarded([&] {
    if (cols <= 0 || rows <= 0) return false;
    const auto count = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
    if (wanted.size() != count || numbers.size() != count || colours.size() != 3 * count ||
        cols > std::numeric_limits<int>::max() / 3 ||
        (!heights.empty() && heights.size() != count)) {
      return false;
    }
    FillUnseen({wanted.data(), rows, cols}, {numbers.data(), rows, cols},
               {heights.data(), heights.empty() ? 0 : rows, cols},
               {colours.data(), rows, 3 * cols});
    return true;
  });
}

bool tqTORProc::GennerateFillTexture(std::string orthoDir, tqfd::ProgressCallback progress,
                                     void* user) {
  return Guarded([&] {
    const int photos = CountPhotos(photoBlocks);
    if (photos < 1 || photos > kMostPhotos || !PlaceMosaic(nullptr, nullptr)) return false;
    tqimage::GeoCoefficients grid = GetGeoCoeff();
    const std::int64_t across = (std::int64_t{grid.GetWidth()} + kBlockSide - 1) / kBlockSide;
    const std::int64_t down = (std::int64_t{grid.GetHeight()} + kBlockSide - 1) / kBlockSide;
    if (across < 1 || down < 1 || across > kMostBlocks / down) return false;
    const int count = static_cast<int>(across * down);
    const std::optional<std::string> projection = OrthoProjection(photoBlocks, orthoDir);
    if (!projection) return false;
    grid.SetProjection(*projection);
    TextureFiles files;
    if (!files.Start(grid)) return false;
    StageProgress stage(count, message::kTexturing, progress, user, ProgressLock::kUpdateLoops);
    std::atomic<bool> failed{false};
#pragma omp parallel for schedule(dynamic)
    for (int k = 0; k < count; ++k) {
      if (stage.Stopped() || failed) continue;
      const int col = static_cast<int>(k % across) * kBlockSide;
      const int row = static_cast<int>(k / across) * kBlockSide;
      const tqfd::Rect2_T<int> cells{col, row, std::min(grid.GetWidth() - col, kBlockSide) + col,
                                     std::min(grid.GetHeight() - row, kBlockSide) + row};
      std::vector<std::uint8_t> colours;
      std::vector<std::uint16_t> numbers;
      if (!GenTextureByBlock(orthoDir, cells, colours, numbers)) {
        failed = true;
        continue;
      }
      // Files serve one thread at a time.
      stage.FinishOne([&] {
        if (!files.Write(cells, colours, numbers)) failed = true;
        return true;
      });
    }
    return !failed && !stage.Stopped() && files.Finish();
  });
}

}  // namespace tqtortho
