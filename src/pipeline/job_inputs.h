// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <map>
#include <vector>

#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// The two text inputs of a job. Both readers go line by line, take from each line what scanf would
/// take (leading blanks, trailing rest ignored), always with a decimal point, and never fail: what
/// cannot be read is left out, and the end of the file ends everything. One carriage return at the
/// end of a line is dropped, so that lists written on Windows name the same folders.

/// Adds the cameras of a camera file. Line 1: their number; then three lines each:
///     id
///     name (the whole line)
///     width height focal sensorWidth sensorHeight ppx ppy model k1 k2 k3 p1 p2 b1 b2 c8
/// Width, height and principal point are pixels; focal length and sensor size share one unit. The
/// record's pixel size is sensorWidth / width and its offsets are (pp - half the size) in that
/// unit.
///
/// A camera without all sixteen values is skipped; an id line that is no number counts as id 0;
/// the first record of an id stays.
void ReadCameras(std::istream& in, std::map<int, tqorkit::tqIntOri>& cameras);

/// Adds the photo blocks of a photo list. Line 1: number of blocks; then per block
///     photo count
///     block path (the whole line)
///     name Xs Ys Zs omega phi kappa cameraId      (one line per photo)
///
/// A block exists as soon as its path is read. A photo line without all eight values is skipped.
/// Photos start with the empty rectangle, the sample distances (gsd, -gsd) and the index of their
/// block in `blocks`, so that a second list's photos cannot take the names of the first one's.
void ReadPhotoList(std::istream& in, double gsd, std::vector<tqorkit::tqPhotoCategory>& blocks);

}  // namespace tqtortho
