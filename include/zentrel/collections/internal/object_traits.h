#pragma once
// Helpers shared by the collection templates: what "nil", "the very same object" and "equal"
// mean for an element type.

#include <concepts>
#include <memory>
#include <optional>
#include <type_traits>

namespace zt::detail {

template <class T>
struct IsSharedPtr : std::false_type {};
template <class T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

// Pointer-like elements (raw pointers, shared_ptr, optional) can be nil; other values never are.
template <class T>
bool isNil(const T& value) {
  if constexpr (std::is_pointer_v<T> || IsSharedPtr<T>::value) return value == nullptr;
  else if constexpr (IsOptional<T>::value) return !value.has_value();
  else return false;
}

// Identity: for pointer-like elements the same pointer; for values, equality where the type has
// it (two equal values are interchangeable), otherwise never.
template <class T>
bool isSameObject(const T& a, const T& b) {
  if constexpr (std::is_pointer_v<T> || IsSharedPtr<T>::value) return a == b;
  else if constexpr (std::equality_comparable<T>) return a == b;
  else return false;
}

// Object equality: pointees compared with == when they have it (identity otherwise); values with ==.
template <class T>
bool isEqualObject(const T& a, const T& b) {
  if constexpr (std::is_pointer_v<T> || IsSharedPtr<T>::value) {
    if (a == b) return true;
    if (a == nullptr || b == nullptr) return false;
    using Pointee = std::remove_cvref_t<decltype(*a)>;
    if constexpr (std::equality_comparable<Pointee>) return *a == *b;
    else return false;
  } else if constexpr (std::equality_comparable<T>) {
    return a == b;
  } else {
    return false;
  }
}

// The equality a keyed container uses for its values when the caller names none: shared_ptr values
// by their pointees' == (the same pointer being equal, two nulls too), or by identity when the
// pointee has no ==; every other type by its own ==, so raw pointers compare by address.
struct EqualObjects {
  template <class T>
  bool operator()(const T& a, const T& b) const {
    if constexpr (IsSharedPtr<T>::value) {
      if (a == b) return true;
      if (a == nullptr || b == nullptr) return false;
      using Pointee = std::remove_cvref_t<decltype(*a)>;
      if constexpr (std::equality_comparable<Pointee>) return *a == *b;
      else return false;
    } else {
      return a == b;
    }
  }
};

}  // namespace zt::detail
