#pragma once

#include <cstdint>

namespace kolva {

// Thrown by the interrupt hook when the user asked to stop (Ctrl-C). It is
// not an Error on purpose: the engine's fallbacks catch Error, and none of
// them may turn a request to stop into a default value.
struct Interrupted final {};

// A function that throws Interrupted when the user asked to stop. The
// binding installs one that asks Python for pending signals; the core alone
// never stops.
using InterruptHook = void (*)();
void set_interrupt_hook(InterruptHook hook);

namespace detail {
inline constexpr std::uint32_t kPollsPerCheck = 64;
extern thread_local std::uint32_t polls_until_check;
void check_interrupt();
}  // namespace detail

// Called from every loop whose length follows the input (per column, per
// row, per iterator value, per term): every kPollsPerCheck calls it runs the
// hook. The counter is per thread, so generators on other threads neither
// race on it nor delay each other's checks.
inline void poll_interrupt() {
  if (--detail::polls_until_check == 0) detail::check_interrupt();
}

}  // namespace kolva
