// SPDX-License-Identifier: Apache-2.0
#include "stage/messages.h"

#include <iostream>

#include "tqfd/Logger.h"
#include "tqfd/StringConverter.h"

namespace tqtortho {

std::string ToGbk(std::string_view utf8) { return tqfd::StringConverter::Utf8ToGbk(utf8); }

void LogMessage(std::string_view utf8) { tqfd::Logger::Save(ToGbk(utf8), true, true); }

void PrintMessage(std::string_view utf8) {
  // One write per text, so that lines of several threads do not mix.
  const std::string gbk = ToGbk(utf8);
  std::cout.write(gbk.data(), static_cast<std::streamsize>(gbk.size())).flush();
}

}  // namespace tqtortho
