// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

#include "core/limits.h"

namespace tqtortho::host {

/// Parses a JSON text that may come from a stranger. Discarded (is_discarded) when it is none, or
/// when its lists nest deeper than any file of ours and others': what walks a tree afterwards goes
/// down by recursion. `keep` is asked as nlohmann's own callback, and ends the parsing by throwing
/// EndOfParsing.
struct EndOfParsing {};
inline nlohmann::json ParseJson(std::string_view text,
                                const nlohmann::json::parser_callback_t& keep = nullptr) {
  using Json = nlohmann::json;
  const auto bounded = [&](int depth, Json::parse_event_t event, Json& parsed) {
    const bool opens =
        event == Json::parse_event_t::array_start || event == Json::parse_event_t::object_start;
    if (opens && depth >= limits::kJsonDepth) throw EndOfParsing{};
    return keep == nullptr || keep(depth, event, parsed);
  };
  try {
    return Json::parse(text.begin(), text.end(), bounded, false);
  } catch (const EndOfParsing&) {
    return Json(Json::value_t::discarded);
  }
}

}  // namespace tqtortho::host
