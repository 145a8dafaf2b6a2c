// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>

#include "core/rect_ops.h"
#include "internal/interleaved_writer.h"
#include "rectify/photo_outputs.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqfd/StringConverter.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqBinaryData.h"
#include "tqtortho/tqTORProc.h"
#include "update/feather_blend.h"
#include "update/mosaic_grid.h"
#include "update/ownership_mask.h"
#include "update/photo_rasters.h"

namespace tqtortho {

namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::tqExtOri;

/// Cells of a photo's ownership mask.
constexpr int kMostMaskCells = 1 << 30;

/// A strip's cells in the texture raster; last column and row are exclusive.
using CellWindow = tqfd::Rect2_T<int>;

/// Texture of one strip, band after band.
struct TextureStrip {
  CellWindow window;
  int bands = 0;
  std::vector<std::uint8_t> samples;
};

/// What the photos of all strips share; read only.
struct UpdateJob {
  std::string orthoDir;
  GeoCoefficients grid;     ///< of the mosaic
  GeoCoefficients texture;  ///< of the texture file
};

CellWindow StripWindow(const GeoCoefficients& texture, const GroundRect& strip) {
  CellWindow cells = texture.World2Raster(strip, -1, -1);
  cells.minX = std::max(cells.minX, 0);
  cells.minY = std::max(cells.minY, 0);
  cells.maxX = std::min(cells.maxX, texture.GetWidth() - 1) + 1;
  cells.maxY = std::min(cells.maxY, texture.GetHeight() - 1) + 1;
  return cells;
}

std::size_t CellCount(const CellWindow& window) {
  if (!HasArea(window)) return 0;
  return static_cast<std::size_t>(window.maxX - window.minX) *
         static_cast<std::size_t>(window.maxY - window.minY);
}

bool ReadStripMap(const tqorkit::tqBinaryData& map, const CellWindow& window,
                  std::vector<std::uint16_t>& cells) {
  cells.assign(CellCount(window), 0);
  // The buffer holds 16-bit cells; a file of wider ones would write beyond it.
  if (map.GetBytesPerCell() == 2 &&
      map.ReadBlkData(window.minX, window.minY, window.maxX, window.maxY, cells.data())) {
    return true;
  }
  PrintMessage(message::kMapReadError);
  char line[80];
  // Kept: the first row stands for the first column too; scripts that read this line expect it so.
  std::snprintf(line, sizeof line, "paras1:%d %d %d %d\n", window.minY, window.minY, window.maxX,
                window.maxY);
  PrintMessage(line);
  return false;
}

bool ReadTextureStrip(const TqImage& image, const CellWindow& window, TextureStrip& strip) {
  strip.window = window;
  strip.bands = image.GetBandCount();
  const std::size_t count = CellCount(window);
  strip.samples.resize(count * static_cast<std::size_t>(strip.bands));
  for (int band = 0; band < strip.bands; ++band) {
    if (!image.ReadImage(band, window, tqimage::kByte,
                         strip.samples.data() + static_cast<std::size_t>(band) * count)) {
      return false;
    }
  }
  return true;
}

/// Makes a photo's ownership mask from the map and saves it. Growing and saving happen under the
/// stage's lock.
void OwnPhoto(const UpdateJob& job, const tqExtOri& photo, int label,
              const std::vector<std::uint16_t>& stripMap, StageProgress& stage) {
  const GroundRect& rect = photo.GetGeoRect();
  const auto cells = job.grid.World2Raster(rect, -1, -1);
  const int width = cells.maxX - cells.minX + 1;
  const int height = cells.maxY - cells.minY + 1;
  // Kept: a photo of one column or row gets no mask, and no progress, only this line.
  if (width <= 1 || height <= 1) {
    PrintMessage(message::kSizeError);
    return;
  }
  // A row or column more is saved than asked for here; what cannot be held at all is left out.
  if (width > kMostMaskCells / height) return;
  std::vector<std::uint8_t> mask(static_cast<std::size_t>(width) *
                                 static_cast<std::size_t>(height));
  FillOwnership(stripMap, label, mask);
  const auto cell = photo.GetGSD();
  const double transform[] = {rect.minX, cell.x, 0, rect.maxY, 0, cell.y};
  GeoCoefficients geo(transform, width, height);
  geo.SetProjection(job.texture.GetProjection());
  stage.FinishOne([&] {
    const std::string ortho = OrthoName(job.orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
    if (ortho.empty()) return false;
    const auto grown = GrowOwnership(GridView<const std::uint8_t>(mask.data(), height, width));
    tqimage::InterleavedRaster raster;
    raster.data = grown.data();
    raster.width = width + 1;
    raster.height = height + 1;
    raster.bands = 1;
    raster.description =
        "255: by the last update the photo owns this cell or nobody does; one column and row more "
        "than the ortho image";
    return tqimage::WriteInterleaved(OwnershipMaskName(ortho), raster, &geo, true);
  });
}

/// The texture under an ortho image, bands interleaved; 0 beyond the strip. Empty when the image's
/// first cell is not on the texture.
std::vector<std::uint8_t> TextureUnder(const UpdateJob& job, const TextureStrip& strip,
                                       const GeoCoefficients& ortho, int width, int height) {
  const auto origin = ortho.GetOrigin();
  const auto first = job.texture.World2Raster(origin.x, origin.y, -1, -1);
  if (first.x < 0 || first.y < 0 || first.x >= job.texture.GetWidth() ||
      first.y >= job.texture.GetHeight()) {
    return {};
  }
  const auto bands = static_cast<std::size_t>(strip.bands);
  std::vector<std::uint8_t> copy(static_cast<std::size_t>(width) *
                                 static_cast<std::size_t>(height) * bands);
  const CellWindow& window = strip.window;
  const std::size_t count = CellCount(window);
  const std::size_t stripCols = static_cast<std::size_t>(window.maxX - window.minX);
  // Photo columns and rows that the strip holds. Both sides are at most a raster's size apart.
  const int firstCol = std::max(0, window.minX - first.x);
  const int endCol = std::min(width, window.maxX - first.x);
  const int firstRow = std::max(0, window.minY - first.y);
  const int endRow = std::min(height, window.maxY - first.y);
  for (int row = firstRow; row < endRow; ++row) {
    for (int col = firstCol; col < endCol; ++col) {
      const std::size_t from = static_cast<std::size_t>(first.y + row - window.minY) * stripCols +
                               static_cast<std::size_t>(first.x + col - window.minX);
      const std::size_t to = static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                             static_cast<std::size_t>(col);
      for (std::size_t band = 0; band < bands; ++band) {
        copy[to * bands + band] = strip.samples[band * count + from];
      }
    }
  }
  return copy;
}

/// Blends the texture into one ortho image. False when the photo is to be skipped.
bool FillPhoto(const UpdateJob& job, const tqExtOri& photo, const TextureStrip& strip) {
  const std::string name = OrthoName(job.orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
  tqorkit::PhotoInfo ortho;
  tqorkit::PhotoInfo mask;
  GeoCoefficients geo;
  if (name.empty() || !ReadOrtho(name, ortho, geo) || !ReadMask(ObscuredMaskName(name), mask)) {
    return false;
  }
  auto texture = TextureUnder(job, strip, geo, ortho.width, ortho.height);
  if (texture.empty()) return false;
  const GridView<const std::uint8_t> hidden(mask.data.data(), mask.height, mask.width);
  const auto kept = KeptShare(hidden, ortho.height, ortho.width);
  BlendTexture(hidden, {kept.data(), ortho.height, ortho.width},
               {texture.data(), ortho.height, ortho.width, strip.bands},
               {ortho.data.data(), ortho.height, ortho.width, ortho.bands});
  // An image that cannot be written stays as it was; the photo counts as done like any other.
  (void)WriteOrthoImage(name, ortho, geo);
  return true;
}

}  // namespace

bool tqTORProc::UpdateOrthoImages(std::string /*ignored*/, std::string orthoDir,
                                  tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    const int total = CountPhotos(photoBlocks);
    if (total < 1) return false;
    StageProgress stage(total, message::kUpdating, progress, user, ProgressLock::kUpdateLoops);
    std::vector<std::vector<PhotoRef>> stripPhotos;
    std::vector<GroundRect> stripRects;
    if (!PlaceMosaic(&stripPhotos, &stripRects)) return false;
    TqImage texture;
    if (!texture.Open(TexturePath(), true)) {
      LogMessage(std::string(message::kTextureError) + TexturePath());
      return false;
    }
    // Without any ortho image there is nothing to do, and still no failure; the log tells.
    (void)OrthoProjection(photoBlocks, orthoDir);
    const UpdateJob job{orthoDir, GetGeoCoeff(), texture.GetGeoCoefficients()};
    tqorkit::tqBinaryData map;
    if (!map.Open(tqfd::StringConverter::Convert(PixMapPath()))) {
      // Kept: not the end. Every strip then says that it cannot be read, and true is returned.
      LogMessage(message::kPixMapError);
      PrintMessage(std::string(message::kPixMapError) + "\n");
    }
    for (std::size_t j = 0; j < stripRects.size() && !stage.Stopped(); ++j) {
      if (!HasArea(stripRects[j])) continue;
      const auto& photos = stripPhotos[j];
      const int count = static_cast<int>(photos.size());
      const auto photoAt = [&](int k) -> const tqExtOri& {
        const PhotoRef ref = photos[static_cast<std::size_t>(k)];
        return photoBlocks[static_cast<std::size_t>(ref.x)]
            .GetPhotos()[static_cast<std::size_t>(ref.y)];
      };
      const CellWindow window = StripWindow(job.texture, stripRects[j]);
      std::vector<std::uint16_t> stripMap;
      if (!ReadStripMap(map, window, stripMap)) continue;
#pragma omp parallel for schedule(static)
      for (int k = 0; k < count; ++k) {
        if (stage.Stopped()) continue;
        (void)Guarded([&] {
          const int label = GlobalPhotoNumber(photoBlocks, photos[static_cast<std::size_t>(k)]);
          OwnPhoto(job, photoAt(k), label, stripMap, stage);
          return true;
        });
      }
      std::vector<std::uint16_t>().swap(stripMap);  // a gigabyte on large jobs
      TextureStrip strip;
      if (stage.Stopped() || !ReadTextureStrip(texture, window, strip)) continue;
#pragma omp parallel for schedule(static)
      for (int k = 0; k < count; ++k) {
        if (stage.Stopped()) continue;
        if (Guarded([&] { return FillPhoto(job, photoAt(k), strip); })) stage.FinishOne();
      }
    }
    return !stage.Stopped();
  });
}

}  // namespace tqtortho
