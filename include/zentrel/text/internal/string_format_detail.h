#pragma once
// How the format engine of zentrel/text/string_format.h reads its arguments: what kind of value
// each argument type is (point, size, rectangle, range, integer, text, ...), and the extraction of
// one kind from a type-erased argument. Included by that header; not an interface of its own, and
// its names (namespace zt::format_detail) may change at any time.
//
// Every argument type gets one instantiation of extract<T>; a conversion that asks for a kind the
// type is not answers false, and the engine turns that into ZTFormatException.

#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

namespace zt::format_detail {

template <class T>
concept PointLike = requires(const T& v) {
  { v.x } -> std::convertible_to<double>;
  { v.y } -> std::convertible_to<double>;
}
&&!requires(const T& v) { v.width; };

template <class T>
concept SizeLike = requires(const T& v) {
  { v.width } -> std::convertible_to<double>;
  { v.height } -> std::convertible_to<double>;
}
&&!requires(const T& v) { v.x; };

template <class T>
concept RectLike = requires(const T& v) {
  requires PointLike<std::remove_cvref_t<decltype(v.origin)>>;
  requires SizeLike<std::remove_cvref_t<decltype(v.size)>>;
}
|| requires(const T& v) {
  { v.x } -> std::convertible_to<double>;
  { v.y } -> std::convertible_to<double>;
  { v.width } -> std::convertible_to<double>;
  { v.height } -> std::convertible_to<double>;
};

template <class T>
concept RangeLike = requires(const T& v) {
  { v.location } -> std::convertible_to<std::uint64_t>;
  { v.length } -> std::convertible_to<std::uint64_t>;
};

template <class T>
concept CharacterType = std::same_as<T, char> || std::same_as<T, signed char> || std::same_as<T, unsigned char> ||
    std::same_as<T, char8_t> || std::same_as<T, char16_t> || std::same_as<T, char32_t> || std::same_as<T, wchar_t>;

template <class T>
concept HasDescription = requires(const T& v) {
  { v.description() } -> std::convertible_to<std::string>;
};

template <class T>
concept Streamable = requires(std::ostream& os, const T& v) {
  os << v;
};

template <class T>
struct SmartPointer : std::false_type {};
template <class U>
struct SmartPointer<std::shared_ptr<U>> : std::true_type {
  using element = U;
};
template <class U, class D>
struct SmartPointer<std::unique_ptr<U, D>> : std::true_type {
  using element = U;
};

enum class Want { Point, Size, Rect, Range, Signed, Unsigned, Double, Text, Pointer, Character, Object, ClassName };

// What a conversion reads from an argument.
struct Extracted {
  double d[4] = {0, 0, 0, 0};
  long long i = 0;
  unsigned long long u = 0;
  unsigned long long u2 = 0;
  bool isUnsignedValue = false;  // for Signed: the value did not fit in long long and is in u
  std::string_view text;
  std::string owned;  // Object and ClassName results, and texts that had to be built
  bool useOwned = false;
  const void* pointer = nullptr;
  char32_t character = 0;
};

// Out of line in the library, called from the templates below (so exported with them).
ZT_API std::string describePointer(std::string_view typeName, const void* address);
ZT_API std::string shortestNumber(double value);
ZT_API std::string integerText(long long value);
ZT_API std::string unsignedText(unsigned long long value);

template <class T>
std::string typeName() {
  using U = std::remove_cv_t<T>;
  if constexpr (std::is_same_v<U, std::string>)
    return "std::string";
  else if constexpr (std::is_same_v<U, std::string_view>)
    return "std::string_view";
  else if constexpr (std::is_array_v<U> || std::is_same_v<U, const char*> || std::is_same_v<U, char*>)
    return "const char*";
  else
    return ZTDemangledTypeName(typeid(U));
}

template <class T>
std::string describe(const T& v);

template <class T>
std::string describeTarget(const T* p) {
  if (!p) return "(null)";
  if constexpr (std::is_void_v<T> || std::is_function_v<T>)
    return describePointer("void", p);
  else
    return describe(*p);
}

template <class T>
std::string describe(const T& v) {
  using U = std::remove_cv_t<T>;
  if constexpr (std::is_array_v<U>)
    return std::string(static_cast<const char*>(v));
  else if constexpr (std::is_same_v<U, std::nullptr_t>)
    return "(null)";
  else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>)
    return v ? std::string(v) : "(null)";
  else if constexpr (std::is_convertible_v<const U&, std::string_view>)
    return std::string(std::string_view(v));
  else if constexpr (std::is_same_v<U, bool>)
    return v ? "1" : "0";
  else if constexpr (CharacterType<U>)
    return integerText(static_cast<long long>(v));
  else if constexpr (std::is_integral_v<U> && std::is_signed_v<U>)
    return integerText(v);
  else if constexpr (std::is_integral_v<U>)
    return unsignedText(v);
  else if constexpr (std::is_floating_point_v<U>)
    return shortestNumber(static_cast<double>(v));
  else if constexpr (std::is_same_v<U, ZTValue>)
    return v.isString() ? *v.template getIf<std::string>() : v.description();
  else if constexpr (std::is_pointer_v<U>)
    return describeTarget(v);
  else if constexpr (SmartPointer<U>::value)
    return describeTarget(v.get());
  else if constexpr (HasDescription<U>)
    return std::string(v.description());
  else if constexpr (Streamable<U>) {
    std::ostringstream stream;
    stream << v;
    return stream.str();
  } else if constexpr (std::is_polymorphic_v<U>)
    return describePointer(ZTDemangledTypeName(typeid(v)), &v);
  else
    return describePointer(typeName<U>(), &v);
}

template <class T>
std::string className(const T& v) {
  using U = std::remove_cv_t<T>;
  if constexpr (std::is_same_v<U, std::nullptr_t>)
    return "(null)";
  else if constexpr (std::is_pointer_v<U> && !std::is_same_v<U, const char*> && !std::is_same_v<U, char*> &&
                     !std::is_void_v<std::remove_pointer_t<U>> && !std::is_function_v<std::remove_pointer_t<U>>) {
    return v ? ZTDebugClassNameForObject(v) : "(null)";
  } else if constexpr (SmartPointer<U>::value) {
    return v ? ZTDebugClassNameForObject(v.get()) : "(null)";
  } else if constexpr (std::is_polymorphic_v<U>)
    return ZTDemangledTypeName(typeid(v));
  else
    return typeName<U>();
}

template <class T>
bool extract(const void* value, Want want, Extracted& out) {
  using U = std::remove_cv_t<T>;
  const U& v = *static_cast<const U*>(value);
  switch (want) {
    case Want::Point:
      if constexpr (PointLike<U>) {
        out.d[0] = static_cast<double>(v.x);
        out.d[1] = static_cast<double>(v.y);
        return true;
      }
      return false;
    case Want::Size:
      if constexpr (SizeLike<U>) {
        out.d[0] = static_cast<double>(v.width);
        out.d[1] = static_cast<double>(v.height);
        return true;
      }
      return false;
    case Want::Rect:
      if constexpr (requires {
                      v.origin.x;
                      v.size.width;
                    }) {
        out.d[0] = static_cast<double>(v.origin.x);
        out.d[1] = static_cast<double>(v.origin.y);
        out.d[2] = static_cast<double>(v.size.width);
        out.d[3] = static_cast<double>(v.size.height);
        return true;
      } else if constexpr (RectLike<U>) {
        out.d[0] = static_cast<double>(v.x);
        out.d[1] = static_cast<double>(v.y);
        out.d[2] = static_cast<double>(v.width);
        out.d[3] = static_cast<double>(v.height);
        return true;
      }
      return false;
    case Want::Range:
      if constexpr (RangeLike<U>) {
        out.u = static_cast<std::uint64_t>(v.location);
        out.u2 = static_cast<std::uint64_t>(v.length);
        return true;
      }
      return false;
    case Want::Signed:
      if constexpr (std::is_integral_v<U>) {
        if constexpr (std::is_unsigned_v<U> && sizeof(U) >= sizeof(long long)) {
          if (v > static_cast<U>(std::numeric_limits<long long>::max())) {
            out.u = v;
            out.isUnsignedValue = true;
            return true;
          }
        }
        out.i = static_cast<long long>(v);
        return true;
      } else if constexpr (std::is_enum_v<U>) {
        out.i = static_cast<long long>(v);
        return true;
      }
      return false;
    case Want::Unsigned:
      if constexpr (std::is_same_v<U, bool>) {
        out.u = v ? 1 : 0;
        return true;
      } else if constexpr (std::is_integral_v<U>) {
        out.u = static_cast<unsigned long long>(static_cast<std::make_unsigned_t<U>>(v));
        return true;
      } else if constexpr (std::is_enum_v<U>) {
        out.u = static_cast<unsigned long long>(
            static_cast<std::make_unsigned_t<std::underlying_type_t<U>>>(static_cast<std::underlying_type_t<U>>(v)));
        return true;
      }
      return false;
    case Want::Double:
      if constexpr (std::is_arithmetic_v<U> && !std::is_same_v<U, bool>) {
        out.d[0] = static_cast<double>(v);
        return true;
      }
      return false;
    case Want::Text:
      if constexpr (std::is_array_v<U>) {
        out.text = static_cast<const char*>(v);
        return true;
      } else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) {
        out.text = v ? std::string_view(v) : std::string_view("(null)");
        return true;
      } else if constexpr (std::is_same_v<U, std::nullptr_t>) {
        out.text = "(null)";
        return true;
      } else if constexpr (std::is_convertible_v<const U&, std::string_view>) {
        out.text = std::string_view(v);
        return true;
      }
      return false;
    case Want::Pointer:
      if constexpr (std::is_pointer_v<U>) {
        out.pointer = reinterpret_cast<const void*>(v);
        return true;
      } else if constexpr (std::is_array_v<U>) {
        out.pointer = static_cast<const void*>(v);
        return true;
      } else if constexpr (std::is_same_v<U, std::nullptr_t>) {
        out.pointer = nullptr;
        return true;
      } else if constexpr (SmartPointer<U>::value) {
        out.pointer = static_cast<const void*>(v.get());
        return true;
      }
      return false;
    case Want::Character:
      if constexpr (std::is_integral_v<U> && !std::is_same_v<U, bool>) {
        if constexpr (std::is_same_v<U, char> || std::is_same_v<U, signed char>) {
          out.character = static_cast<unsigned char>(v);
        } else if constexpr (std::is_signed_v<U>) {
          out.character = v < 0 || static_cast<unsigned long long>(v) > 0x10FFFF ? U'\uFFFD' : static_cast<char32_t>(v);
        } else {
          out.character = static_cast<unsigned long long>(v) > 0x10FFFF ? U'\uFFFD' : static_cast<char32_t>(v);
        }
        return true;
      }
      return false;
    case Want::Object:
      out.owned = describe(v);
      out.useOwned = true;
      return true;
    case Want::ClassName:
      out.owned = className(v);
      out.useOwned = true;
      return true;
  }
  return false;
}

}  // namespace zt::format_detail
