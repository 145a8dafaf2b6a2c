// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "internal/gdal_raster.h"

namespace geo {

/// A dataset without bands over memory of the caller's own.
[[nodiscard]] tqimage::DatasetPtr MemoryDataset(int width, int height);
/// Adds a band that reads and writes the caller's memory.
bool AddBand(GDALDataset& dataset, void* first, GDALDataType type, GSpacing pixel, GSpacing line);
/// Interleaved bytes of 1, 3 or 4 bands as a dataset to copy from; null when there is none.
[[nodiscard]] tqimage::DatasetPtr PictureView(const std::uint8_t* pixels, int width, int height,
                                              int bands);

}  // namespace geo
