// SPDX-License-Identifier: Apache-2.0
#include "job/call_guard.h"
#include "tqraster/tqRasterTorMsk.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {

bool tqTORProc::MosaicMskProc(tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    TqRaster::tqRasterTorMsk masks;
    return masks.DoMosaicMskByBlock(photoBlocks, progress, user);
  });
}

}  // namespace tqtortho
