// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tqtortho {

/// The library's own texts, UTF-8 here, GBK once they leave (log, callback, standard output).
namespace message {
/// "abnormal scale, processing stopped"
inline constexpr std::string_view kScaleAbnormal = "缩放比例异常，程序终止！";
/// "error updating the parameter file"
inline constexpr std::string_view kParamFileError = "更新参数文件出错!";
/// "error computing the valid image area"
inline constexpr std::string_view kExtentError = "计算影像有效区域出错!";
/// "error in image rectification"
inline constexpr std::string_view kRectifyError = "影像纠正处理出错!";
/// "rectification in progress"
inline constexpr std::string_view kRectifying = "正射纠正处理中...";
/// "extracting the ortho image extent"
inline constexpr std::string_view kEstimating = "提取正射影像范围...";
/// "image size estimation abnormal: "
inline constexpr std::string_view kEstimateAbnormal = "影像尺寸估计异常：";
/// "image size abnormal: "
inline constexpr std::string_view kImageSizeAbnormal = "影像尺寸异常：";
/// "detecting shadows"
inline constexpr std::string_view kObscuring = "正在检测阴影...";
/// "generating weight masks"
inline constexpr std::string_view kWeighting = "正在生成权值模板.....";
/// "making mosaic masks"
inline constexpr std::string_view kMosaicking = "正在生成镶嵌模板...";
/// "making the fill texture"
inline constexpr std::string_view kTexturing = "正在生成填充纹理...";
/// "updating ortho images"
inline constexpr std::string_view kUpdating = "正在更新正射影像.....";
/// "error opening pix_map.bin"
inline constexpr std::string_view kPixMapError = "打开pix_map.bin文件出错！";
/// "cannot open textures.tif: "
inline constexpr std::string_view kTextureError = "打开textures.tif文件出错：";
/// "no ortho image could be read, the first: "
inline constexpr std::string_view kNoOrthoReadable = "没有可读取的正射影像，首个：";
/// "no photo has an ortho image; nothing was made"
inline constexpr std::string_view kNothingMade = "没有任何像片生成正射影像！";
/// "without ortho image, cannot read the photo: "
inline constexpr std::string_view kPhotoUnreadable = "未生成正射影像，无法读取像片：";
/// "without ortho image, samples are not 8 bits wide: "
inline constexpr std::string_view kPhotoNotBytes = "未生成正射影像，像片不是8位影像：";
/// "without ortho image, the output directory cannot be written to: "
inline constexpr std::string_view kOutputUnwritable = "未生成正射影像，无法写入输出目录：";
/// "without ortho image, sees nothing of the DSM or has no camera: "
inline constexpr std::string_view kPhotoSeesNothing = "未生成正射影像，看不到DSM或没有相机参数：";
/// What the estimation fails for, after kEstimateAbnormal: "no photo in the photo list, or the list
/// cannot be read", "cannot read the DSM ", "no usable georeference or cell size: ", "no photo has
/// ground on the DSM, or a known camera: "
inline constexpr std::string_view kNoPhotos = "像片列表为空或无法读取";
inline constexpr std::string_view kDsmUnreadable = "无法读取DSM ";
inline constexpr std::string_view kDsmUnplaced = "DSM的地理参考或像元大小不可用 ";
inline constexpr std::string_view kNoFootprint = "没有像片覆盖DSM或相机参数未知 ";
/// Debug lines of the update, with their line ends.
inline constexpr std::string_view kSizeError = "size error！\n";
inline constexpr std::string_view kMapReadError = "readed error!\n";
/// "rectification time (s): ", "image update time (s): ", "mosaic mask time (s): "
inline constexpr std::string_view kRectifySeconds = "正射纠正时间(s)：";
inline constexpr std::string_view kUpdateSeconds = "影像更新时间(s)：";
inline constexpr std::string_view kMosaicSeconds = "镶嵌模板时间(s)：";
}  // namespace message

/// A text as it leaves the library.
[[nodiscard]] std::string ToGbk(std::string_view utf8);
/// Sends a UTF-8 text to the log.
void LogMessage(std::string_view utf8);
/// Prints a UTF-8 text to standard output, as GBK; the few debug lines that hosts rely on.
void PrintMessage(std::string_view utf8);

}  // namespace tqtortho
