// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tqimage {

/// Bytes of raster blocks that GDAL holds for the whole process once BoundRasterCache was called.
/// Rasters are read and written in whole tiles or strips, once each, so a larger cache only holds
/// what nobody asks for again.
inline constexpr std::int64_t kRasterCacheBytes = 64 << 20;

/// Holds GDAL's block cache to kRasterCacheBytes; else it grows to a twentieth of the machine's
/// memory. It is the whole process's, so only a program calls this, never the library. A value that
/// the user gives as GDAL_CACHEMAX stands.
void BoundRasterCache();

/// Gives free memory back to the system. The allocator keeps it otherwise, in as many pools as
/// there are threads, and what one stage has freed would add to the next stage's peak.
void ReleaseFreeMemory();

}  // namespace tqimage
