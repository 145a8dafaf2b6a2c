// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho::host {

/// A text for people elsewhere: absolute paths in it are cut to the last name, since directories
/// tell of users, customers and machines. "/home/eva/jobs/dsm.tif: has holes" becomes
/// "dsm.tif: has holes". Names with spaces are known by the directories that exist; addresses
/// (https://...) and relative paths stay.
[[nodiscard]] std::string WithShortPaths(const std::string& text);

}  // namespace tqtortho::host
