// SPDX-License-Identifier: Apache-2.0
#include "stage/mask_maker.h"

#include <atomic>

namespace tqtortho {
namespace {

std::atomic<OcclusionMaskMaker*> installedMaker{nullptr};

}  // namespace

void SetOcclusionMaskMaker(OcclusionMaskMaker* maker) { installedMaker.store(maker); }
OcclusionMaskMaker* InstalledOcclusionMaskMaker() { return installedMaker.load(); }

}  // namespace tqtortho
