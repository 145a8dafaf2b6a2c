// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <vector>

#include "tqtortho/tqTORProc.h"

namespace tqtortho::host {

/// The library's job, whose photos and cameras can be asked for once they are rectified.
class RectifiedJob : public tqTORProc {
 public:
  [[nodiscard]] const std::vector<tqorkit::tqPhotoCategory>& Blocks() const { return photoBlocks; }
  [[nodiscard]] const std::map<int, tqorkit::tqIntOri>& Cameras() const { return cameras; }
};

}  // namespace tqtortho::host
