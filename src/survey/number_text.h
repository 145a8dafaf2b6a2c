// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tqtortho::host {

/// Numbers as text whatever the process's locale says: a decimal comma in a list would be read as
/// the end of the number.

/// With `digits` decimals, as "%.{digits}f".
[[nodiscard]] std::string Fixed(double value, int digits);
/// With `digits` decimals and an exponent, as "%.{digits}e".
[[nodiscard]] std::string Scientific(double value, int digits);
/// For people, three digits: "1,380" or "56" or "4.44", never with an exponent.
[[nodiscard]] std::string Readable(double value);
/// "17,400 cells", "12.6 million cells"
[[nodiscard]] std::string Cells(double count);
/// The shortest text that reads back as the same double.
[[nodiscard]] std::string Exact(double value);

/// The whole text as a number (a leading '+' is allowed), or nothing. Infinities and NaN are
/// numbers.
[[nodiscard]] std::optional<double> ReadDouble(std::string_view text);
[[nodiscard]] std::optional<int> ReadInt(std::string_view text);

}  // namespace tqtortho::host
