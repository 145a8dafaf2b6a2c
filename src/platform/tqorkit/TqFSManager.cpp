// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/TqFSManager.h"

#include <mutex>

#include "internal/interleaved_writer.h"
#include "internal/staged_path.h"
#include "internal/state_directory.h"

namespace tqorkit {
namespace {

enum class Placing { kReplace, kAppend, kKeep };

struct ExtensionRule {
  int type;
  Placing placing;
  const char* text;
};

// Every suffix of a photo's files. All are distinct, and none is a name that other programs take
// for a world file: the sidecars hold corners of their own convention.
constexpr ExtensionRule kExtensionRules[] = {
    {TqFSManager::kOwnershipMask, Placing::kReplace, ".msk"},
    {TqFSManager::kReducedCopy, Placing::kReplace, ".tif"},
    {TqFSManager::kOrthoSidecar, Placing::kReplace, ".georef"},
    {TqFSManager::kOrtho, Placing::kKeep, ""},
    {TqFSManager::kObscuredSidecar, Placing::kReplace, ".obsref"},
    {TqFSManager::kObscuredMask, Placing::kAppend, "_obs.tif"},
};

std::mutex tmpDirectoryMutex;
std::string tmpDirectory;  // guarded by tmpDirectoryMutex; empty = the default order

/// Directory beside `directory`, as a prefix that ends in a separator or is empty.
std::string ParentPrefix(const std::string& directory) {
  const std::string plain = tqtortho::WithoutTrailingSeparators(directory);
  const std::size_t start = tqtortho::FileNameStart(plain);
  const std::string last = plain.substr(start);
  // The parent of these cannot be had by cutting text.
  if (last == "." || last == "..") return plain + "/../";
  return plain.substr(0, start);
}

}  // namespace

std::string TqFSManager::ModifyExtName(const std::string& name, int type) {
  for (const ExtensionRule& rule : kExtensionRules) {
    if (rule.type != type) continue;
    if (rule.placing == Placing::kKeep) return name;
    const std::size_t end =
        rule.placing == Placing::kAppend ? name.size() : tqtortho::ExtensionStart(name);
    return name.substr(0, end) + rule.text;
  }
  return name;
}

void TqFSManager::ModifyExtAndName(const std::string& name, const std::string& text,
                                   std::string& out, int type) {
  std::string inserted = text;
  if (!inserted.empty() && inserted.back() == '_') inserted.pop_back();
  const std::size_t dot = tqtortho::ExtensionStart(name);
  const std::string joined = inserted.empty() ? std::string() : "_" + inserted;
  out = ModifyExtName(name.substr(0, dot) + joined + name.substr(dot), type);
}

std::string TqFSManager::ChangeFileDirectory(const std::string& path, const std::string& outputDir,
                                             const std::string& directory, int type) {
  std::string prefix = ParentPrefix(outputDir);
  std::string folder = directory;
  // "/rs/" is meant below the parent, never below the root of the file system.
  while (!folder.empty() && (folder.front() == '/' || folder.front() == '\\')) folder.erase(0, 1);
  if (!folder.empty() && folder.back() != '/' && folder.back() != '\\') folder += '/';
  return prefix + folder + ModifyExtName(path.substr(tqtortho::FileNameStart(path)), type);
}

bool TqFSManager::SaveImageFile(const std::uint8_t* data, int width, int height, int bands,
                                const std::string& path, bool overwrite,
                                const tqimage::GeoCoefficients* coefficients) {
  tqimage::InterleavedRaster raster;
  raster.data = data;
  raster.width = width;
  raster.height = height;
  raster.bands = bands;
  return tqimage::WriteInterleaved(path, raster, coefficients, overwrite);
}

std::string TqFSManager::GetOutputTmpFilePath() {
  {
    const std::lock_guard lock(tmpDirectoryMutex);
    if (!tmpDirectory.empty()) return tmpDirectory;
  }
  return tqtortho::StateDirectory("TQTORTHO_TMP_DIR", "XDG_CACHE_HOME", ".cache");
}

void TqFSManager::SetOutputTmpFilePath(const std::string& directory) {
  const std::lock_guard lock(tmpDirectoryMutex);
  tmpDirectory = tqtortho::WithoutTrailingSeparators(directory);
}

}  // namespace tqorkit
