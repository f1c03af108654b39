#pragma once
// ZTProxyDelegate: one object that stands in for a single delegate where several objects want the
// same delegate calls. It is itself a Protocol, so it can be handed to anything that takes one
// delegate; each call it receives goes to every delegate that implements the method, in order, the
// main delegate first.
//
// The forwarding class is written once per interface, one line per method. A required method
// forwards; an optional one forwards with the interface's own body as its default:
//
//   class DownloadDelegateProxy final : public ZTProxyDelegate<DownloadDelegate> {
//    public:
//     void downloadDidFinish(Download& d) override { forward<&DownloadDelegate::downloadDidFinish>(d); }
//     bool downloadShouldRetry(Download& d) override {
//       return forwardOrDefault<&DownloadDelegate::downloadShouldRetry>(
//           [&] { return DownloadDelegate::downloadShouldRetry(d); }, d);
//     }
//   };
//   auto proxy = ZTProxyDelegate<DownloadDelegate>::create<DownloadDelegateProxy>({first, second});
//
// Rules of a forwarded call:
//   - a delegate is called when it responds to the method (see delegate_protocol.h: required
//     methods always, optional ones when declared) and the method is not muted for it;
//   - arguments are passed to each delegate in turn as lvalues; a method with a result returns the
//     result of the last delegate called;
//   - when no delegate is called (none implements the method, it is muted for every one that does,
//     no delegate is left, or forwardsInvocations() is off), the proxy answers as one delegate that
//     does not implement the method would: forwardOrDefault runs the default it was given (the
//     interface's body, on the proxy), and forward drops the call and answers a value-initialised R;
//   - the one call that is an error is a method outside the protocol that no delegate takes while
//     forwarding is on: ZTInternalInconsistencyException (nobody can answer it).
// So code written against the interface behaves the same with a proxy as with a single delegate.
// Forwarded methods may also belong to another interface (forward<&Other::method>): delegates that
// are not an Other do not respond to it.
//
// An exception thrown by a delegate reaches the caller, as it would from a single delegate; the
// delegates after it are not called for that call, and the proxy is unchanged.
//
// A forwarding class constructed directly rather than through create() starts with no delegates and
// forwarding off: its calls are answered as described above until delegates are added and
// setForwardsInvocations(true).
//
// Ownership: delegates are held weakly; the owner keeps them alive. A delegate that dies leaves the
// list at the next walk; when the main delegate dies the next one in the list becomes main.
// Threads: none; use a proxy on one thread (or serialise access). Each call walks a copy of the
// list, so a delegate may add or remove delegates from inside a forwarded call; the change applies
// from the next call.

#include <algorithm>
#include <concepts>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "zentrel/collections/delegate_protocol.h"
#include "zentrel/collections/internal/member_function_traits.h"
#include "zentrel/collections/selector.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"

template <class Protocol>
class ZTProxyDelegate : public Protocol {
  static_assert(ZTDelegateProtocolType<Protocol>,
                "The delegate interface must derive from ZTDelegateProtocol and have a static protocol().");

 public:
  using DelegatePtr = std::shared_ptr<Protocol>;

  // A proxy of the forwarding class Proxy over the given delegates, in order; the first accepted one
  // becomes the main delegate. Objects that are not a Protocol, and null ones, are skipped. Returns
  // nullptr when no delegate was accepted. Extra arguments go to Proxy's constructor.
  template <class Proxy, class U, class... ProxyArgs>
    requires std::derived_from<Proxy, ZTProxyDelegate>
  [[nodiscard]] static std::shared_ptr<Proxy> create(const std::vector<std::shared_ptr<U>>& delegates, ProxyArgs&&... proxyArgs) {
    auto proxy = std::make_shared<Proxy>(std::forward<ProxyArgs>(proxyArgs)...);
    ZTProxyDelegate& base = *proxy;
    base.addDelegatesFromArray(delegates);
    if (base.delegateValues_.empty()) return nullptr;
    base.mainDelegate_ = base.delegateValues_.front();
    base.forwardsInvocations_ = true;
    return proxy;
  }
  template <class Proxy, class... ProxyArgs>
    requires std::derived_from<Proxy, ZTProxyDelegate>
  [[nodiscard]] static std::shared_ptr<Proxy> create(std::initializer_list<DelegatePtr> delegates, ProxyArgs&&... proxyArgs) {
    return create<Proxy>(std::vector<DelegatePtr>(delegates), std::forward<ProxyArgs>(proxyArgs)...);
  }

  const ZTProtocol& protocol() const { return Protocol::protocol(); }

  bool forwardsInvocations() const { return forwardsInvocations_; }
  void setForwardsInvocations(bool forwards) { forwardsInvocations_ = forwards; }

  DelegatePtr mainDelegate() {
    compact();
    return mainDelegate_.lock();
  }
  // The live delegates in calling order.
  std::vector<DelegatePtr> delegateValues() {
    compact();
    return liveDelegates();
  }

  // Appends every object that is a Protocol, in order (after dropping dead entries). An object that
  // is already a delegate is appended again and then called twice.
  template <class U>
  void addDelegatesFromArray(const std::vector<std::shared_ptr<U>>& delegates) {
    compact();
    for (const auto& candidate : delegates)
      if (DelegatePtr delegate = asDelegate(candidate)) delegateValues_.emplace_back(delegate);
  }
  // Removes the given objects (by identity) and their muted methods. When the main delegate goes,
  // the first remaining delegate becomes main.
  template <class U>
  void removeDelegatesInArray(const std::vector<std::shared_ptr<U>>& delegates) {
    compact();
    std::vector<const void*> removed;
    for (const auto& object : delegates)
      if (object) removed.push_back(identity(object.get()));
    DelegatePtr main = mainDelegate_.lock();
    std::vector<std::weak_ptr<Protocol>> kept;
    for (const auto& weak : delegateValues_) {
      DelegatePtr delegate = weak.lock();
      if (delegate && delegate == main) mainDelegate_.reset();
      if (delegate && std::find(removed.begin(), removed.end(), identity(delegate.get())) != removed.end()) {
        ignoredSelectors_.erase(std::weak_ptr<Protocol>(delegate));
        continue;
      }
      kept.push_back(weak);
    }
    delegateValues_ = std::move(kept);
    if (mainDelegate_.expired() && !delegateValues_.empty()) mainDelegate_ = delegateValues_.front();
  }
  // Keeps only the given delegate (with its muted methods) as the main one; when it is not a
  // delegate of this proxy, the proxy is left with no delegates at all.
  template <class U>
  void removeAllDelegatesExceptDelegate(const std::shared_ptr<U>& delegate) {
    compact();
    DelegatePtr kept = findDelegate(delegate);
    std::unordered_set<ZTSelector> mutedSelectors;
    if (kept) {
      auto muted = ignoredSelectors_.find(std::weak_ptr<Protocol>(kept));
      if (muted != ignoredSelectors_.end()) mutedSelectors = muted->second;
    }
    delegateValues_.clear();
    ignoredSelectors_.clear();
    mainDelegate_.reset();
    if (!kept) return;
    delegateValues_.emplace_back(kept);
    if (!mutedSelectors.empty()) ignoredSelectors_.emplace(kept, std::move(mutedSelectors));
    mainDelegate_ = kept;
  }
  // Moves a delegate of this proxy to the front and makes it main. Null, the current main delegate or
  // an object that is not a delegate of this proxy changes nothing. A delegate that is in the list
  // more than once has its first entry moved; the others stay where they are.
  template <class U>
  void setMainDelegate(const std::shared_ptr<U>& delegate) {
    if (!delegate) return;
    compact();
    DelegatePtr found = findDelegate(delegate);
    if (!found || found == mainDelegate_.lock()) return;
    auto entry = std::find_if(delegateValues_.begin(), delegateValues_.end(),
                              [&](const std::weak_ptr<Protocol>& weak) { return weak.lock() == found; });
    std::rotate(delegateValues_.begin(), entry, std::next(entry));
    mainDelegate_ = found;
  }

  // Mutes one method for one delegate, for as long as the delegate lives. There is no unmuting of a
  // single method; removing the delegate forgets its muted methods.
  template <class U>
  void ignoreDelegateMethodCalls(ZTSelector selector, const std::shared_ptr<U>& forDelegate) {
    if (DelegatePtr delegate = asDelegate(forDelegate)) ignoredSelectors_[delegate].insert(selector);
  }

  // Whether the delegate would be called for the method: not muted for it, and required by the
  // protocol or declared by the delegate.
  bool delegateRespondsToSelector(const DelegatePtr& delegate, ZTSelector selector) const {
    return delegateResponds(delegate, selector, Protocol::protocol().isRequiredSelector(selector));
  }

  // True when forwarding is on and any live delegate responds to the method.
  bool respondsToSelector(ZTSelector selector) const override {
    if (!forwardsInvocations_) return false;
    const bool required = Protocol::protocol().isRequiredSelector(selector);
    for (const auto& weak : delegateValues_)
      if (delegateResponds(weak.lock(), selector, required)) return true;
    return false;
  }

  bool delegateProtocolContainsSelector(ZTSelector selector) const {
    return Protocol::protocol().containsSelector(selector);
  }
  std::optional<ZTMethodDescription> methodDescriptionForDelegateProtocolWithSelector(ZTSelector selector) const {
    return Protocol::protocol().methodDescriptionForSelector(selector);
  }

 protected:
  ZTProxyDelegate() = default;

  // Sends the call to every delegate that responds to Method, in order; see the rules above. When no
  // delegate is called the call is dropped (a method outside the protocol throws).
  template <auto Method, class... Args>
    requires zt::detail::PlainMemberFunctionPointer<decltype(Method)>
  typename zt::detail::MemberFunctionTraits<decltype(Method)>::Result forward(Args&&... args) {
    using R = typename zt::detail::MemberFunctionTraits<decltype(Method)>::Result;
    static_assert(std::is_void_v<R> || std::is_default_constructible_v<R>,
                  "A method forwarded without a default returns void or a default-constructible value.");
    auto answer = dispatch<Method>(args...);
    if constexpr (!std::is_void_v<R>) {
      if (answer.has_value()) return std::move(*answer);
    } else {
      if (answer) return;
    }
    if (forwardsInvocations_ && !Protocol::protocol().containsSelector(ZTSelectorOf<Method>))
      throwUnrecognized(ZTSelectorOf<Method>);
    return R();
  }

  // The same for a method with a default: when no delegate is called, the answer is defaultCall(),
  // which calls the interface's own body: [&] { return Interface::method(args...); }.
  template <auto Method, class Default, class... Args>
    requires zt::detail::PlainMemberFunctionPointer<decltype(Method)> && std::invocable<Default&>
  typename zt::detail::MemberFunctionTraits<decltype(Method)>::Result forwardOrDefault(Default&& defaultCall,
                                                                                       Args&&... args) {
    using R = typename zt::detail::MemberFunctionTraits<decltype(Method)>::Result;
    static_assert(std::is_void_v<R> || std::is_convertible_v<std::invoke_result_t<Default&>, R>,
                  "The default of a forwarded method answers what the method answers.");
    auto answer = dispatch<Method>(args...);
    if constexpr (!std::is_void_v<R>) {
      if (answer.has_value()) return std::move(*answer);
      return defaultCall();
    } else {
      if (!answer) defaultCall();
    }
  }

 private:
  template <class U>
  static DelegatePtr asDelegate(const std::shared_ptr<U>& object) {
    if (!object) return nullptr;
    if constexpr (std::is_convertible_v<U*, Protocol*>) {
      return object;
    } else {
      static_assert(std::is_polymorphic_v<U>, "Candidate delegates must be of a polymorphic class.");
      return std::dynamic_pointer_cast<Protocol>(object);
    }
  }
  template <class U>
  static const void* identity(U* object) {
    if constexpr (std::is_polymorphic_v<U>) return dynamic_cast<const void*>(object);
    else return object;
  }
  template <class U>
  DelegatePtr findDelegate(const std::shared_ptr<U>& object) const {
    if (!object) return nullptr;
    const void* wanted = identity(object.get());
    for (const auto& weak : delegateValues_)
      if (DelegatePtr delegate = weak.lock(); delegate && identity(delegate.get()) == wanted) return delegate;
    return nullptr;
  }
  template <class C>
  C* respondingTarget(const DelegatePtr& delegate, ZTSelector selector, bool required) const {
    if (!delegateResponds(delegate, selector, required)) return nullptr;
    if constexpr (std::is_convertible_v<Protocol*, C*>) return delegate.get();
    else return dynamic_cast<C*>(delegate.get());
  }
  // delegateRespondsToSelector with the protocol's answer (required or not) looked up by the caller,
  // once for all delegates.
  bool delegateResponds(const DelegatePtr& delegate, ZTSelector selector, bool required) const {
    if (!delegate) return false;
    auto muted = ignoredSelectors_.find(std::weak_ptr<Protocol>(delegate));
    if (muted != ignoredSelectors_.end() && muted->second.count(selector)) return false;
    return required || delegate->respondsToSelector(selector);
  }
  // Calls Method on every delegate that responds to it, in order. The answer: for a method with a
  // result, the last delegate's result, or nullopt when none was called; otherwise whether any was.
  template <auto Method, class... Args>
  auto dispatch(Args&... args) {
    using Traits = zt::detail::MemberFunctionTraits<decltype(Method)>;
    using R = typename Traits::Result;
    using C = typename Traits::Class;
    static_assert(!std::is_reference_v<R>, "A forwarded method returns void or a value.");
    constexpr ZTSelector selector = ZTSelectorOf<Method>;
    using Answer = std::conditional_t<std::is_void_v<R>, bool, std::optional<std::conditional_t<std::is_void_v<R>, int, R>>>;
    Answer answer{};
    if (!forwardsInvocations_) return answer;
    compact();
    if (delegateValues_.empty()) return answer;
    const std::vector<DelegatePtr> delegates = liveDelegates();
    const bool required = Protocol::protocol().isRequiredSelector(selector);
    for (const DelegatePtr& delegate : delegates) {
      if (C* target = respondingTarget<C>(delegate, selector, required)) {
        if constexpr (std::is_void_v<R>) {
          std::invoke(Method, *target, args...);
          answer = true;
        } else {
          answer.emplace(std::invoke(Method, *target, args...));
        }
      }
    }
    return answer;
  }

  [[noreturn]] void throwUnrecognized(ZTSelector selector) const {
    throw ZTInternalInconsistencyException(ZTDebugClassNameForObject(this) + ": no delegate responds to " +
                                           std::string(selector.name()) + ".");
  }

  // Drops dead delegates and their muted methods; keeps the main delegate at the front.
  void compact() {
    std::erase_if(delegateValues_, [](const std::weak_ptr<Protocol>& weak) { return weak.expired(); });
    std::erase_if(ignoredSelectors_, [](const auto& entry) { return entry.first.expired(); });
    if (mainDelegate_.expired() && !delegateValues_.empty()) mainDelegate_ = delegateValues_.front();
  }
  std::vector<DelegatePtr> liveDelegates() const {
    std::vector<DelegatePtr> delegates;
    delegates.reserve(delegateValues_.size());
    for (const auto& weak : delegateValues_)
      if (DelegatePtr delegate = weak.lock()) delegates.push_back(std::move(delegate));
    return delegates;
  }

  bool forwardsInvocations_ = false;
  std::weak_ptr<Protocol> mainDelegate_;
  std::vector<std::weak_ptr<Protocol>> delegateValues_;
  std::map<std::weak_ptr<Protocol>, std::unordered_set<ZTSelector>, std::owner_less<>> ignoredSelectors_;
};
