#pragma once
// ZTSelector: the identity of one method of a delegate interface, so that a delegate can say which
// optional methods it implements and a proxy can mute a method per delegate.
//
// A selector is named by a pointer to the member function:
//   ZTSelectorOf<&DownloadDelegate::downloadDidProgress>
// Two selectors are equal exactly when they name the same member function. Selectors are small
// values (one pointer), hashable, usable as keys, and valid for the whole run of the program. The
// default-constructed selector names nothing.

#include <cstddef>
#include <functional>
#include <string_view>

namespace zt::detail {

struct SelectorTag {
  std::string_view (*name)();
};

// The member name out of a compiler's function signature text ("...Method = &A::b..." -> "A::b").
std::string_view selectorNameFromSignature(std::string_view signature);

template <auto Method>
struct SelectorFor {
  static std::string_view name() {
    static const std::string_view parsed = selectorNameFromSignature(__PRETTY_FUNCTION__);
    return parsed;
  }
  static constexpr SelectorTag tag{&SelectorFor::name};
};

}  // namespace zt::detail

class ZTSelector {
 public:
  constexpr ZTSelector() = default;
  constexpr explicit ZTSelector(const zt::detail::SelectorTag* tag) : tag_(tag) {}

  // "DownloadDelegate::downloadDidProgress"; empty for the null selector. For messages only.
  std::string_view name() const { return tag_ ? tag_->name() : std::string_view(); }
  constexpr bool isNull() const { return tag_ == nullptr; }

  friend constexpr bool operator==(ZTSelector a, ZTSelector b) { return a.tag_ == b.tag_; }
  std::size_t hash() const { return std::hash<const void*>()(tag_); }

 private:
  const zt::detail::SelectorTag* tag_ = nullptr;
};

template <auto Method>
  requires std::is_member_function_pointer_v<decltype(Method)>
inline constexpr ZTSelector ZTSelectorOf{&zt::detail::SelectorFor<Method>::tag};

template <>
struct std::hash<ZTSelector> {
  std::size_t operator()(ZTSelector selector) const { return selector.hash(); }
};
