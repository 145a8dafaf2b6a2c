// SPDX-License-Identifier: Apache-2.0
#include "stage/photo_files.h"

#include "tqfd/PathHelper.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho {

using tqorkit::TqFSManager;

std::string OrthoName(const std::string& outputDir, const std::string& photoName, int blockId) {
  tqfd::PathParts parts;
  if (!tqfd::PathHelper::SplitPath(photoName, parts)) return {};
  return outputDir + parts.drive + parts.directory + parts.fileName + "_" +
         std::to_string(blockId) + parts.extension;
}

std::string ObscuredMaskName(const std::string& orthoName) {
  return TqFSManager::ModifyExtName(orthoName, TqFSManager::kObscuredMask);
}

std::string WeightMaskName(const std::string& orthoName) { return orthoName + "_wgt.tif"; }

std::string OwnershipMaskName(const std::string& orthoName) {
  return TqFSManager::ModifyExtName(orthoName, TqFSManager::kOwnershipMask);
}

std::string OwnershipMaskCopyName(const std::string& orthoName) {
  return OwnershipMaskName(orthoName) + ".tif";
}

std::string OrthoSidecarName(const std::string& orthoName) {
  return TqFSManager::ModifyExtName(orthoName, TqFSManager::kOrthoSidecar);
}

std::string ObscuredSidecarName(const std::string& orthoName) {
  return TqFSManager::ModifyExtName(orthoName, TqFSManager::kObscuredSidecar);
}

std::string ReducedCopyName(const std::string& orthoName, const std::string& outputDir) {
  return TqFSManager::ChangeFileDirectory(orthoName, outputDir, "/rs/", TqFSManager::kReducedCopy);
}

std::string ReachMaskName(const std::string& maskName) { return maskName + "_dilate.tif"; }

std::string FarBorderName(const std::string& maskName) { return maskName + "_border.tif"; }

std::string RefinedMaskName(const std::string& maskName) { return maskName + "_refine.tif"; }

std::string ParamFilePath() {
  return tqfd::PathHelper::GetProgramDataDirectory() + "/ortho_data/orParam.txt";
}

std::string BorderMaskPath() { return TqFSManager::GetOutputTmpFilePath() + "/ot/bordermsk.tif"; }

std::string PixMapPath() { return TqFSManager::GetOutputTmpFilePath() + "/ot/pix_map.bin"; }

std::string TexturePath() { return TqFSManager::GetOutputTmpFilePath() + "/ot/textures.tif"; }

}  // namespace tqtortho
