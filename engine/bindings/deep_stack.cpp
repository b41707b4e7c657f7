#include "bindings/deep_stack.hpp"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <exception>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define KOLVA_ASAN_FIBERS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOLVA_ASAN_FIBERS 1
#endif
#endif

#ifdef KOLVA_ASAN_FIBERS
#include <sanitizer/common_interface_defs.h>
#endif

namespace kolva::bindings {
namespace {

// This thread's deep stack, with an inaccessible guard page at its low end
// so that running past it faults instead of overwriting other memory.
class DeepStack {
 public:
  DeepStack() = default;
  DeepStack(const DeepStack&) = delete;
  DeepStack& operator=(const DeepStack&) = delete;
  ~DeepStack() {
    if (base_ != nullptr) munmap(base_, kDeepStackBytes);
  }

  void* base() {
    if (base_ == nullptr) reserve();
    return base_;
  }

 private:
  void reserve() {
    void* p = mmap(nullptr, kDeepStackBytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    if (mprotect(p, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), PROT_NONE) != 0) {
      munmap(p, kDeepStackBytes);
      throw std::bad_alloc();
    }
    base_ = p;
  }

  void* base_ = nullptr;
};

struct Call {
  const std::function<void()>* body = nullptr;
  std::exception_ptr error;
  ucontext_t caller{};
  ucontext_t callee{};
#ifdef KOLVA_ASAN_FIBERS
  void* fake_stack = nullptr;
  const void* caller_bottom = nullptr;
  std::size_t caller_size = 0;
#endif
};

thread_local DeepStack t_stack;
thread_local Call* t_call = nullptr;
thread_local bool t_on_deep_stack = false;

// The deep stack's first frame. Nothing may unwind past it: every
// exception is caught here and carried back to the caller's stack.
void trampoline() {
  Call* call = t_call;
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_finish_switch_fiber(nullptr, &call->caller_bottom, &call->caller_size);
#endif
  try {
    (*call->body)();
  } catch (...) {
    call->error = std::current_exception();
  }
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_start_switch_fiber(nullptr, call->caller_bottom, call->caller_size);
#endif
  // Returning resumes call->caller (uc_link).
}

}  // namespace

void run_on_deep_stack(const std::function<void()>& body) {
  if (t_on_deep_stack) {
    body();
    return;
  }
  Call call;
  call.body = &body;
  if (getcontext(&call.callee) != 0) throw std::bad_alloc();
  call.callee.uc_stack.ss_sp = t_stack.base();
  call.callee.uc_stack.ss_size = kDeepStackBytes;
  call.callee.uc_link = &call.caller;
  makecontext(&call.callee, trampoline, 0);
  t_call = &call;
  t_on_deep_stack = true;
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_start_switch_fiber(&call.fake_stack, t_stack.base(), kDeepStackBytes);
#endif
  const int switched = swapcontext(&call.caller, &call.callee);
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_finish_switch_fiber(call.fake_stack, nullptr, nullptr);
#endif
  t_on_deep_stack = false;
  t_call = nullptr;
  if (switched != 0) throw std::bad_alloc();
  if (call.error) std::rethrow_exception(call.error);
}

}  // namespace kolva::bindings
