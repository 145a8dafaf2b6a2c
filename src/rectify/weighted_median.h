// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

/// Replaces pixels by a weighted mean of themselves and their 3 x 3 median, in place.
///
/// At the edges of tall buildings neighbouring cells take their pixels from far apart in the photo,
/// which shows as pepper along the eaves; the median calms it where the weight asks for it.
///
/// Pixel (r, c) has the weight w at (firstRow + r, firstCol + c): each band becomes
/// trunc(median * w / 255.0 + (255 - w) * pixel / 255.0). Pixels without a weight (outside the
/// view) and pixels whose first band is 0 stay. Medians are those of the image before any change,
/// border pixels replicated.
///
/// @param pixels  rows x (cols * bands) interleaved samples
/// @param bands   3; any other number leaves the image as it is
///
/// One copy of the image, made only when a weight above 0 meets it; may throw std::bad_alloc.
void BlendMedian(GridView<std::uint8_t> pixels, int bands, GridView<const std::uint8_t> weights,
                 int firstRow, int firstCol);

}  // namespace tqtortho
