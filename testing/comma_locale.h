// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <clocale>
#include <cstdlib>
#include <string>

#include "testing/temp_dir.h"

namespace tqtortho::testing {

/// Gives the whole process a locale with a decimal comma, until destruction: an installed German
/// one, else one compiled on the spot. Check Active(): a machine may have neither.
class CommaLocale {
 public:
  CommaLocale() : before_(std::setlocale(LC_ALL, nullptr)) {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"}) {
      if (std::setlocale(LC_ALL, name) != nullptr) return;
    }
    const std::string compile =
        "localedef -i de_DE -f UTF-8 '" + dir_.File("de_DE.UTF-8") + "' > /dev/null 2>&1";
    if (std::system(compile.c_str()) != 0) return;
    ::setenv("LOCPATH", dir_.Path().c_str(), 1);
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    ::unsetenv("LOCPATH");
  }
  ~CommaLocale() { std::setlocale(LC_ALL, before_.c_str()); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  [[nodiscard]] static bool Active() { return *std::localeconv()->decimal_point == ','; }

 private:
  TempDir dir_;
  std::string before_;
};

}  // namespace tqtortho::testing
