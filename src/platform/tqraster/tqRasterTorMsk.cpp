// SPDX-License-Identifier: Apache-2.0
#include "tqraster/tqRasterTorMsk.h"

#include <mutex>
#include <utility>

namespace TqRaster {

namespace {

struct Installed {
  std::mutex mutex;
  tqRasterTorMsk::Maker maker;
};

Installed& TheInstalled() {
  static Installed installed;
  return installed;
}

}  // namespace

bool tqRasterTorMsk::DoMosaicMskByBlock(std::vector<tqorkit::tqPhotoCategory>& photoBlocks,
                                        tqfd::ProgressCallback progress, void* user) {
  Maker maker;
  {
    const std::lock_guard<std::mutex> lock(TheInstalled().mutex);
    maker = TheInstalled().maker;
  }
  return !maker || maker(photoBlocks, progress, user);
}

void tqRasterTorMsk::SetMaker(Maker maker) {
  const std::lock_guard<std::mutex> lock(TheInstalled().mutex);
  TheInstalled().maker = std::move(maker);
}

bool tqRasterTorMsk::HasMaker() {
  const std::lock_guard<std::mutex> lock(TheInstalled().mutex);
  return static_cast<bool>(TheInstalled().maker);
}

}  // namespace TqRaster
