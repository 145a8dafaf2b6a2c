// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tqtortho::host {

/// The text without blanks and tabs at its ends.
[[nodiscard]] std::string_view Trimmed(std::string_view text);

/// The text with A to Z in small letters.
[[nodiscard]] std::string Lower(std::string_view text);

/// The text with control characters made blanks, so that a message that quotes it stays a line.
[[nodiscard]] std::string OneLine(std::string text);

/// Splits a line at a separator outside quotes. Either quote may open a field and is doubled
/// inside it; a blank as separator stands for a run of blanks and tabs.
/// @return false when a quote stays open or a field goes on after it.
[[nodiscard]] bool SplitFields(std::string_view line, char separator,
                               std::vector<std::string>& out);

/// The separator of a table's header: semicolon, tab or comma, whichever of them (in this order)
/// stands outside quotes, else a blank.
[[nodiscard]] char SeparatorOf(std::string_view header);

/// Takes the lines off a text: ends of all three kinds, a byte order mark dropped.
class TextLines {
 public:
  explicit TextLines(std::string_view text);
  /// False at the end of the text.
  bool Next(std::string_view& line);
  /// Of the line last taken, from 1.
  [[nodiscard]] int Number() const { return number_; }

 private:
  std::string_view rest_;
  int number_ = 0;
};

}  // namespace tqtortho::host
