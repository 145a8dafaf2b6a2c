// SPDX-License-Identifier: Apache-2.0
#include "prepare/photo_staging.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

// Lists carry at most 255 bytes of a name; suffixes of the photo's outputs need room as well.
constexpr std::size_t kLongestName = 200;

bool IsSafeByte(char c) { return static_cast<unsigned char>(c) > ' ' && c != '\x7f' && c != '/'; }

bool IsSafe(const std::string& name) {
  return name.size() <= kLongestName && std::all_of(name.begin(), name.end(), IsSafeByte);
}

void MakeSafe(std::string& text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !IsSafeByte(c); }, '_');
}

// A safe name that none of `taken` has, its extension kept. Folders come first in it, so that a
// name too long for the list is cut in them.
std::string SafeName(const std::string& name, std::set<std::string>& taken) {
  const fs::path file = fs::path(name).lexically_normal();
  std::string stem, extension = file.extension().string();
  for (const fs::path& part : file.parent_path().relative_path()) {
    if (part != "." && part != "..") stem += part.string() + "_";
  }
  stem += file.stem().string();
  MakeSafe(stem);
  MakeSafe(extension);
  stem = stem.substr(stem.size() - std::min(stem.size(), kLongestName / 2));
  extension.resize(std::min(extension.size(), kLongestName / 4));
  std::string candidate = stem + extension;
  for (int number = 2; !taken.insert(candidate).second; ++number) {
    candidate = stem;
    candidate.append("_").append(std::to_string(number)).append(extension);
  }
  return candidate;
}

bool MakeLink(const fs::path& target, const fs::path& link, std::string& error) {
  std::error_code failed;
  const fs::path existing = fs::read_symlink(link, failed);
  if (!failed && existing == target) return true;
  // Only links are replaced: whatever else has this name is not ours to remove.
  if (!failed) fs::remove(link, failed);
  fs::create_symlink(target, link, failed);
  if (!failed) return true;
  error = link.string() + ": cannot be made a link to \"" + target.string() +
          "\": " + failed.message() + "; rename the photo without blanks and folders instead";
  return false;
}

bool StageBlock(SurveyBlock& block, const fs::path& dir, std::string& error) {
  std::error_code failed;
  fs::create_directories(dir, failed);
  if (failed) {
    error = dir.string() + ": cannot be created: " + failed.message() +
            "; choose another working directory";
    return false;
  }
  // Safe names come first, so that they keep their names whatever the others turn into.
  std::set<std::string> taken;
  for (const SurveyPhoto& photo : block.photos) {
    if (IsSafe(photo.name)) taken.insert(photo.name);
  }
  for (SurveyPhoto& photo : block.photos) {
    const fs::path target = fs::absolute(fs::path(block.path) / photo.name).lexically_normal();
    const std::string name = IsSafe(photo.name) ? photo.name : SafeName(photo.name, taken);
    if (!MakeLink(target, dir / name, error)) return false;
    photo.name = name;
  }
  block.path = dir.string();
  return true;
}

}  // namespace

bool StagePhotos(Survey& survey, const std::string& dir, std::string& error) {
  std::vector<SurveyBlock> staged = survey.blocks;
  for (std::size_t i = 0; i < staged.size(); ++i) {
    SurveyBlock& block = staged[i];
    if (std::all_of(block.photos.begin(), block.photos.end(),
                    [](const SurveyPhoto& photo) { return IsSafe(photo.name); })) {
      continue;
    }
    const fs::path blockDir = fs::absolute(fs::path(dir) / ("photos" + std::to_string(i + 1)));
    if (!StageBlock(block, blockDir.lexically_normal(), error)) return false;
  }
  survey.blocks = std::move(staged);
  return true;
}

}  // namespace tqtortho::host
