// SPDX-License-Identifier: Apache-2.0
#include "stage/mask_maker.h"

#include <atomic>

namespace tqtortho {
namespace {

std::atomic<OcclusionMaskMaker*> installed{nullptr};

}  // namespace

void SetOcclusionMaskMaker(OcclusionMaskMaker* maker) { installed.store(maker); }
OcclusionMaskMaker* InstalledOcclusionMaskMaker() { return installed.load(); }

}  // namespace tqtortho
