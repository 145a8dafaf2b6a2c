// SPDX-License-Identifier: Apache-2.0
//
// Puts the fill texture into the cells of ortho images that need it, and into no others.
#include <cstdint>

#include "core/rect_ops.h"
#include "rectify/photo_outputs.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqimage/TqImage.h"
#include "tqtortho/tqTORProc.h"
#include "update/fill_cells.h"
#include "update/mosaic_grid.h"
#include "update/photo_rasters.h"

namespace tqtortho {

namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;

/// Whether `image` is a byte raster as large as `size`, with all its samples.
bool IsBytesOf(const PhotoInfo& image, const PhotoInfo& size) {
  return image.dataType == tqimage::kByte && image.width == size.width &&
         image.height == size.height && image.width > 0 && image.height > 0 && image.bands > 0 &&
         image.width <= INT32_MAX / image.bands &&
         image.data.size() == static_cast<std::size_t>(image.width) *
                                  static_cast<std::size_t>(image.height) *
                                  static_cast<std::size_t>(image.bands);
}

template <class Bytes>
auto SamplesOf(Bytes& image) {
  return GridView<std::remove_pointer_t<decltype(image.data.data())>>(
      image.data.data(), image.height, image.width * image.bands);
}

/// The texture's samples under an ortho image; 0 beyond it. False when the two do not meet or the
/// texture cannot be read.
bool ReadTextureUnder(const GeoCoefficients& geo, const PhotoInfo& ortho, PhotoInfo& under) {
  TqImage texture;
  if (!texture.Open(TexturePath(), true) || texture.GetDataType() != tqimage::kByte) return false;
  const auto origin = geo.GetOrigin();
  const auto first = texture.GetGeoCoefficients().World2Raster(origin.x, origin.y, -1, -1);
  const std::int64_t endCol = std::int64_t{first.x} + ortho.width;
  const std::int64_t endRow = std::int64_t{first.y} + ortho.height;
  if (first.x >= texture.GetWidth() || first.y >= texture.GetHeight() || endCol <= 0 ||
      endRow <= 0 || endCol > INT32_MAX || endRow > INT32_MAX) {
    return false;
  }
  under.width = ortho.width;
  under.height = ortho.height;
  under.bands = texture.GetBandCount();
  under.dataType = tqimage::kByte;
  const auto bands = static_cast<std::size_t>(under.bands);
  std::vector<std::uint8_t> band(static_cast<std::size_t>(ortho.width) *
                                 static_cast<std::size_t>(ortho.height));
  under.data.resize(band.size() * bands);
  const tqfd::Rect2_T<int> cells{first.x, first.y, static_cast<int>(endCol),
                                 static_cast<int>(endRow)};
  for (std::size_t b = 0; b < bands; ++b) {
    if (!texture.ReadImage(static_cast<int>(b), cells, tqimage::kByte, band.data())) return false;
    for (std::size_t i = 0; i < band.size(); ++i) under.data[i * bands + b] = band[i];
  }
  return true;
}

}  // namespace

bool tqTORProc::FillImgObscure(const PhotoInfo& hidden, const PhotoInfo& texture,
                               PhotoInfo& ortho) {
  return Guarded([&] {
    if (!IsBytesOf(ortho, ortho) || !IsBytesOf(texture, ortho) || !IsBytesOf(hidden, ortho) ||
        hidden.bands != 1) {
      return false;
    }
    // A mask may go on beyond the photo's data; there the ortho stays empty.
    std::vector<std::uint8_t> marks = hidden.data;
    const auto bands = static_cast<std::size_t>(ortho.bands);
    for (std::size_t i = 0; i < marks.size(); ++i) {
      if (IsEmptyCell(&ortho.data[i * bands], ortho.bands)) marks[i] = 0;
    }
    ReplaceCells({marks.data(), ortho.height, ortho.width}, 255, SamplesOf(texture), texture.bands,
                 SamplesOf(ortho), ortho.bands);
    return true;
  });
}

bool tqTORProc::FillImgInvalidHoles(const PhotoInfo& texture, PhotoInfo& ortho) {
  return Guarded([&] {
    if (!IsBytesOf(ortho, ortho) || !IsBytesOf(texture, ortho)) return false;
    std::vector<std::uint8_t> marks(ortho.data.size() / static_cast<std::size_t>(ortho.bands));
    FindHoles(SamplesOf(ortho), ortho.bands, {marks.data(), ortho.height, ortho.width});
    ReplaceCells({marks.data(), ortho.height, ortho.width}, 1, SamplesOf(texture), texture.bands,
                 SamplesOf(ortho), ortho.bands);
    return true;
  });
}

bool tqTORProc::UpdateOrthoImagesEx(std::string /*ignored*/, std::string orthoDir,
                                    tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    const int total = CountPhotos(photoBlocks);
    if (total < 1 || !PlaceMosaic(nullptr, nullptr)) return false;
    std::vector<GroundRect> regions;
    std::map<std::uint64_t, std::vector<PhotoRef>> regionPhotos;
    TqImage texture;
    if (!ImageRegionPartition(regions, 0, regionPhotos)) return false;
    if (!texture.Open(TexturePath(), true)) {
      LogMessage(std::string(message::kTextureError) + TexturePath());
      return false;
    }
    if (!OrthoProjection(photoBlocks, orthoDir)) return false;
    StageProgress stage(total, message::kUpdating, progress, user, ProgressLock::kUpdateLoops);
    for (std::size_t k = 0; k < regions.size() && !stage.Stopped(); ++k) {
      const auto& photos = regionPhotos[k];
      const int count = static_cast<int>(photos.size());
#pragma omp parallel for schedule(static)
      for (int i = 0; i < count; ++i) {
        if (stage.Stopped()) continue;
        const bool done = Guarded([&] {
          const PhotoRef ref = photos[static_cast<std::size_t>(i)];
          const auto& photo = photoBlocks[static_cast<std::size_t>(ref.x)]
                                  .GetPhotos()[static_cast<std::size_t>(ref.y)];
          const std::string name = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
          PhotoInfo ortho, hidden, under;
          GeoCoefficients geo;
          return !name.empty() && ReadOrtho(name, ortho, geo) &&
                 ReadMask(ObscuredMaskName(name), hidden) && ReadTextureUnder(geo, ortho, under) &&
                 FillImgObscure(hidden, under, ortho) && FillImgInvalidHoles(under, ortho) &&
                 WriteOrthoImage(name, ortho, geo);
        });
        if (done) stage.FinishOne();
      }
    }
    return !stage.Stopped();
  });
}

}  // namespace tqtortho
