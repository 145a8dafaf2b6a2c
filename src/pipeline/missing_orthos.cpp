// SPDX-License-Identifier: Apache-2.0
#include "pipeline/missing_orthos.h"

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "core/rect_ops.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

namespace fs = std::filesystem;

std::string Absolute(const fs::path& path) {
  std::error_code failed;
  const fs::path whole = fs::absolute(path, failed);
  return (failed ? path : whole).lexically_normal().string();
}

std::string CauseOf(const std::string& photoPath, const std::string& orthoName) {
  const auto text = [](std::string_view cause, const std::string& path) {
    return std::string(cause) + Absolute(path);
  };
  tqimage::TqImage photo;
  if (!photo.Open(photoPath, true)) return text(message::kPhotoUnreadable, photoPath);
  if (photo.GetDataType() != tqimage::kByte) return text(message::kPhotoNotBytes, photoPath);
  std::error_code failed;
  const fs::path directory = fs::path(Absolute(orthoName)).parent_path();
  if (orthoName.empty() || !fs::is_directory(directory, failed)) {
    return text(message::kOutputUnwritable, orthoName.empty() ? orthoName : directory.string());
  }
  return text(message::kPhotoSeesNothing, photoPath);
}

}  // namespace

bool TellOfMissingOrthos(const std::vector<tqorkit::tqPhotoCategory>& blocks,
                         const std::string& orthoDir) {
  bool any = false;
  for (const auto& block : blocks) {
    for (const auto& photo : block.GetPhotos()) {
      if (HasArea(photo.GetGeoRect())) {
        any = true;
        continue;
      }
      LogMessage(CauseOf(block.GetPhotoPath() + "/" + photo.GetPhotoName(),
                         OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId())));
    }
  }
  if (!any) LogMessage(message::kNothingMade);
  return any;
}

}  // namespace tqtortho
