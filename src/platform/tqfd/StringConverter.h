// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "tqfd/Export.h"

namespace tqfd {

/// Text encodings at the library's boundary: UTF-8 inside, GBK (code page 936) outside.
class TQTORTHO_API StringConverter {
 public:
  /// UTF-8 to wide characters; bytes that are not UTF-8 become U+FFFD.
  static std::wstring Convert(std::string_view utf8);
  /// Wide characters to UTF-8.
  static std::string Convert(std::wstring_view wide);
  /// UTF-8 to GBK; characters that GBK lacks become '?'.
  static std::string Utf8ToGbk(std::string_view utf8);
  /// GBK to UTF-8; bytes that are not GBK become U+FFFD.
  static std::string GbkToUtf8(std::string_view gbk);
};

}  // namespace tqfd
