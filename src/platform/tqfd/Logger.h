// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tqfd/Export.h"

namespace tqfd {

/// The log of errors and timings. Texts arrive in GBK; the default log file
/// (log/tqtortho.log in the program-data directory) is UTF-8. Never throws; thread-safe.
class TQTORTHO_API Logger {
 public:
  /// Saves one text (GBK). `withTime` puts date and time in front of it, `flush` forces it to disk
  /// at once.
  static void Save(const std::string& gbkText, bool withTime, bool flush);
  /// Sends all texts to `sink` (GBK, without time) instead of the log file; an empty function
  /// restores the file. The sink is called under a lock, one text at a time.
  static void SetSink(std::function<void(std::string_view gbkText)> sink);
};

}  // namespace tqfd
