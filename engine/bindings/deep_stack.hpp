#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

namespace kolva::bindings {

// The engine walks model trees recursively, about 1-2 KB of C stack per
// level. So that the documented nesting limit holds whatever stack the
// calling thread has (Python threads may have 1 MiB or less), engine calls
// run on a stack of their own: one per thread, reserved once and committed
// by the kernel only as deep as a call actually goes. It is the same thread,
// so the GIL, signals and Python's thread state are untouched.
inline constexpr std::size_t kDeepStackBytes = std::size_t{1} << 30;

// Runs `body` on this thread's deep stack (directly when already on it) and
// rethrows what it throws.
void run_on_deep_stack(const std::function<void()>& body);

template <typename F>
auto on_deep_stack(F&& f) -> std::invoke_result_t<F&> {
  using R = std::invoke_result_t<F&>;
  if constexpr (std::is_void_v<R>) {
    run_on_deep_stack([&] { f(); });
  } else {
    std::optional<R> out;
    run_on_deep_stack([&] { out.emplace(f()); });
    return std::move(*out);
  }
}

// Frees what `owner` holds on the deep stack (a deep tree frees as deep as it
// was built); on the current stack when no deep stack can be had.
template <typename Owner>
void release_on_deep_stack(Owner& owner) noexcept {
  try {
    run_on_deep_stack([&] { owner.reset(); });
  } catch (const std::bad_alloc&) {
    owner.reset();
  }
}

namespace detail {
template <typename F, typename R, typename C, typename... A>
auto deep_call(F f, R (C::*)(A...) const) {
  return [f = std::move(f)](A... args) -> R {
    return on_deep_stack([&]() -> R { return f(std::forward<A>(args)...); });
  };
}
}  // namespace detail

// A binding function that runs on the deep stack, with the same signature
// as `f` (a lambda with one call operator), so that it binds the same way.
template <typename F>
auto deep(F f) {
  return detail::deep_call(std::move(f), &F::operator());
}

}  // namespace kolva::bindings
