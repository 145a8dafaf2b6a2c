// SPDX-License-Identifier: Apache-2.0
#include "stage/photo_records.h"

#include <atomic>

namespace tqtortho {
namespace {

std::atomic<PhotoRecords*> installedRecords{nullptr};

}  // namespace

void SetPhotoRecords(PhotoRecords* records) { installedRecords.store(records); }
PhotoRecords* InstalledPhotoRecords() { return installedRecords.load(); }

}  // namespace tqtortho
