#pragma once

namespace kolva {

// Sets a flag for the lifetime of the scope and restores the value it found
// on every exit path, errors included. Used for the symbolic-Boolean
// allowance of the constraint build and for reading missing parameters as
// zero while a general constraint side is evaluated.
class ScopedFlag {
 public:
  ScopedFlag(bool& flag, bool value) : flag_(flag), saved_(flag) { flag_ = value; }
  ScopedFlag(const ScopedFlag&) = delete;
  ScopedFlag& operator=(const ScopedFlag&) = delete;
  ~ScopedFlag() { flag_ = saved_; }

 private:
  bool& flag_;
  bool saved_;
};

}  // namespace kolva
