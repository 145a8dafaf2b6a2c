// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace geo {

/// Whether a picture file ends before its picture does, as after a copy that broke off: a JPEG
/// without its end mark behind the coded lines, a PNG without its last chunk, a TIFF with strips or
/// tiles beyond its end. Reads a few kilobytes, never decodes. False for other formats and for
/// files that cannot be read: whoever decodes them will tell.
[[nodiscard]] bool EndsEarly(const std::string& path);

}  // namespace geo
