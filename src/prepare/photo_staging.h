// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "survey/survey.h"

namespace tqtortho::host {

/// Makes every photo of `survey` readable under a name that the photo list can hold.
///
/// The list separates its fields by blanks, and a photo's name is part of its ortho's name, where a
/// folder would have to exist among the products. Photos whose name has folders, blanks, control
/// characters or too many bytes get a symbolic link with a safe name in a folder of their block
/// below `dir`; such a block then consists of links only and its path becomes that folder. Folders
/// become part of the safe name ("100MEDIA/DJI_0001.JPG" is 100MEDIA_DJI_0001.JPG): cameras number
/// their photos anew in every folder. Blocks without such names stay as they are, and when no block
/// needs links nothing is created. Running it again over the same photos gives the same links.
///
/// @return false, with one line in `error`, when a link cannot be made; `survey` is then unchanged.
[[nodiscard]] bool StagePhotos(Survey& survey, const std::string& dir, std::string& error);

}  // namespace tqtortho::host
