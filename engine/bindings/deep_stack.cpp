#include "bindings/deep_stack.hpp"

#include <sys/mman.h>
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

// Calls fn(arg) with the stack pointer at `top` and returns to the caller's
// stack when fn returns. fn must not let an exception out: the switch has no
// unwind information, so nothing may unwind through it.
extern "C" void kolva_call_on_stack(void* arg, void (*fn)(void*), void* top);

#if defined(__x86_64__)
asm(R"(
  .text
  .p2align 4
  .type kolva_call_on_stack, @function
kolva_call_on_stack:
  pushq %rbp
  movq %rsp, %rbp
  movq %rdx, %rsp
  callq *%rsi
  movq %rbp, %rsp
  popq %rbp
  retq
  .size kolva_call_on_stack, .-kolva_call_on_stack
)");
#elif defined(__aarch64__)
asm(R"(
  .text
  .p2align 2
  .type kolva_call_on_stack, %function
kolva_call_on_stack:
  stp x29, x30, [sp, #-16]!
  mov x29, sp
  mov sp, x2
  blr x1
  mov sp, x29
  ldp x29, x30, [sp], #16
  ret
  .size kolva_call_on_stack, .-kolva_call_on_stack
)");
#else
#error "the deep stack needs a stack switch for this processor"
#endif

struct Call {
  const std::function<void()>* body = nullptr;
  std::exception_ptr error;
#ifdef KOLVA_ASAN_FIBERS
  const void* caller_bottom = nullptr;
  std::size_t caller_size = 0;
#endif
};

thread_local DeepStack t_stack;
thread_local bool t_on_deep_stack = false;

// The deep stack's first frame. Nothing may unwind past it: every
// exception is caught here and carried back to the caller's stack.
void run_call(void* arg) {
  auto* call = static_cast<Call*>(arg);
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_finish_switch_fiber(nullptr, &call->caller_bottom, &call->caller_size);
#endif
  try {
    (*call->body)();
  } catch (...) {
    call->error = std::current_exception();
  }
#ifdef KOLVA_ASAN_FIBERS
  // Each call starts afresh at the top of the deep stack: leaving it ends
  // this use of it.
  __sanitizer_start_switch_fiber(nullptr, call->caller_bottom, call->caller_size);
#endif
}

}  // namespace

void run_on_deep_stack(const std::function<void()>& body) {
  if (t_on_deep_stack) {
    body();
    return;
  }
  Call call;
  call.body = &body;
  void* base = t_stack.base();
  void* top = static_cast<char*>(base) + kDeepStackBytes;
  t_on_deep_stack = true;
#ifdef KOLVA_ASAN_FIBERS
  void* fake_stack = nullptr;
  __sanitizer_start_switch_fiber(&fake_stack, base, kDeepStackBytes);
#endif
  kolva_call_on_stack(&call, run_call, top);
#ifdef KOLVA_ASAN_FIBERS
  __sanitizer_finish_switch_fiber(fake_stack, nullptr, nullptr);
#endif
  t_on_deep_stack = false;
  if (call.error) std::rethrow_exception(call.error);
}

}  // namespace kolva::bindings
