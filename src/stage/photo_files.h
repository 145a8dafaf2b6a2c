// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho {

/// Names of one photo's files. `outputDir` is a prefix and is joined as it is.
/// The ortho image: outputDir + drive + directory + file name + "_" + blockId + extension. Empty
/// when a part of the photo name exceeds the limits of PathHelper::SplitPath.
[[nodiscard]] std::string OrthoName(const std::string& outputDir, const std::string& photoName,
                                    int blockId);
/// "<ortho>_obs.tif", 255 = hidden from the photo.
[[nodiscard]] std::string ObscuredMaskName(const std::string& orthoName);
/// "<ortho>_wgt.tif"
[[nodiscard]] std::string WeightMaskName(const std::string& orthoName);
/// Ownership (valid) mask, and its copy with ".tif" appended.
[[nodiscard]] std::string OwnershipMaskName(const std::string& orthoName);
[[nodiscard]] std::string OwnershipMaskCopyName(const std::string& orthoName);
/// Georeference sidecars of the ortho image (eight lines) and of its obscured mask (six lines).
[[nodiscard]] std::string OrthoSidecarName(const std::string& orthoName);
[[nodiscard]] std::string ObscuredSidecarName(const std::string& orthoName);
/// Reduced copy, in the directory "rs" beside the output directory.
[[nodiscard]] std::string ReducedCopyName(const std::string& orthoName,
                                          const std::string& outputDir);

/// What the refinement of an occlusion mask against the border mask leaves beside it; the suffixes
/// follow the mask's whole name.
[[nodiscard]] std::string ReachMaskName(const std::string& maskName);    ///< "<mask>_dilate.tif"
[[nodiscard]] std::string FarBorderName(const std::string& maskName);    ///< "<mask>_border.tif"
[[nodiscard]] std::string RefinedMaskName(const std::string& maskName);  ///< "<mask>_refine.tif"

/// Job-wide files.
[[nodiscard]] std::string ParamFilePath();   ///< <program data>/ortho_data/orParam.txt
[[nodiscard]] std::string BorderMaskPath();  ///< <temporary output>/ot/bordermsk.tif
[[nodiscard]] std::string PixMapPath();      ///< <temporary output>/ot/pix_map.bin
[[nodiscard]] std::string TexturePath();     ///< <temporary output>/ot/textures.tif

}  // namespace tqtortho
