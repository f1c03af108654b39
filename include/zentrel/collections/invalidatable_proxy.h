#pragma once
// ZTInvalidatableProxy: a stand-in for an object that can be cut off. Until invalidate() it passes
// calls to its object (which it keeps alive); afterwards calls reach nothing:
//   - perform()/send() throw ZTInvalidatedProxyException, so a call after invalidation is an explicit
//     failure, never a call into a dead object;
//   - performIfValid()/sendIfValid() do nothing and answer false (or std::nullopt), for callers
//     that expect the cut-off — a callback that may fire after its owner has gone.
//
// Threads: any. The target is read and replaced under a mutex; a call copies the reference and
// runs outside the lock, so a call that started before invalidate() finishes on the object it
// started with, and invalidate() never waits for a call.

#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread_annotations.h"

// A call through a ZTInvalidatableProxy that was invalidated or never had an object.
class ZT_API ZTInvalidatedProxyException : public ZTInternalInconsistencyException {
 public:
  using ZTInternalInconsistencyException::ZTInternalInconsistencyException;
};

// A stand-in for an object that passes calls on until invalidate() cuts it off.
template <class T>
class ZTInvalidatableProxy {
 public:
  explicit ZTInvalidatableProxy(std::shared_ptr<T> object) : object_(std::move(object)) {}
  [[nodiscard]] static std::shared_ptr<ZTInvalidatableProxy> create(std::shared_ptr<T> object) {
    return std::make_shared<ZTInvalidatableProxy>(std::move(object));
  }

  std::shared_ptr<T> object() const {
    ZTLockGuard lock(mutex_);
    return object_;
  }
  void setObject(std::shared_ptr<T> object) {
    std::shared_ptr<T> old;
    ZTLockGuard lock(mutex_);
    old = std::exchange(object_, std::move(object));
  }
  bool isValid() const { return object() != nullptr; }
  // Releases the object; from now on calls reach nothing.
  void invalidate() { setObject(nullptr); }

  // function(object); throws ZTInvalidatedProxyException when invalidated.
  template <class F>
  decltype(auto) perform(F&& function) const {
    std::shared_ptr<T> target = object();
    if (!target) throw ZTInvalidatedProxyException("The proxy was invalidated; the call reached no object.");
    return std::invoke(std::forward<F>(function), *target);
  }
  // object.method(args...); throws ZTInvalidatedProxyException when invalidated.
  template <class Method, class... Args>
    requires std::is_member_function_pointer_v<Method>
  decltype(auto) send(Method method, Args&&... args) const {
    return perform([&](T& target) -> decltype(auto) { return std::invoke(method, target, std::forward<Args>(args)...); });
  }

  // As perform, but a call after invalidation is dropped: false / std::nullopt.
  template <class F>
  auto performIfValid(F&& function) const {
    using R = std::invoke_result_t<F, T&>;
    std::shared_ptr<T> target = object();
    if constexpr (std::is_void_v<R>) {
      if (!target) return false;
      std::invoke(std::forward<F>(function), *target);
      return true;
    } else {
      if (!target) return std::optional<std::decay_t<R>>();
      return std::optional<std::decay_t<R>>(std::invoke(std::forward<F>(function), *target));
    }
  }
  template <class Method, class... Args>
    requires std::is_member_function_pointer_v<Method>
  auto sendIfValid(Method method, Args&&... args) const {
    return performIfValid([&](T& target) -> decltype(auto) { return std::invoke(method, target, std::forward<Args>(args)...); });
  }

 private:
  mutable ZTMutex mutex_;
  std::shared_ptr<T> object_ ZT_GUARDED_BY(mutex_);
};
