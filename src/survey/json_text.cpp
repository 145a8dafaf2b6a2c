// SPDX-License-Identifier: Apache-2.0
#include "survey/json_text.h"

#include "core/limits.h"

namespace tqtortho::host {
namespace {

using Json = nlohmann::json;

/// Hands events on to the builder of the tree, without members that are skipped.
class BoundedBuilder {
 public:
  BoundedBuilder(Json& root, const JsonFilter& filter) : tree_(root, false), filter_(filter) {}

  bool null() {
    return Scalar([&] { return tree_.null(); });
  }
  bool boolean(bool v) {
    return Scalar([&] { return tree_.boolean(v); });
  }
  bool number_integer(Json::number_integer_t v) {
    return Scalar([&] { return tree_.number_integer(v); });
  }
  bool number_unsigned(Json::number_unsigned_t v) {
    return Scalar([&] { return tree_.number_unsigned(v); });
  }
  bool number_float(Json::number_float_t v, const std::string& text) {
    return Scalar([&] { return tree_.number_float(v, text); });
  }
  bool string(std::string& v) {
    return Scalar([&] { return tree_.string(v); });
  }
  bool binary(Json::binary_t& v) {
    return Scalar([&] { return tree_.binary(v); });
  }
  bool start_object(std::size_t size) {
    return Open([&] { return tree_.start_object(size); });
  }
  bool start_array(std::size_t size) {
    return Open([&] { return tree_.start_array(size); });
  }
  bool end_object() {
    return Close([&] { return tree_.end_object(); });
  }
  bool end_array() {
    return Close([&] { return tree_.end_array(); });
  }
  bool key(std::string& name) {
    if (skipFrom_ >= 0) return true;
    const JsonMember member = filter_ ? filter_(depth_, name) : JsonMember::kTake;
    if (member == JsonMember::kEnd) return false;
    if (member == JsonMember::kTake) return tree_.key(name);
    skipFrom_ = depth_;
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
    return false;
  }

 private:
  template <class Forward>
  bool Scalar(const Forward& forward) {
    if (skipFrom_ < 0) return forward();
    EndSkip();
    return true;
  }
  template <class Forward>
  bool Open(const Forward& forward) {
    if (++depth_ > limits::kJsonDepth) return false;
    return skipFrom_ >= 0 || forward();
  }
  template <class Forward>
  bool Close(const Forward& forward) {
    --depth_;
    if (skipFrom_ < 0) return forward();
    EndSkip();
    return true;
  }
  /// A value has ended: the skipped one when it stands where its name stood.
  void EndSkip() {
    if (depth_ == skipFrom_) skipFrom_ = -1;
  }

  nlohmann::detail::json_sax_dom_parser<Json> tree_;
  const JsonFilter& filter_;
  int depth_ = 0;
  int skipFrom_ = -1;  ///< depth of the member that is skipped, -1: none
};

}  // namespace

Json ParseJson(std::string_view text, const JsonFilter& filter) {
  Json root;
  BoundedBuilder builder(root, filter);
  if (Json::sax_parse(text.begin(), text.end(), &builder)) return root;
  return Json(Json::value_t::discarded);
}

}  // namespace tqtortho::host
