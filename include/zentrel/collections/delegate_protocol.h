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
// A class that implements an optional method says so, once, in its constructor:
//
//   MyDelegate() { declareImplementedSelectors({ZTSelectorOf<&DownloadDelegate::downloadShouldRetry>}); }
//
// or overrides respondsToSelector() for answers that change at run time. Required methods count as
// implemented by every object of the interface. Objects are used from whatever thread their owner
// uses them on; declareImplementedSelectors belongs in the constructor.

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/collections/selector.h"
#include "zentrel/platform/export.h"

// What a protocol says about one of its methods. There are no class methods in a C++ interface, so
// every description is of an instance method.
struct ZTMethodDescription {
  ZTSelector selector;
  bool isRequired = false;
  std::string_view name() const { return selector.name(); }
};

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

class ZT_API ZTDelegateProtocol {
 public:
  virtual ~ZTDelegateProtocol();

  // Whether this object implements the method beyond what its interface requires. The default
  // answers true for the selectors given to declareImplementedSelectors.
  virtual bool respondsToSelector(ZTSelector selector) const;

 protected:
  ZTDelegateProtocol() = default;
  ZTDelegateProtocol(const ZTDelegateProtocol&) = default;
  ZTDelegateProtocol& operator=(const ZTDelegateProtocol&) = default;

  void declareImplementedSelectors(std::initializer_list<ZTSelector> selectors);

 private:
  std::vector<ZTSelector> implementedSelectors_;
};

// An interface usable with ZTProxyDelegate.
template <class P>
concept ZTDelegateProtocolType = std::derived_from<P, ZTDelegateProtocol> && requires {
  { P::protocol() } -> std::same_as<const ZTProtocol&>;
};
