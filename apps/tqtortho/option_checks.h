// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <string>

namespace tqtortho::app {

/// Numbers of a range, both ends included. A range check that asks for "below" and "above" lets NaN
/// pass; this one does not.
class Between : public CLI::Range {
 public:
  Between(double low, double high) : CLI::Range(low, high) {
    const auto inRange = func_;
    func_ = [inRange](std::string& input) {
      double value = 0;
      const bool isNumber = CLI::detail::lexical_cast(input, value);
      return isNumber && std::isnan(value) ? "Value " + input + " is not a number" : inRange(input);
    };
  }
};

/// A file or folder must have a name. Scripts whose variable is empty pass "".
class Named : public CLI::Validator {
 public:
  Named() : CLI::Validator("") {
    func_ = [](std::string& input) {
      return input.empty() ? std::string("is empty; name a file or folder") : std::string();
    };
  }
};

/// Whether two names stand for one file that is there.
[[nodiscard]] inline bool IsSameFile(const std::string& one, const std::string& other) {
  std::error_code notThere;
  return std::filesystem::equivalent(one, other, notThere);
}

}  // namespace tqtortho::app
