// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace tqtortho::host {

/// Writes bytes as base64 (RFC 4648, padded), in pieces: pictures are large.
void WriteBase64(std::ostream& out, std::string_view bytes);

/// JSON text (UTF-8) as it may stand inside a script element: no '<', '>' or '&', so that no name
/// of a file ends the element, and no U+2028 or U+2029. Means the same JSON.
[[nodiscard]] std::string JsonForScript(std::string_view json);

/// Text (UTF-8) as it may stand in HTML, in an element or a quoted attribute.
[[nodiscard]] std::string HtmlText(std::string_view text);

}  // namespace tqtortho::host
