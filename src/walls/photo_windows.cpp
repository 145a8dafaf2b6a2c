// SPDX-License-Identifier: Apache-2.0
#include "walls/photo_windows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "core/numeric.h"
#include "survey/photo_outline.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

/// Pixels of a photo: first to last column and row, both inclusive.
struct Frame {
  double minCol = std::numeric_limits<double>::max();
  double minRow = std::numeric_limits<double>::max();
  double maxCol = -1;
  double maxRow = -1;
};

/// Where a photo shows the ground between two heights: a lattice of points of it, and as much more
/// on every side as lies between two of them.
bool FrameOf(const PhotoCamera& camera, const tqfd::Rect2_T<double>& rect, double lowest,
             double highest, Frame& frame) {
  constexpr int kPoints = 8;
  for (const double z : {lowest, highest}) {
    for (int i = 0; i <= kPoints; ++i) {
      for (int j = 0; j <= kPoints; ++j) {
        const double x = rect.minX + (rect.maxX - rect.minX) * i / kPoints;
        const double y = rect.minY + (rect.maxY - rect.minY) * j / kPoints;
        double col = 0, row = 0;
        if (!PixelOfGround(camera, x, y, z, col, row)) continue;
        frame.minCol = std::min(frame.minCol, col), frame.maxCol = std::max(frame.maxCol, col);
        frame.minRow = std::min(frame.minRow, row), frame.maxRow = std::max(frame.maxRow, row);
      }
    }
  }
  if (frame.maxCol < 0) return false;
  const double more =
      2 + std::max(frame.maxCol - frame.minCol, frame.maxRow - frame.minRow) / (kPoints - 1);
  frame.minCol -= more, frame.minRow -= more, frame.maxCol += more, frame.maxRow += more;
  return true;
}

}  // namespace

PhotoWindows::PhotoWindows(const Survey& survey, std::int64_t memory) : memory_(memory) {
  for (const SurveyBlock& block : survey.blocks) {
    for (const SurveyPhoto& photo : block.photos) {
      const auto camera =
          std::find_if(survey.cameras.begin(), survey.cameras.end(),
                       [&](const SurveyCamera& c) { return c.id == photo.cameraId; });
      if (camera == survey.cameras.end()) continue;
      const PhotoCamera model = CameraOfSurvey(*camera, photo);
      if (IsUsable(model)) photos_.push_back({block.path + "/" + photo.name, model});
    }
  }
}

PhotoWindows::Pixels PhotoWindows::Read(std::size_t photo) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = held_.begin(); it != held_.end(); ++it) {
      if (it->first != photo) continue;
      held_.splice(held_.begin(), held_, it);
      return held_.front().second;
    }
  }
  auto image = std::make_shared<tqorkit::PhotoInfo>();
  const bool usable = tqimage::TqImage::QuickReadImage(photos_[photo].path, *image, nullptr) &&
                      image->dataType == tqimage::kByte && image->bands >= 1;
  Pixels pixels = usable ? Pixels(std::move(image)) : nullptr;
  const std::lock_guard<std::mutex> lock(mutex_);
  held_.emplace_front(photo, pixels);
  std::int64_t sum = 0;
  for (auto it = held_.begin(); it != held_.end(); ++it) {
    if (it->second) sum += static_cast<std::int64_t>(it->second->data.size());
    if (sum <= memory_ || it == held_.begin()) continue;
    held_.erase(it, held_.end());
    break;
  }
  return pixels;
}

HeldWindows PhotoWindows::Cut(const tqfd::Rect2_T<double>& rect, double lowest, double highest,
                              int most) {
  std::vector<std::pair<double, std::size_t>> near;
  const double x = 0.5 * (rect.minX + rect.maxX);
  const double y = 0.5 * (rect.minY + rect.maxY);
  for (std::size_t k = 0; k < photos_.size(); ++k) {
    Frame frame;
    if (!FrameOf(photos_[k].camera, rect, lowest, highest, frame)) continue;
    const auto& centre = photos_[k].camera.centre;
    near.emplace_back(std::hypot(centre.x - x, centre.y - y), k);
  }
  std::sort(near.begin(), near.end());
  HeldWindows held;
  for (const auto& [away, k] : near) {
    if (static_cast<int>(held.windows.size()) >= most) break;
    const Pixels photo = Read(k);
    Frame frame;
    if (!photo || !FrameOf(photos_[k].camera, rect, lowest, highest, frame)) continue;
    PhotoWindow window;
    window.camera = photos_[k].camera;
    window.firstCol = std::max(FloorToInt(frame.minCol), 0);
    window.firstRow = std::max(FloorToInt(frame.minRow), 0);
    window.cols = std::min(FloorToInt(frame.maxCol) + 1, photo->width) - window.firstCol;
    window.rows = std::min(FloorToInt(frame.maxRow) + 1, photo->height) - window.firstRow;
    window.bands = photo->bands;
    if (window.cols < 2 || window.rows < 2) continue;
    const auto bands = static_cast<std::size_t>(photo->bands);
    const std::size_t across = bands * static_cast<std::size_t>(window.cols);
    std::vector<std::uint8_t> pixels(across * static_cast<std::size_t>(window.rows));
    for (int row = 0; row < window.rows; ++row) {
      const std::size_t from = (static_cast<std::size_t>(window.firstRow + row) *
                                    static_cast<std::size_t>(photo->width) +
                                static_cast<std::size_t>(window.firstCol)) *
                               bands;
      std::memcpy(pixels.data() + across * static_cast<std::size_t>(row), photo->data.data() + from,
                  across);
    }
    held.pixels.push_back(std::move(pixels));
    held.windows.push_back(window);
  }
  for (std::size_t k = 0; k < held.windows.size(); ++k) {
    held.windows[k].pixels = held.pixels[k].data();
  }
  return held;
}

}  // namespace tqtortho::host
