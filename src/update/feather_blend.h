// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// A colour image in memory, bands interleaved.
struct ColourView {
  std::uint8_t* samples = nullptr;
  int rows = 0;
  int cols = 0;
  int bands = 0;
};

/// How much of the photo's own colour a cell keeps, 255 = all, 0 = none, from the mask of hidden
/// cells (255 = hidden, any size: cells without a mask are seen). In order:
///
/// 1. A hidden cell keeps nothing, however small the spot: what the photo shows there is the
///    facade or the tree in front.
/// 2. More than 20 cells away from hidden ones, everything is kept.
/// 3. Between, the share rises softly. The share of the texture is the mask, three times blurred (9
/// x
///    9) and between that twice dilated (9 x 9). Growing the hidden side, not the seen one, is the
///    point: the other way round spots up to 16 cells wide would close and facades would stay.
[[nodiscard]] std::vector<std::uint8_t> KeptShare(GridView<const std::uint8_t> hidden, int rows,
                                                  int cols);

/// Blends a texture into an ortho image of the same size.
///
/// 1. Ortho cells that are not hidden take the texture's pixel, where that is not 0.
/// 2. Texture cells that are 0 take the ortho's pixel, so that nothing is blended with emptiness:
///    where there is no texture the photo stays, be it hidden.
/// 3. ortho = texture * (1 - w) + ortho * w with w = kept / 255 in up to three bands, in double (so
///    that equal colours stay equal), truncated.
///
/// A pixel is 0 when all its bands are. Of different band counts, the bands that both have count.
///
/// Kept: after 1, what is seen shows the texture too. Every ortho then agrees with the texture and
/// with its neighbours, colour balance included; the photo's own pixels stay only without texture.
///
/// @param texture  changed by step 2
void BlendTexture(GridView<const std::uint8_t> hidden, GridView<const std::uint8_t> kept,
                  const ColourView& texture, const ColourView& ortho);

}  // namespace tqtortho
