// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stage/file_stamp.h"
#include "stage/photo_records.h"

namespace tqtortho::host {

/// What a job remembers of its finished work, in WORK/state, so that a run that was stopped, killed
/// or cut off goes on where it was and makes anew only what changed.
///
/// A record holds a fingerprint of everything that its files were made from, and the files' sizes
/// and times; it is written when they are safe on the disk, and serves as long as both agree. Of a
/// photo's files those that later stages rewrite (the ortho image and its ownership masks) are kept
/// as rectified in WORK/state/originals, as hard links where the file system has them.
///
/// The photo part is safe to call from several threads.
class JobState : public PhotoRecords {
 public:
  /// @param orthoPrefix  of the ortho images' names
  /// @param paramFile    the job's parameter file, read when the first photo is asked for
  JobState(const std::string& workDir, std::string orthoPrefix, std::string paramFile);

  /// Forgets everything.
  void Clear();
  [[nodiscard]] bool HasPhotos() const;

  /// Fingerprint of what all photos were made from beside the parameter file: the surface.
  void SetBase(const std::string& fingerprint) { base_ = fingerprint; }
  bool IsFinished(const std::string& orthoName) override;
  void Finish(const std::string& orthoName) override;
  /// Photos that were found finished when they were first asked for.
  [[nodiscard]] int PhotosKept();
  /// Fingerprint of a finished photo; "none" for another.
  [[nodiscard]] std::string PhotoFingerprint(const std::string& orthoName);
  /// Puts the ortho image and its ownership masks back as they were rectified.
  /// @return false, with one line in `error`, when a file cannot be made
  [[nodiscard]] bool RestoreOriginals(const std::string& orthoName, std::string& error);
  /// Takes what the host has since done to the ortho image of a finished photo for its original.
  void KeepAsOriginal(const std::string& orthoName);
  /// Removes the files and records of photos that are not among `orthoNames`: photos that an
  /// earlier run had and the survey has no more.
  void RemoveOthers(const std::set<std::string>& orthoNames);

  /// What a finished stage said of itself; nothing when it was never finished, or from other
  /// inputs, or when one of its files changed. Nothing also forgets the stage.
  [[nodiscard]] std::optional<nlohmann::json> Stage(const std::string& name,
                                                    const std::string& fingerprint);
  /// Waits until the files are on the disk.
  void FinishStage(const std::string& name, const std::string& fingerprint,
                   const std::vector<std::string>& files, const nlohmann::json& said);

 private:
  struct Photo {
    std::string fingerprint;
    bool finished = false;
    bool looked = false;  ///< whether `finished` has been found out
  };
  void ReadPlan();
  Photo* Find(const std::string& orthoName);
  [[nodiscard]] std::string Relative(const std::string& orthoName) const;
  [[nodiscard]] std::string RecordPath(const std::string& orthoName) const;
  [[nodiscard]] std::string OriginalPath(const std::string& file) const;
  void Record(const std::string& orthoName, const std::string& fingerprint);
  [[nodiscard]] bool HoldsRecord(const std::string& orthoName, const std::string& fingerprint);
  void Forget(const std::string& orthoName);

  std::string dir_;
  std::string orthoPrefix_;
  std::string paramFile_;
  std::string base_;
  std::mutex mutex_;
  bool planRead_ = false;
  int kept_ = 0;
  std::map<std::string, Photo> photos_;  ///< by ortho name
};

}  // namespace tqtortho::host
