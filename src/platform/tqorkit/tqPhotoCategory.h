// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqorkit/tqExtOri.h"

namespace tqorkit {

/// A block of photos that lie in one directory.
class TQTORTHO_API tqPhotoCategory {
 public:
  [[nodiscard]] const std::vector<tqExtOri>& GetPhotos() const { return photos_; }
  std::vector<tqExtOri>& GetPhotos() { return photos_; }
  void InsertPhoto(const tqExtOri& photo) { photos_.push_back(photo); }
  void SetBlkPath(const std::string& path) { path_ = path; }
  /// The block path; photos are found at this + "/" + photo name.
  [[nodiscard]] const std::string& GetPhotoPath() const { return path_; }

 private:
  std::string path_;
  std::vector<tqExtOri> photos_;
};

}  // namespace tqorkit
