// SPDX-License-Identifier: Apache-2.0
#include "survey/number_text.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace tqtortho::host {
namespace {

// The largest double has 309 digits before the point.
constexpr std::size_t kLongest = 400;

template <class... Format>
std::string ToText(double value, Format... format) {
  char text[kLongest];
  const auto end = std::to_chars(text, text + kLongest, value, format...);
  return end.ec == std::errc() ? std::string(text, end.ptr) : std::string("nan");
}

template <class Number>
std::optional<Number> Read(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  Number value{};
  const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
  if (end.ec != std::errc() || end.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::string Fixed(double value, int digits) {
  return ToText(value, std::chars_format::fixed, digits);
}
std::string Scientific(double value, int digits) {
  return ToText(value, std::chars_format::scientific, digits);
}
std::string Readable(double value) {
  if (!(value >= 0 && value < 1e15)) return "very many";
  if (value < 100) return ToText(value, std::chars_format::general, 3);
  double unit = 1;
  while (value / unit >= 1000) unit *= 10;
  std::string digits = Fixed(std::round(value / unit) * unit, 0);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
  return digits;
}
std::string Cells(double count) {
  return count < 1e6 ? Readable(count) + " cells" : Readable(count / 1e6) + " million cells";
}
std::string Exact(double value) { return ToText(value); }

std::optional<double> ReadDouble(std::string_view text) { return Read<double>(text); }
std::optional<int> ReadInt(std::string_view text) { return Read<int>(text); }

}  // namespace tqtortho::host
