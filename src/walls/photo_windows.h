// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "survey/survey.h"
#include "tqfd/Geometry.h"
#include "tqorkit/PhotoInfo.h"
#include "walls/photo_window.h"

namespace tqtortho::host {

/// Parts of a survey's photos that show one piece of ground, with their pixels.
struct HeldWindows {
  std::vector<PhotoWindow> windows;
  std::vector<std::vector<std::uint8_t>> pixels;  ///< what the windows show
};

/// Cuts windows out of a survey's photos. A photo is read whole, since most formats allow nothing
/// else; the last ones stay in memory for the neighbouring piece of ground. Safe from several
/// threads.
class PhotoWindows {
 public:
  PhotoWindows(const Survey& survey, std::int64_t memory);

  /// The photos that show ground within `rect` between two heights, the nearest first, at most so
  /// many. A photo that cannot be read, or is not of 8 bits, is left out.
  [[nodiscard]] HeldWindows Cut(const tqfd::Rect2_T<double>& rect, double lowest, double highest,
                                int most);

 private:
  struct Photo {
    std::string path;
    PhotoCamera camera;
  };
  using Pixels = std::shared_ptr<const tqorkit::PhotoInfo>;
  [[nodiscard]] Pixels Read(std::size_t photo);

  std::vector<Photo> photos_;
  std::int64_t memory_ = 0;
  std::mutex mutex_;
  std::list<std::pair<std::size_t, Pixels>> held_;  ///< last used first
};

}  // namespace tqtortho::host
