#pragma once
// ZTSelector: the identity of one method of a delegate interface, so that a delegate can say which
// optional methods it implements and a proxy can mute a method per delegate.
//
// A selector is named by a pointer to the member function:
//   ZTSelectorOf<&DownloadDelegate::downloadDidProgress>
// Two selectors are equal exactly when they name the same member function (overloads are different
// methods), also when they were made in different shared objects: a plugin's delegate declares its
// methods with selectors the host's proxy recognises, whatever visibility either was built with.
// Selectors are small values (one pointer), hashable, usable as keys, and valid for the whole run of
// the program. The default-constructed selector names nothing.
//
// How: every shared object that names a method has its own tag for it (hidden visibility gives each
// one a private copy). Selectors of one shared object share that tag and compare by its address;
// tags of different shared objects are matched by the std::type_info of SelectorFor<Method>, which
// the C++ runtime compares by mangled name across shared objects. That name spells the member
// function in full: its class, its name and its parameter types and qualifiers.

#include <atomic>
#include <cstddef>
#include <functional>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "zentrel/platform/export.h"

namespace zt::detail {

struct SelectorTag {
  const std::type_info& type;
  std::string_view (*name)();
  // type.hash_code() once asked, 0 before: the hash reads the whole mangled name, so it is kept.
  // Every thread that computes it stores the same value.
  mutable std::atomic<std::size_t> cachedHash{0};

  std::size_t hash() const noexcept {
    std::size_t value = cachedHash.load(std::memory_order_relaxed);
    if (value == 0) {
      value = type.hash_code();
      if (value == 0) value = 1;
      cachedHash.store(value, std::memory_order_relaxed);
    }
    return value;
  }
  // The same method, for tags of different shared objects (the same tag is the same method).
  bool namesSameMethodAs(const SelectorTag& other) const noexcept {
    return hash() == other.hash() && type == other.type;
  }
};

// The member name out of a compiler's function signature text ("...Method = &A::b..." -> "A::b").
ZT_API std::string_view selectorNameFromSignature(std::string_view signature);

template <auto Method>
struct SelectorFor {
  static std::string_view name() {
    static const std::string_view parsed = selectorNameFromSignature(__PRETTY_FUNCTION__);
    return parsed;
  }
  static SelectorTag tag;
};

// Constant-initialised, so a selector is usable from any static initialiser.
template <auto Method>
constinit SelectorTag SelectorFor<Method>::tag{typeid(SelectorFor<Method>), &SelectorFor<Method>::name};

}  // namespace zt::detail

// The identity of one method of a delegate interface; a small value, compared and hashed cheaply.
class ZTSelector {
 public:
  constexpr ZTSelector() = default;
  constexpr explicit ZTSelector(const zt::detail::SelectorTag* tag) : tag_(tag) {}

  // "DownloadDelegate::downloadDidProgress"; empty for the null selector. For messages only.
  std::string_view name() const { return tag_ ? tag_->name() : std::string_view(); }
  constexpr bool isNull() const { return tag_ == nullptr; }

  friend constexpr bool operator==(ZTSelector a, ZTSelector b) {
    if (a.tag_ == b.tag_) return true;
    // Within one translation unit a method has exactly one tag.
    if (std::is_constant_evaluated() || !a.tag_ || !b.tag_) return false;
    return a.tag_->namesSameMethodAs(*b.tag_);
  }
  std::size_t hash() const { return tag_ ? tag_->hash() : 0; }

 private:
  const zt::detail::SelectorTag* tag_ = nullptr;
};

template <auto Method>
  requires std::is_member_function_pointer_v<decltype(Method)>
inline constexpr ZTSelector ZTSelectorOf{&zt::detail::SelectorFor<Method>::tag};

// Lets selectors key unordered containers.
template <>
struct std::hash<ZTSelector> {
  std::size_t operator()(ZTSelector selector) const { return selector.hash(); }
};
