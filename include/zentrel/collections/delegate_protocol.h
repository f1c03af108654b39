#pragma once
// Delegate interfaces that can say which of their optional methods an object implements.
//
// A delegate interface (a "protocol") is an abstract class that derives virtually from
// ZTDelegateProtocol and describes its methods in a static protocol():
//
//   class DownloadDelegate : public virtual ZTDelegateProtocol {
//    public:
//     virtual void downloadDidFinish(Download& download) = 0;                 // required
//     virtual bool downloadShouldRetry(Download&) { return false; }           // optional
//     static const ZTProtocol& protocol() {
//       static const ZTProtocol description("DownloadDelegate",
//           {ZTSelectorOf<&DownloadDelegate::downloadDidFinish>},               // required
//           {ZTSelectorOf<&DownloadDelegate::downloadShouldRetry>});            // optional
//       return description;
//     }
//   };
//
// Required methods count as implemented by every object of the interface. An optional method has a
// default body in the interface, which is what the object answers when it does not implement the
// method. A class that implements an optional method says so in its constructor, naming the
// interface's method and its own override of it:
//
//   MyDelegate() {
//     declareImplemented<&DownloadDelegate::downloadShouldRetry>(&MyDelegate::downloadShouldRetry);
//   }
//
// The declaration is checked when it is compiled: when MyDelegate (or a class between it and the
// interface) does not override the method, &MyDelegate::downloadShouldRetry names the interface's
// own method and the call does not compile; neither does it when the two differ in parameters or
// constness. C++ cannot list the overrides of a class, so a missing declaration cannot be detected:
// the object then counts as not implementing the method (a proxy does not call it, and answers with
// another delegate's result or the interface's default). Overloaded methods are named with a cast to
// the overload's type. For answers that change at run time, override respondsToSelector() instead.
//
// Objects are used from whatever thread their owner uses them on; declarations belong in the
// constructor.

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/collections/internal/member_function_traits.h"
#include "zentrel/collections/selector.h"
#include "zentrel/platform/export.h"

// What a protocol says about one of its methods. There are no class methods in a C++ interface, so
// every description is of an instance method.
struct ZTMethodDescription {
  ZTSelector selector;
  bool isRequired = false;
  std::string_view name() const { return selector.name(); }
};

// A delegate interface by name, with its required and optional methods.
class ZT_API ZTProtocol {
 public:
  ZTProtocol(std::string name, std::initializer_list<ZTSelector> requiredSelectors,
             std::initializer_list<ZTSelector> optionalSelectors = {});

  const std::string& name() const { return name_; }
  // Looked up among the optional methods first, then the required ones; nullopt when the protocol
  // has no such method.
  std::optional<ZTMethodDescription> methodDescriptionForSelector(ZTSelector selector) const;
  bool containsSelector(ZTSelector selector) const;
  bool isRequiredSelector(ZTSelector selector) const;
  const std::vector<ZTSelector>& requiredSelectors() const { return required_; }
  const std::vector<ZTSelector>& optionalSelectors() const { return optional_; }

 private:
  std::string name_;
  std::vector<ZTSelector> required_;
  std::vector<ZTSelector> optional_;
};

// The base of delegate interfaces: says which of the interface's optional methods an object implements.
class ZT_API ZTDelegateProtocol {
 public:
  virtual ~ZTDelegateProtocol();

  // Whether this object implements the method beyond what its interface requires. The default
  // answers true for the methods declared with declareImplemented.
  virtual bool respondsToSelector(ZTSelector selector) const;

 protected:
  ZTDelegateProtocol() = default;
  ZTDelegateProtocol(const ZTDelegateProtocol&) = default;
  ZTDelegateProtocol& operator=(const ZTDelegateProtocol&) = default;

  // Declares the optional method Method implemented by this object, overridden as `overriding`
  // (see above). Only the types are checked; the value of `overriding` is not used.
  template <auto Method, class Override>
    requires zt::detail::OverrideOf<Method, Override>
  void declareImplemented(Override /*overriding*/) {
    declareImplementedSelector(ZTSelectorOf<Method>);
  }

 private:
  void declareImplementedSelector(ZTSelector selector);

  std::vector<ZTSelector> implementedSelectors_;
};

// An interface usable with ZTProxyDelegate.
template <class P>
concept ZTDelegateProtocolType = std::derived_from<P, ZTDelegateProtocol> && requires {
  { P::protocol() } -> std::same_as<const ZTProtocol&>;
};
