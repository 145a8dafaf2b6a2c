// SPDX-License-Identifier: Apache-2.0
#include "pipeline/mosaic_masks.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <limits>
#include <string>

#include "core/limits.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "pipeline/missing_orthos.h"
#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqfd/FileInput.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqBinaryData.h"

namespace tqtortho {
namespace {

using tqimage::TqImage;
using Rect = tqfd::Rect2_T<double>;

constexpr int kStripRows = 512;
constexpr std::uint8_t kHidden = 255;

/// A photo on the mosaic's grid.
struct PlacedPhoto {
  std::uint16_t number = 0;
  std::string ortho;
  double centreX = 0, centreY = 0;  ///< projection centre
  int firstCol = 0, firstRow = 0, cols = 0, rows = 0;
};

struct Grid {
  Rect rect;
  double cell = 0;
  int cols = 0, rows = 0;
};

bool PlaceGrid(const std::vector<tqorkit::tqPhotoCategory>& blocks, double cell, Grid& grid) {
  for (const auto& block : blocks) {
    for (const auto& photo : block.GetPhotos()) {
      if (HasArea(photo.GetGeoRect())) FoldInto(grid.rect, photo.GetGeoRect());
    }
  }
  if (!HasArea(grid.rect) || !(cell > kZeroTolerance)) return false;
  grid.cell = cell;
  grid.cols = TruncToInt((grid.rect.maxX - grid.rect.minX) / cell + 0.5);
  grid.rows = TruncToInt((grid.rect.maxY - grid.rect.minY) / cell + 0.5);
  constexpr int kMost = std::numeric_limits<int>::max() / 2;
  if (grid.cols < 0 || grid.rows < 0 || grid.cols > kMost || grid.rows > kMost) return false;
  ++grid.cols;
  ++grid.rows;
  return true;
}

std::vector<PlacedPhoto> PlacePhotos(const std::vector<tqorkit::tqPhotoCategory>& blocks,
                                     const Grid& grid, const std::string& orthoDir) {
  std::vector<PlacedPhoto> placed;
  int number = 0;
  for (const auto& block : blocks) {
    for (const auto& photo : block.GetPhotos()) {
      ++number;
      const Rect& r = photo.GetGeoRect();
      if (!HasArea(r) || number > std::numeric_limits<std::uint16_t>::max()) continue;
      double pose[6];
      photo.GetPos(pose);
      PlacedPhoto p;
      p.number = static_cast<std::uint16_t>(number);
      p.ortho = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
      p.centreX = pose[0];
      p.centreY = pose[1];
      p.firstCol = TruncToInt((r.minX - grid.rect.minX) / grid.cell + 0.5);
      p.firstRow = TruncToInt((grid.rect.maxY - r.maxY) / grid.cell + 0.5);
      p.cols = TruncToInt((r.maxX - r.minX) / grid.cell + 0.5) + 1;
      p.rows = TruncToInt((r.maxY - r.minY) / grid.cell + 0.5) + 1;
      placed.push_back(std::move(p));
    }
  }
  return placed;
}

/// Rows of a one-band mask of the photo's size; empty when there are none.
std::vector<std::uint8_t> MaskRows(const std::string& path, const PlacedPhoto& photo, int firstRow,
                                   int endRow) {
  TqImage mask;
  if (!mask.Open(path, true) || mask.GetWidth() != photo.cols || mask.GetHeight() != photo.rows) {
    return {};
  }
  std::vector<std::uint8_t> cells(static_cast<std::size_t>(endRow - firstRow) * photo.cols);
  if (!mask.ReadImage(0, {0, firstRow, photo.cols, endRow}, tqimage::kByte, cells.data()))
    return {};
  return cells;
}

/// Where a photo's ortho image has data, by its type-1 mask. After an update that mask holds the
/// photo's ownership and is one cell larger each way; every cell of the ortho has data then.
std::vector<std::uint8_t> DataRows(const PlacedPhoto& photo, int firstRow, int endRow) {
  const std::string path = OwnershipMaskName(photo.ortho);
  TqImage mask;
  if (mask.Open(path, true) && mask.GetWidth() == photo.cols + 1 &&
      mask.GetHeight() == photo.rows + 1) {
    return std::vector<std::uint8_t>(static_cast<std::size_t>(endRow - firstRow) * photo.cols, 255);
  }
  return MaskRows(path, photo, firstRow, endRow);
}

/// One strip of the map: rows [row, endRow) of the grid.
struct Strip {
  Strip(const Grid& mosaic, int first, int end)
      : grid(mosaic),
        row(first),
        endRow(end),
        number(static_cast<std::size_t>(end - first) * mosaic.cols, 0),
        nearest(number.size(), std::numeric_limits<float>::infinity()) {}

  /// Gives the photo the cells that it shows nearer to its centre than any photo before it.
  void Offer(const PlacedPhoto& photo) {
    const int from = std::max(row, photo.firstRow);
    const int to = std::min(endRow, photo.firstRow + photo.rows);
    if (from >= to) return;
    const auto data = DataRows(photo, from - photo.firstRow, to - photo.firstRow);
    const auto hidden =
        MaskRows(ObscuredMaskName(photo.ortho), photo, from - photo.firstRow, to - photo.firstRow);
    if (data.empty() || hidden.empty()) return;
    std::size_t i = 0;
    for (int r = from; r < to; ++r) {
      const double dy = grid.rect.maxY - r * grid.cell - photo.centreY;
      std::size_t at = static_cast<std::size_t>(r - row) * grid.cols + photo.firstCol;
      for (int c = 0; c < photo.cols; ++c, ++i, ++at) {
        if (data[i] == 0 || hidden[i] == kHidden) continue;
        const double dx = grid.rect.minX + (photo.firstCol + c) * grid.cell - photo.centreX;
        const float distance = NarrowToFloat(dx * dx + dy * dy);
        if (!(distance < nearest[at])) continue;
        nearest[at] = distance;
        number[at] = photo.number;
      }
    }
  }

  const Grid& grid;
  int row;
  int endRow;
  std::vector<std::uint16_t> number;  ///< of the photo, 0 none
  std::vector<float> nearest;         ///< its squared distance to the cell
};

}  // namespace

bool MakeMosaicMasks(std::vector<tqorkit::tqPhotoCategory>& photoBlocks,
                     tqfd::ProgressCallback progress, void* user) {
  std::ifstream file = tqfd::OpenInputFile(ParamFilePath(), limits::kListBytes);
  ParamHeader header;
  if (!file || !ParamFileReader(file).ReadHeader(header)) {
    LogMessage(message::kParamFileError);
    return false;
  }
  if (!TellOfMissingOrthos(photoBlocks, header.outputDir)) return false;
  if (header.flagB) return true;
  Grid grid;
  if (!PlaceGrid(photoBlocks, header.heightPair[0], grid)) return true;
  const auto photos = PlacePhotos(photoBlocks, grid, header.outputDir);

  tqorkit::tqBinaryData map;
  const double transform[6] = {grid.rect.minX, grid.cell, 0, grid.rect.maxY, 0, -grid.cell};
  tqimage::GeoCoefficients at(transform, grid.cols, grid.rows);
  TqImage dsm;
  if (dsm.Open(header.dsmPath, true)) {
    at.SetProjection(dsm.GetGeoCoefficients().GetProjection());
  }
  if (!tqfd::PathHelper::MakeParentDirectory(PixMapPath()) ||
      !map.Create(PixMapPath(), grid.cols, grid.rows) || !map.SetGeoCoefficients(at)) {
    return false;
  }
  const int strips = (grid.rows + kStripRows - 1) / kStripRows;
  StageProgress stage(strips, message::kMosaicking, progress, user);
  std::atomic<bool> written{true};
#pragma omp parallel for schedule(static)
  for (int s = 0; s < strips; ++s) {
    if (stage.Stopped() || !written) continue;
    const bool ok = Guarded([&] {
      const int row = s * kStripRows;
      const int endRow = std::min(row + kStripRows, grid.rows);
      Strip strip(grid, row, endRow);
      for (const PlacedPhoto& photo : photos) {
        // A footprint that sticks out of the grid cannot be of this job.
        if (photo.firstCol < 0 || photo.cols > grid.cols - photo.firstCol) continue;
        strip.Offer(photo);
      }
      bool saved = false;
#pragma omp critical(tqtortho_mosaic_map)
      saved = map.SaveBlkData(0, row, grid.cols, endRow - row, strip.number.data());
      return saved;
    });
    if (!ok) written = false;
    stage.FinishOne();
  }
  return written && !stage.Stopped() && map.Close();
}

}  // namespace tqtortho
