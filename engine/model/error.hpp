#pragma once

#include <stdexcept>
#include <string>

namespace kolva {

// The one exception family of the engine. The binding layer maps each kind to
// a Python exception type; the core never needs to know which.
enum class ErrorKind {
  kSemantic,        // a model error, raised to the user as SemanticError
  kKey,             // a mandatory key is missing from a node or map
  kNotImplemented,  // an expression kind that the generator does not support
  kValue,           // a bad argument value
  kType,            // a value of the wrong type for an operation
  kOverflow,        // an integer outside the 64-bit range
  kIndex,           // a list position out of range
  kRecursion,       // input nested deeper than the engine accepts
  kAttribute,       // generator state that does not exist yet
};

class Error : public std::runtime_error {
 public:
  Error(ErrorKind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
  ErrorKind kind() const { return kind_; }

  // Where in the model source the failing element was written, when the
  // tree came from a front end that records it ("FILE:LINE:COL"), and the
  // constraint's label. The innermost element that knows its place sets it.
  const std::string& origin() const { return origin_; }
  const std::string& origin_label() const { return origin_label_; }
  void set_origin(const std::string& origin, const std::string& label) {
    if (!origin_.empty()) return;
    origin_ = origin;
    origin_label_ = label;
  }

 private:
  ErrorKind kind_;
  std::string origin_;
  std::string origin_label_;
};

// Records on an error passing through a model element where that element
// was written, if the element carries its source place.
template <typename MapLike>
void note_origin(Error& e, const MapLike& element) {
  const auto* src = element.find("opl_source");
  if (src == nullptr || !src->is_str()) return;
  const auto* label = element.find("opl_label");
  e.set_origin(src->as_str(), label != nullptr && label->is_str() ? label->as_str() : std::string());
}

[[noreturn]] inline void raise(ErrorKind kind, const std::string& message) { throw Error(kind, message); }

[[noreturn]] inline void raise_semantic(const std::string& message) {
  throw Error(ErrorKind::kSemantic, message);
}

}  // namespace kolva
