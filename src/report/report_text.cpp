// SPDX-License-Identifier: Apache-2.0
#include "report/report_text.h"

#include <algorithm>
#include <cstddef>

namespace tqtortho::host {

void WriteBase64(std::ostream& out, std::string_view bytes) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr std::size_t kPiece = 3 << 14;  // whole groups of three
  std::string text;
  for (std::size_t first = 0; first < bytes.size(); first += kPiece) {
    const std::string_view piece = bytes.substr(first, kPiece);
    text.clear();
    for (std::size_t i = 0; i < piece.size(); i += 3) {
      const std::size_t count = std::min<std::size_t>(piece.size() - i, 3);
      unsigned group = 0;
      for (std::size_t k = 0; k < 3; ++k) {
        group = group << 8 | (k < count ? static_cast<unsigned char>(piece[i + k]) : 0U);
      }
      for (std::size_t k = 0; k < 4; ++k) {
        text += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
      }
    }
    out << text;
  }
}

std::string JsonForScript(std::string_view json) {
  std::string text;
  text.reserve(json.size());
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    // Outside strings JSON has none of these, so the escapes always stand in a string.
    if (c == '<') {
      text += "\\u003c";
    } else if (c == '>') {
      text += "\\u003e";
    } else if (c == '&') {
      text += "\\u0026";
    } else if (json.substr(i, 3) == "\xE2\x80\xA8" || json.substr(i, 3) == "\xE2\x80\xA9") {
      text += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      text += c;
    }
  }
  return text;
}

std::string HtmlText(std::string_view text) {
  std::string html;
  for (const char c : text) {
    switch (c) {
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '&':
        html += "&amp;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

}  // namespace tqtortho::host
