// SPDX-License-Identifier: Apache-2.0
#include "tqfd/StringConverter.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace tqfd {
namespace {

/// Bytes of the UTF-8 character at the front of `text`, 1 when it is none. Shape only: iconv has
/// already rejected or refused it, this merely says how far to step.
std::size_t Utf8Step(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 1;
  if (length > text.size()) return 1;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 1;
  }
  return length;
}

std::size_t OneByte(std::string_view) { return 1; }
std::size_t OneWide(std::string_view) { return sizeof(wchar_t); }

/// Converts `input`; what the target lacks, or what is no text in the source encoding, becomes
/// `replacement` (bytes of the target encoding), one per `step` of the input.
std::string Recode(const char* to, const char* from, std::string_view input,
                   std::string_view replacement, std::size_t (*step)(std::string_view)) {
  std::string output;
  iconv_t handle = ::iconv_open(to, from);
  // iconv does not write to its input; its interface is older than const.
  char* in = const_cast<char*>(input.data());
  std::size_t left = input.size();
  // -1 comes from a system without its conversion tables.
  if (reinterpret_cast<std::intptr_t>(handle) == -1) return output;

  std::array<char, 4096> buffer;
  while (left > 0) {
    char* out = buffer.data();
    std::size_t room = buffer.size();
    const std::size_t result = ::iconv(handle, &in, &left, &out, &room);
    const int reason = errno;
    output.append(buffer.data(), buffer.size() - room);
    if (result != static_cast<std::size_t>(-1) || reason == E2BIG) continue;
    output.append(replacement);
    const std::size_t skip = std::min(left, step({in, left}));
    in += skip;
    left -= skip;
    ::iconv(handle, nullptr, nullptr, nullptr, nullptr);
  }
  ::iconv_close(handle);
  return output;
}

constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";  // U+FFFD

}  // namespace

std::wstring StringConverter::Convert(std::string_view utf8) {
  const wchar_t replacement = 0xFFFD;
  const std::string bytes =
      Recode("WCHAR_T", "UTF-8", utf8,
             {reinterpret_cast<const char*>(&replacement), sizeof(replacement)}, Utf8Step);
  std::wstring wide(bytes.size() / sizeof(wchar_t), L'\0');
  bytes.copy(reinterpret_cast<char*>(wide.data()), wide.size() * sizeof(wchar_t));
  return wide;
}

std::string StringConverter::Convert(std::wstring_view wide) {
  return Recode("UTF-8", "WCHAR_T",
                {reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t)},
                kReplacementUtf8, OneWide);
}

std::string StringConverter::Utf8ToGbk(std::string_view utf8) {
  return Recode("GBK", "UTF-8", utf8, "?", Utf8Step);
}

std::string StringConverter::GbkToUtf8(std::string_view gbk) {
  return Recode("UTF-8", "GBK", gbk, kReplacementUtf8, OneByte);
}

}  // namespace tqfd
