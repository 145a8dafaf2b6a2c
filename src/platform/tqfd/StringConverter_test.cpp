// SPDX-License-Identifier: Apache-2.0
#include "tqfd/StringConverter.h"

#include <gtest/gtest.h>

namespace tqfd {
namespace {

TEST(StringConverterTest, TextsTakeTheirBytesFromTheGbkTable) {
  struct Case {
    std::string utf8;
    std::string gbk;
  };
  const Case cases[] = {
      {"", ""},
      {"plain 123", "plain 123"},
      {"正射", "\xD5\xFD\xC9\xE4"},
      {"！：", "\xA3\xA1\xA3\xBA"},
      {"镕", "\xE9\x46"},  // outside the older GB2312 table; its second byte is a letter
  };
  for (const Case& c : cases) {
    EXPECT_EQ(StringConverter::Utf8ToGbk(c.utf8), c.gbk) << c.utf8;
    EXPECT_EQ(StringConverter::GbkToUtf8(c.gbk), c.utf8) << c.utf8;
  }
}

TEST(StringConverterTest, WhatATableLacksIsReplacedAndTheRestSurvives) {
  EXPECT_EQ(StringConverter::Utf8ToGbk("a\xF0\x9F\x9A\x81z"), "a?z");  // a helicopter
  EXPECT_EQ(StringConverter::Utf8ToGbk("a\xFFz"), "a?z");              // never in UTF-8
  EXPECT_EQ(StringConverter::Utf8ToGbk("a\xE6\xAD"), "a??");           // cut short
  EXPECT_EQ(StringConverter::GbkToUtf8("a\xFF\xFFz"), "a\uFFFD\uFFFDz");
  EXPECT_EQ(StringConverter::GbkToUtf8("a\xD5"), "a\uFFFD");
  EXPECT_EQ(StringConverter::Convert(std::string_view("a\xC0z")), L"a\xFFFDz");
  const wchar_t surrogate[] = {L'a', static_cast<wchar_t>(0xD800), L'z'};
  EXPECT_EQ(StringConverter::Convert(std::wstring_view(surrogate, 3)), "a\uFFFDz");
}

TEST(StringConverterTest, WideTextsGoThereAndBackAtAnyLength) {
  std::string text;
  // Longer than the conversion's buffer, with characters of one to four bytes across its end.
  while (text.size() < 10000) text += "a\u00E9\u6B63\U0001F681";
  const std::wstring wide = StringConverter::Convert(text);
  EXPECT_EQ(wide.size() * 10, text.size() * 4);
  EXPECT_EQ(StringConverter::Convert(wide), text);
}

}  // namespace
}  // namespace tqfd
