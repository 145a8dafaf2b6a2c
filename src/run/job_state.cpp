// SPDX-License-Identifier: Apache-2.0
#include "run/job_state.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/fingerprint.h"
#include "core/limits.h"
#include "core/stop_flag.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "pipeline/param_file.h"
#include "stage/job_faults.h"
#include "stage/ortho_names.h"
#include "stage/photo_files.h"
#include "survey/json_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr const char* kRecordEnd = ".json";
constexpr const char* kNoFingerprint = "none";

Json ReadRecord(const std::string& path) {
  std::string text, ignored;
  if (!tqfd::ReadWholeFile(path, limits::kSmallFileBytes, text, ignored)) return {};
  return ParseJson(text);
}

void WriteRecord(const std::string& path, const std::string& fingerprint,
                 const std::vector<std::string>& files, const Json& said) {
  Json stamps = Json::object();
  for (const auto& file : files) {
    stamps[file] = FileStamp(file);
  }
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  // Without its record the work is done once more, nothing worse.
  (void)WriteWholeFile(path,
                       Json{{"fingerprint", fingerprint}, {"files", stamps}, {"said", said}}.dump(
                           1, ' ', false, Json::error_handler_t::replace));
}

/// Whether a record speaks of these inputs, and its files are as it left them.
bool Agrees(const Json& record, const std::string& fingerprint) {
  if (!record.is_object() || !record.contains("files") || !record["files"].is_object() ||
      record.value("fingerprint", Json()) != Json(fingerprint)) {
    return false;
  }
  const Json& files = record["files"];
  for (auto it = files.begin(); it != files.end(); ++it) {
    const std::string now = FileStamp(it.key());
    if (now.empty() || it.value() != Json(now)) return false;
  }
  return true;
}

/// Files that later stages rewrite.
std::vector<std::string> Rewritten(const std::string& orthoName) {
  return {orthoName, OwnershipMaskName(orthoName), OwnershipMaskCopyName(orthoName)};
}

}  // namespace

JobState::JobState(const std::string& workDir, std::string orthoPrefix, std::string paramFile)
    : dir_(workDir + "/state"),
      orthoPrefix_(std::move(orthoPrefix)),
      paramFile_(std::move(paramFile)) {}

void JobState::Clear() {
  std::error_code ignored;
  fs::remove_all(dir_, ignored);
  const std::lock_guard lock(mutex_);
  photos_.clear();
  planRead_ = false;
}

bool JobState::HasPhotos() const {
  std::error_code failed;
  return fs::exists(dir_ + "/photos", failed) && !fs::is_empty(dir_ + "/photos", failed);
}

std::string JobState::Relative(const std::string& orthoName) const {
  return orthoName.substr(std::min(orthoName.size(), orthoPrefix_.size()));
}

std::string JobState::RecordPath(const std::string& orthoName) const {
  return dir_ + "/photos/" + Relative(orthoName) + kRecordEnd;
}

std::string JobState::OriginalPath(const std::string& file) const {
  return dir_ + "/originals/" + Relative(file);
}

// A work block is what a worker sees of the world: its photos, their camera and footprints. All of
// it may change each of its photos (the surface is cut for the block).
void JobState::ReadPlan() {
  planRead_ = true;
  std::ifstream file = tqfd::OpenInputFile(paramFile_, limits::kListBytes);
  std::ostringstream whole;
  whole << file.rdbuf();
  std::istringstream text(whole.str());
  ParamFileReader reader(text);
  ParamHeader header;
  if (!file || !reader.ReadHeader(header)) return;
  Fingerprint common;
  common.Add(base_);
  std::istringstream lines(whole.str());
  std::string line;
  for (int i = 0; i < 7 && std::getline(lines, line); ++i) common.Add(line);
  for (int number = 1; reader.FindBlock(number); ++number) {
    const std::streamoff from = text.tellg();
    ParamBlock block;
    reader.ReadBlock(block);
    text.clear();
    const std::streamoff to = text.tellg();
    if (from < 0 || to < from) break;
    Fingerprint ofBlock = common;
    ofBlock.Add(whole.str().substr(static_cast<std::size_t>(from),
                                   static_cast<std::size_t>(to) - static_cast<std::size_t>(from)));
    for (const auto& photo : block.photos) {
      const std::string name = OrthoName(header.outputDir, photo.photoName, photo.imageBlockId);
      Fingerprint own = ofBlock;
      own.Add(FileStamp(block.path + "/" + photo.photoName));
      // A photo of two work blocks belongs to the last that makes it; it is never taken for done.
      const bool twice = photos_.count(name) > 0;
      photos_[name] = {twice ? std::string() : own.Text(), false, twice};
    }
  }
}

JobState::Photo* JobState::Find(const std::string& orthoName) {
  if (!planRead_) ReadPlan();
  const auto it = photos_.find(orthoName);
  return it == photos_.end() ? nullptr : &it->second;
}

bool JobState::HoldsRecord(const std::string& orthoName, const std::string& fingerprint) {
  return Agrees(ReadRecord(RecordPath(orthoName)), fingerprint);
}

void JobState::Forget(const std::string& orthoName) {
  std::error_code ignored;
  fs::remove(RecordPath(orthoName), ignored);
  for (const auto& file : Rewritten(orthoName)) fs::remove(OriginalPath(file), ignored);
}

bool JobState::IsFinished(const std::string& orthoName) {
  const std::lock_guard lock(mutex_);
  Photo* const photo = Find(orthoName);
  if (photo == nullptr) return false;
  if (!photo->looked) {
    photo->looked = true;
    photo->finished = HoldsRecord(orthoName, photo->fingerprint);
    if (photo->finished) {
      ++kept_;
    } else {
      Forget(orthoName);
    }
  }
  return photo->finished;
}

void JobState::Finish(const std::string& orthoName) {
  if (MayLackSomething(orthoName)) return;  // such a photo is made again
  std::string fingerprint;
  {
    const std::lock_guard lock(mutex_);
    const Photo* const photo = Find(orthoName);
    if (photo == nullptr || photo->fingerprint.empty()) return;
    fingerprint = photo->fingerprint;
  }
  Record(orthoName, fingerprint);
}

void JobState::KeepAsOriginal(const std::string& orthoName) {
  const std::string fingerprint = PhotoFingerprint(orthoName);
  std::error_code failed;
  if (fingerprint == kNoFingerprint || fs::equivalent(orthoName, OriginalPath(orthoName), failed)) {
    return;
  }
  Record(orthoName, fingerprint);
}

void JobState::Record(const std::string& orthoName, const std::string& fingerprint) {
  if (processStop.Raised()) return;  // any step of it may have been given up
  std::vector<std::string> files = {ObscuredMaskName(orthoName), OrthoSidecarName(orthoName),
                                    ObscuredSidecarName(orthoName)};
  for (const auto& file : Rewritten(orthoName)) {
    if (!LinkOrCopyFile(file, OriginalPath(file))) return;
    files.push_back(OriginalPath(file));
  }
  for (const auto& file : files) {
    if (FileStamp(file).empty()) return;  // the photo is made once more next time
  }
  WriteRecord(RecordPath(orthoName), fingerprint, files, Json::object());
  const std::lock_guard lock(mutex_);
  if (Photo* const photo = Find(orthoName)) photo->finished = true;
}

int JobState::PhotosKept() {
  const std::lock_guard lock(mutex_);
  return kept_;
}

std::string JobState::PhotoFingerprint(const std::string& orthoName) {
  const std::lock_guard lock(mutex_);
  const Photo* const photo = Find(orthoName);
  return photo != nullptr && photo->finished ? photo->fingerprint : kNoFingerprint;
}

bool JobState::RestoreOriginals(const std::string& orthoName, std::string& error) {
  for (const auto& file : Rewritten(orthoName)) {
    const std::string original = OriginalPath(file);
    std::error_code failed;
    if (fs::equivalent(original, file, failed)) continue;
    if (LinkOrCopyFile(original, file)) continue;
    error = file + ": cannot be written; is the disk full?";
    return false;
  }
  return true;
}

void JobState::RemoveOthers(const std::set<std::string>& orthoNames) {
  std::error_code failed;
  std::vector<std::string> gone;
  const fs::path photos = dir_ + "/photos";
  for (fs::recursive_directory_iterator it(photos, failed), end; !failed && it != end;
       it.increment(failed)) {
    if (it->path().extension() != kRecordEnd) continue;
    const std::string name = fs::relative(it->path(), photos, failed).replace_extension().string();
    if (orthoNames.count(orthoPrefix_ + name) == 0) gone.push_back(orthoPrefix_ + name);
  }
  for (const auto& name : gone) {
    for (const auto& file : {ObscuredMaskName(name), WeightMaskName(name), OrthoSidecarName(name),
                             ObscuredSidecarName(name), ReducedCopyName(name, orthoPrefix_)}) {
      fs::remove(file, failed);
    }
    for (const auto& file : Rewritten(name)) fs::remove(file, failed);
    for (const auto& file : NamesOfOrtho(name)) fs::remove(file, failed);
    Forget(name);
  }
}

std::optional<Json> JobState::Stage(const std::string& name, const std::string& fingerprint) {
  const std::string path = dir_ + "/" + name + kRecordEnd;
  const Json record = ReadRecord(path);
  if (Agrees(record, fingerprint)) return record.value("said", Json::object());
  std::error_code ignored;
  fs::remove(path, ignored);
  return std::nullopt;
}

void JobState::FinishStage(const std::string& name, const std::string& fingerprint,
                           const std::vector<std::string>& files, const Json& said) {
  if (processStop.Raised()) return;  // any step of it may have been given up
  WriteRecord(dir_ + "/" + name + kRecordEnd, fingerprint, files, said);
}

}  // namespace tqtortho::host
