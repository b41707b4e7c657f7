#include "model/interrupt.hpp"

#include <atomic>

namespace kolva {
namespace {
std::atomic<InterruptHook> hook{nullptr};
}  // namespace

void set_interrupt_hook(InterruptHook new_hook) { hook.store(new_hook); }

namespace detail {
thread_local std::uint32_t polls_until_check = kPollsPerCheck;

void check_interrupt() {
  polls_until_check = kPollsPerCheck;
  if (const InterruptHook h = hook.load(std::memory_order_relaxed)) h();
}
}  // namespace detail

}  // namespace kolva
