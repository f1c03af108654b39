#pragma once
// Moving calls between threads.
//
// A call ("selector" in the older vocabulary) is any callable; it runs on the target thread's run
// loop, so the target must run its loop — a ZTThreadWithRunLoop and the main thread (while the
// application runs ZTRunLoop::main()) do.
//
// Rules shared by every function here:
// - When the calling thread is the target thread and the call is waited for, it runs at once, on
//   the caller.
// - A call sent to a cancelled or finished thread is dropped. A waiting call whose target thread
//   ends before running it returns false; a call that throws while waited for rethrows in the
//   waiting thread.
// - An empty callable does nothing; the "checkAndPerform" forms run only when the callable is
//   present (a non-empty std::function or a non-null function pointer).
// - Arguments are copied into the call when it crosses threads.

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/thread.h"
#include "zentrel/platform/value.h"

// ----------------------------------------------------------------------------------------------
// Main-thread functions.

using ZTDispatchFunction = std::function<void(const std::shared_ptr<ZTDispatchQueue>&, std::function<void()>)>;

// Runs block at once when called on the main thread; otherwise hands the main queue and the block
// to dispatchFunction. Does nothing if either is empty.
ZT_API void performOnMainThreadUsingDispatchFunction(const ZTDispatchFunction& dispatchFunction,
                                                    std::function<void()> block);
// Synchronous only when already on the main thread; from any other thread it returns at once and
// the block runs later on the main thread.
ZT_API void performOnMainThreadSynchronouslyIfPossible(std::function<void()> block);
// Always returns after the block has run on the main thread. Called from a thread that the main
// thread is waiting for, it deadlocks.
ZT_API void performOnMainThreadSynchronously(std::function<void()> block);

namespace zt {

namespace detail {
template <class F>
bool isPresent(const F& f) {
  if constexpr (std::is_constructible_v<bool, const F&>) return static_cast<bool>(f);
  else return true;
}

template <class T>
struct IsThreadPointer : std::false_type {};
template <class T>
struct IsThreadPointer<std::shared_ptr<T>> : std::is_base_of<ZTThread, T> {};
template <class T>
inline constexpr bool isThreadPointer = IsThreadPointer<std::remove_cvref_t<T>>::value;

template <class... A>
constexpr bool lastIsThread() {
  if constexpr (sizeof...(A) == 0) return false;
  else return isThreadPointer<std::tuple_element_t<sizeof...(A) - 1, std::tuple<A...>>>;
}

// The number of parameters of a callable with one call signature.
template <class F>
struct Arity : Arity<decltype(&F::operator())> {};
template <class R, class... P>
struct Arity<R (*)(P...)> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class R, class... P>
struct Arity<R(P...)> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class R, class... P>
struct Arity<std::function<R(P...)>> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class C, class R, class... P>
struct Arity<R (C::*)(P...)> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class C, class R, class... P>
struct Arity<R (C::*)(P...) const> : std::integral_constant<std::size_t, sizeof...(P)> {};

// Runs call on the thread's run loop; see the rules above. Returns true when the call ran (waited)
// or was queued (not waited).
[[nodiscard]] ZT_API bool performOnThread(const std::shared_ptr<ZTThread>& thread, std::function<void()> call,
                                          bool waitUntilDone);
}  // namespace detail

// True if both are null; false if exactly one is; otherwise *a == *b.
template <class A, class B>
bool isObject(const std::shared_ptr<A>& a, const std::shared_ptr<B>& b) {
  if (!a || !b) return !a && !b;
  return *a == *b;
}
template <class A, class B>
bool isObject(const A* a, const B* b) {
  if (!a || !b) return !a && !b;
  return *a == *b;
}
template <class A, class B>
bool isObject(const std::optional<A>& a, const std::optional<B>& b) {
  if (!a || !b) return !a && !b;
  return *a == *b;
}

// checkAndPerformSelector(f, args...): calls f(args...) on the calling thread when f is present.
// checkAndPerformSelector(f, args..., thread): runs f(args...) on the thread without waiting (a
// null thread means the calling thread). With none or one argument the call is always queued, so
// on the calling thread it runs on a later run-loop turn; with two or three it goes the way of the
// three-object performSelector, so on the calling thread it runs at once.
// Up to three arguments.
template <class F, class... A>
void checkAndPerformSelector(const F& f, A&&... args) {
  static_assert(sizeof...(A) <= 4, "at most three arguments and a thread");
  if (!detail::isPresent(f)) return;
  if constexpr (!std::is_invocable_v<const F&, A&...> && detail::lastIsThread<A...>()) {
    auto all = std::make_tuple(std::forward<A>(args)...);
    std::shared_ptr<ZTThread> thread = std::get<sizeof...(A) - 1>(all);
    if (!thread) thread = ZTThread::currentThread();
    if constexpr (sizeof...(A) - 1 >= 2) {
      if (thread->runLoop()->isCurrent()) {
        [&]<std::size_t... I>(std::index_sequence<I...>) { std::invoke(f, std::get<I>(std::move(all))...); }
        (std::make_index_sequence<sizeof...(A) - 1>{});
        return;
      }
    }
    auto call = [f, all = std::move(all)]() mutable {
      [&]<std::size_t... I>(std::index_sequence<I...>) { std::invoke(f, std::get<I>(all)...); }
      (std::make_index_sequence<sizeof...(A) - 1>{});
    };
    (void)detail::performOnThread(thread, std::move(call), false);  // dropped by a thread that has ended
  } else {
    std::invoke(f, std::forward<A>(args)...);
  }
}

// Calls f(a, b, c) on the calling thread.
template <class F, class A, class B, class C>
  requires std::is_invocable_v<const F&, A&&, B&&, C&&>
void performSelector(const F& f, A&& a, B&& b, C&& c) {
  std::invoke(f, std::forward<A>(a), std::forward<B>(b), std::forward<C>(c));
}

// Runs f(a, b, c) on the thread (null = the calling thread, where it runs at once whatever
// waitUntilDone says). Returns false when the call was dropped.
template <class F, class A, class B, class C>
[[nodiscard]] bool performSelector(const F& f, A a, B b, C c, std::shared_ptr<ZTThread> thread, bool waitUntilDone) {
  if (!detail::isPresent(f)) return false;
  if (!thread) thread = ZTThread::currentThread();
  if (thread->runLoop()->isCurrent()) {
    std::invoke(f, std::move(a), std::move(b), std::move(c));
    return true;
  }
  return detail::performOnThread(
      thread, [f, a = std::move(a), b = std::move(b), c = std::move(c)]() mutable { std::invoke(f, a, b, c); },
      waitUntilDone);
}

template <class F, class A, class B, class C>
[[nodiscard]] bool performSelectorOnMainThread(const F& f, A a, B b, C c, bool waitUntilDone) {
  return performSelector(f, std::move(a), std::move(b), std::move(c), ZTThread::mainThread(), waitUntilDone);
}

// Calls f with the elements of arguments as its parameters (a null element arrives as a null
// ZTValue), on the thread (null = calling thread; there it runs at once). Does nothing when f is
// absent or its parameter count differs from the number of arguments.
template <class F>
[[nodiscard]] bool performSelector(const F& f, const ZTValueArray& arguments, std::shared_ptr<ZTThread> thread,
                                   bool waitUntilDone) {
  constexpr std::size_t arity = detail::Arity<std::remove_cvref_t<F>>::value;
  if (!detail::isPresent(f) || arguments.size() != arity) return false;
  if (!thread) thread = ZTThread::currentThread();
  auto call = [f, arguments] {
    [&]<std::size_t... I>(std::index_sequence<I...>) { std::invoke(f, arguments[I]...); }
    (std::make_index_sequence<arity>{});
  };
  if (thread->runLoop()->isCurrent()) {
    call();
    return true;
  }
  return detail::performOnThread(thread, std::move(call), waitUntilDone);
}

// Queues f(object) — or f() — on the calling thread's run loop for its next turn. A callable that
// needs two or more arguments is not called.
template <class F, class T>
void performSelectorLater(const F& f, T object) {
  if (!detail::isPresent(f)) return;
  if constexpr (std::is_invocable_v<const F&, T&>) {
    // The calling thread's own loop is open while the thread runs.
    (void)ZTRunLoop::current()->post([f, object = std::move(object)]() mutable { std::invoke(f, object); });
  } else if constexpr (std::is_invocable_v<const F&>) {
    (void)ZTRunLoop::current()->post([f] { std::invoke(f); });
  }
}

// Runs f() on the thread and returns a future for its result, or for the exception it threw. On
// the thread itself it runs at once (a caller waiting there for its own loop would wait forever).
// A call that is dropped — a null, cancelled or ended thread, or one that ends before running it —
// leaves the future with std::future_errc::broken_promise rather than pending. Use wait_for on the
// future for a wait with a timeout.
template <class F>
[[nodiscard]] std::future<std::invoke_result_t<F&>> performBlockWithFuture(F f,
                                                                           const std::shared_ptr<ZTThread>& thread) {
  using R = std::invoke_result_t<F&>;
  auto task = std::make_shared<std::packaged_task<R()>>(std::move(f));
  auto future = task->get_future();
  if (thread && thread->runLoop()->isCurrent()) {
    (*task)();
    return future;
  }
  // Dropped unrun, the task is destroyed with the call, which breaks its promise.
  (void)detail::performOnThread(thread, [task = std::move(task)] { (*task)(); }, false);
  return future;
}

// Runs block on the calling thread's run loop after the delay; the returned timer can cancel it.
[[nodiscard]] ZT_API std::shared_ptr<ZTTimer> performBlock(std::function<void()> block,
                                                         std::chrono::duration<double> delay);
// Queues block on the thread without waiting. A null thread does nothing.
ZT_API void performBlock(std::function<void()> block, const std::shared_ptr<ZTThread>& thread);
// Runs block on the thread, waiting for it when waitUntilDone is true (on the calling thread
// itself it then runs at once). A null thread does nothing. Returns false when the block was dropped.
[[nodiscard]] ZT_API bool performBlock(std::function<void()> block, const std::shared_ptr<ZTThread>& thread,
                                       bool waitUntilDone);

}  // namespace zt
