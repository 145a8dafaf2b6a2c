// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tqtortho::host {

/// What to do with a member of an object, asked before its value is read.
enum class JsonMember { kTake, kSkip, kEnd };
/// @param depth  lists and objects around the member: 1 for one of the outermost object
using JsonFilter = std::function<JsonMember(int depth, const std::string& key)>;

/// Parses a JSON text that may come from a stranger. Discarded (is_discarded) when it is none, when
/// `filter` ends it, or when it nests deeper than limits::kJsonDepth: what walks a tree goes down
/// by recursion. In time linear in the text: nlohmann's own parser with a callback looks through
/// all earlier members of an object whenever one ends, minutes for a hundred thousand photos.
[[nodiscard]] nlohmann::json ParseJson(std::string_view text, const JsonFilter& filter = nullptr);

}  // namespace tqtortho::host
