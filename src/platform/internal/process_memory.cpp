// SPDX-License-Identifier: Apache-2.0
#include "internal/process_memory.h"

#include <cpl_conv.h>
#include <gdal.h>
#include <malloc.h>

namespace tqimage {

void BoundRasterCache() {
  if (CPLGetConfigOption("GDAL_CACHEMAX", nullptr) == nullptr) GDALSetCacheMax64(kRasterCacheBytes);
}

void ReleaseFreeMemory() { (void)malloc_trim(0); }

}  // namespace tqimage
