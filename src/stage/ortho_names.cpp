// SPDX-License-Identifier: Apache-2.0
#include "stage/ortho_names.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

#include "internal/safe_file.h"
#include "internal/staged_path.h"

namespace tqtortho::host {

std::vector<std::string> NamesOfOrtho(const std::string& orthoName) {
  const std::size_t start = ExtensionStart(orthoName);
  std::string extension = orthoName.substr(start);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".tif" || extension == ".tiff") return {};
  return {orthoName.substr(0, start) + ".tif", orthoName + ".tif"};
}

bool NameOrthosForPeople(std::vector<std::string> orthoNames, std::vector<std::string>& names) {
  names = orthoNames;
  std::set<std::string> taken(orthoNames.begin(), orthoNames.end());
  for (std::string& name : names) {
    const std::string ortho = name;
    for (const std::string& other : NamesOfOrtho(ortho)) {
      if (!taken.insert(other).second) continue;
      std::error_code ignored;
      if (!std::filesystem::equivalent(ortho, other, ignored) && !LinkOrCopyFile(ortho, other)) {
        return false;
      }
      name = other;
      break;
    }
  }
  return true;
}

}  // namespace tqtortho::host
