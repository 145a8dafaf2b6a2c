// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <locale.h>

namespace tqtortho {

/// Gives the calling thread the "C" locale for its lifetime, so that printf and scanf write and
/// read decimal points whatever the host application has set. Other threads keep theirs.
class CLocaleScope {
 public:
  CLocaleScope() : previous_(uselocale(Shared())) {}
  ~CLocaleScope() { uselocale(previous_); }
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  static locale_t Shared() {
    // Lives as long as the process. Should the system refuse, the thread keeps its locale.
    static const locale_t shared = newlocale(LC_ALL_MASK, "C", nullptr);
    return shared;
  }
  locale_t previous_;
};

}  // namespace tqtortho
