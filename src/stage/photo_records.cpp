// SPDX-License-Identifier: Apache-2.0
#include "stage/photo_records.h"

#include <atomic>

namespace tqtortho {
namespace {

std::atomic<PhotoRecords*> installed{nullptr};

}  // namespace

void SetPhotoRecords(PhotoRecords* records) { installed.store(records); }
PhotoRecords* InstalledPhotoRecords() { return installed.load(); }

}  // namespace tqtortho
