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

 private:
  ErrorKind kind_;
};

[[noreturn]] inline void raise(ErrorKind kind, const std::string& message) { throw Error(kind, message); }

[[noreturn]] inline void raise_semantic(const std::string& message) {
  throw Error(ErrorKind::kSemantic, message);
}

}  // namespace kolva
