// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "tqfd/Progress.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Writes the job's pixel-to-photo map ("<temporary output>/ot/pix_map.bin") in its first form: of
/// the photos that have data in a cell and are not marked as hidden there, the one whose projection
/// centre is nearest to the cell on the ground; 0 where there is none. Numbers count the photos of
/// all blocks from 1, in job order; ties go to the lower number.
///
/// The grid is the mosaic's: the box of all footprints (first to last cell centre) at the ground
/// resolution of the parameter file, from which the directory of the ortho images comes as well.
/// Photos without a footprint, and those whose masks cannot be read, supply nothing. A sizing run
/// has no masks and gets no map.
///
/// Photos without a footprint are named in the log with what kept them from one; where no photo has
/// one the job has made nothing, and fails here.
///
/// Works in strips of rows, on OpenMP's threads; memory is that of a strip per thread.
/// @return false when no photo has a footprint, without parameter file, when the map cannot be
/// written, and after a stop.
bool MakeMosaicMasks(std::vector<tqorkit::tqPhotoCategory>& photoBlocks,
                     tqfd::ProgressCallback progress, void* user);

}  // namespace tqtortho
