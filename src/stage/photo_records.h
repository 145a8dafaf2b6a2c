// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho {

/// What a host remembers of photos whose files are complete, so that a job that was stopped goes on
/// where it was. Called from the worker threads, several at once.
class PhotoRecords {
 public:
  virtual ~PhotoRecords() = default;
  /// True when every file of the photo is there and was made from the same inputs: the photo is
  /// left alone. False before it is made anew.
  virtual bool IsFinished(const std::string& orthoName) = 0;
  /// Every file of the photo has been written.
  virtual void Finish(const std::string& orthoName) = 0;
};

/// Installs the records for the whole process, null removes them; they must outlive the job.
/// Without records every photo is made. Not to be called while a job runs.
void SetPhotoRecords(PhotoRecords* records);
[[nodiscard]] PhotoRecords* InstalledPhotoRecords();

}  // namespace tqtortho
