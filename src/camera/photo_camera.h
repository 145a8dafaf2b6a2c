// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera/camera_model.h"
#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqtortho {

/// The camera model's numbers of one photo, from its orientation records.
[[nodiscard]] PhotoCamera CameraOf(const tqorkit::tqIntOri& interior,
                                   const tqorkit::tqExtOri& exterior);

/// The lens alone.
[[nodiscard]] LensDistortion LensOf(const tqorkit::tqIntOri& interior);

}  // namespace tqtortho
