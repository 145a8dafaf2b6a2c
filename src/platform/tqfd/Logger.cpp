// SPDX-License-Identifier: Apache-2.0
#include "tqfd/Logger.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <memory>
#include <mutex>

#include "tqfd/PathHelper.h"
#include "tqfd/StringConverter.h"

namespace tqfd {
namespace {

/// The process's log: one sink under one lock. The file follows the program-data directory, which a
/// host may set after the first text.
struct Log {
  std::mutex mutex;
  std::function<void(std::string_view)> sink;
  std::string path;
  std::unique_ptr<spdlog::sinks::basic_file_sink_st> file;
  bool fileHasTime = false;

  void WriteToFile(const std::string& text, bool withTime, bool flush) {
    const std::string wanted = PathHelper::GetProgramDataDirectory() + "/log/tqtortho.log";
    if (!file || path != wanted) {
      file.reset();
      file = std::make_unique<spdlog::sinks::basic_file_sink_st>(wanted);
      path = wanted;
      SetTime(withTime);
    }
    if (fileHasTime != withTime) SetTime(withTime);
    file->log(spdlog::details::log_msg({}, spdlog::level::info, text));
    if (flush) file->flush();
  }

  void SetTime(bool withTime) {
    file->set_pattern(withTime ? "[%Y-%m-%d %H:%M:%S.%e] %v" : "%v");
    fileHasTime = withTime;
  }
};

Log& TheLog() {
  // Never destroyed: texts may still come from threads and destructors that outlive main.
  static Log* const log = new Log;
  return *log;
}

}  // namespace

void Logger::Save(const std::string& gbkText, bool withTime, bool flush) {
  // A log that cannot be written must never fail a job, so every error ends here.
  try {
    Log& log = TheLog();
    const std::lock_guard lock(log.mutex);
    if (log.sink) {
      log.sink(gbkText);
    } else {
      log.WriteToFile(StringConverter::GbkToUtf8(gbkText), withTime, flush);
    }
  } catch (...) {
  }
}

void Logger::SetSink(std::function<void(std::string_view gbkText)> sink) {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  log.sink = std::move(sink);
}

}  // namespace tqfd
