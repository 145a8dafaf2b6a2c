// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqimage {

/// Surrounds calls of GDAL: registers its drivers once, keeps its messages off standard error and
/// remembers what went wrong. Nothing of the host process changes beyond the scope: the error
/// handler is the calling thread's own. Scopes nest; one lives and dies on one thread.
class GdalScope {
 public:
  GdalScope();
  ~GdalScope();
  GdalScope(const GdalScope&) = delete;
  GdalScope& operator=(const GdalScope&) = delete;

  /// True when GDAL reported an error in this scope, or a warning that means lost pixels: decoders
  /// of JPEG and TIFF only warn when a file ends early.
  [[nodiscard]] bool Failed() const { return failed_; }
  /// First line of the first such message, or empty.
  [[nodiscard]] const std::string& Message() const { return message_; }
  /// Forgets what was reported so far.
  void Forget();

  /// Called by GDAL's error hook.
  void Note(bool error, const char* text);

 private:
  bool failed_ = false;
  std::string message_;
};

/// Sets a GDAL option for the calling thread and puts the earlier value back at the end.
class ThreadOption {
 public:
  ThreadOption(const char* key, const char* value);
  ~ThreadOption();
  ThreadOption(const ThreadOption&) = delete;
  ThreadOption& operator=(const ThreadOption&) = delete;

 private:
  const char* key_;
  bool hadValue_;
  std::string earlier_;
};

}  // namespace tqimage
