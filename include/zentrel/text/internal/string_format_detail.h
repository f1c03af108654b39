#pragma once
// How the format engine of zentrel/text/string_format.h reads its arguments: what kind of value
// each argument type is (point, size, rectangle, range, integer, text, ...), and the extraction of
// one kind from a type-erased argument. Included by that header; not an interface of its own, and
// its names (namespace zt::format_detail) may change at any time.
//
// Every argument type gets one instantiation of extract<T>; a conversion that asks for a kind the
// type is not answers false, and the engine turns that into ZTFormatException. What a type can be
// is decided once, by canBe<Want, T>(), which both extract<T> and the compile-time check of
// literal formats (checkFormat) use; both read a format with the same parser, classify().

#include <concepts>
#include <cstddef>
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
concept NestedRectLike = requires(const T& v) {
  requires PointLike<std::remove_cvref_t<decltype(v.origin)>>;
  requires SizeLike<std::remove_cvref_t<decltype(v.size)>>;
};

template <class T>
concept FlatRectLike = requires(const T& v) {
  { v.x } -> std::convertible_to<double>;
  { v.y } -> std::convertible_to<double>;
  { v.width } -> std::convertible_to<double>;
  { v.height } -> std::convertible_to<double>;
};

template <class T>
concept RectLike = NestedRectLike<T> || FlatRectLike<T>;

template <class T>
concept RangeLike = requires(const T& v) {
  { v.location } -> std::convertible_to<std::uint64_t>;
  { v.length } -> std::convertible_to<std::uint64_t>;
};

template <class T>
concept CharacterType = std::same_as<T, char> || std::same_as<T, signed char> || std::same_as<T, unsigned char> ||
    std::same_as<T, char8_t> || std::same_as<T, char16_t> || std::same_as<T, char32_t> || std::same_as<T, wchar_t>;

// A fixed-size array of char: a text of at most its extent (up to the first NUL).
template <class T>
concept CharArray = std::is_array_v<T> && std::same_as<std::remove_cv_t<std::remove_extent_t<T>>, char>;

template <class T>
concept CString = std::same_as<T, const char*> || std::same_as<T, char*>;

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

// Whether an argument of type U (without reference or cv) can be read as W.
template <Want W, class U>
constexpr bool canBe() {
  if constexpr (W == Want::Point)
    return PointLike<U>;
  else if constexpr (W == Want::Size)
    return SizeLike<U>;
  else if constexpr (W == Want::Rect)
    return RectLike<U>;
  else if constexpr (W == Want::Range)
    return RangeLike<U>;
  else if constexpr (W == Want::Signed || W == Want::Unsigned)
    return std::is_integral_v<U> || std::is_enum_v<U>;
  else if constexpr (W == Want::Double)
    return std::is_arithmetic_v<U> && !std::is_same_v<U, bool>;
  else if constexpr (W == Want::Text)
    return CharArray<U> || CString<U> || std::is_same_v<U, std::nullptr_t> ||
           std::is_convertible_v<const U&, std::string_view>;
  else if constexpr (W == Want::Pointer)
    return std::is_pointer_v<U> || std::is_array_v<U> || std::is_same_v<U, std::nullptr_t> || SmartPointer<U>::value;
  else if constexpr (W == Want::Character)
    return std::is_integral_v<U> && !std::is_same_v<U, bool>;
  else
    return true;  // Object and ClassName: any value
}

template <class U>
constexpr bool accepts(Want want) {
  switch (want) {
    case Want::Point:
      return canBe<Want::Point, U>();
    case Want::Size:
      return canBe<Want::Size, U>();
    case Want::Rect:
      return canBe<Want::Rect, U>();
    case Want::Range:
      return canBe<Want::Range, U>();
    case Want::Signed:
      return canBe<Want::Signed, U>();
    case Want::Unsigned:
      return canBe<Want::Unsigned, U>();
    case Want::Double:
      return canBe<Want::Double, U>();
    case Want::Text:
      return canBe<Want::Text, U>();
    case Want::Pointer:
      return canBe<Want::Pointer, U>();
    case Want::Character:
      return canBe<Want::Character, U>();
    case Want::Object:
    case Want::ClassName:
      return true;
  }
  return false;
}

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
  else if constexpr (CharArray<U> || CString<U>)
    return "const char*";
  else
    return ZTDemangledTypeName(typeid(U));
}

template <class T>
std::string describe(const T& v);

template <CharArray A>
std::string_view boundedText(const A& text) {
  const std::size_t extent = std::extent_v<A>;
  const char* begin = static_cast<const char*>(text);
  std::size_t length = 0;
  while (length < extent && begin[length] != '\0') ++length;
  return std::string_view(begin, length);
}

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
  if constexpr (CharArray<U>)
    return std::string(boundedText(v));
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
      if constexpr (canBe<Want::Point, U>()) {
        out.d[0] = static_cast<double>(v.x);
        out.d[1] = static_cast<double>(v.y);
        return true;
      }
      return false;
    case Want::Size:
      if constexpr (canBe<Want::Size, U>()) {
        out.d[0] = static_cast<double>(v.width);
        out.d[1] = static_cast<double>(v.height);
        return true;
      }
      return false;
    case Want::Rect:
      if constexpr (NestedRectLike<U>) {
        out.d[0] = static_cast<double>(v.origin.x);
        out.d[1] = static_cast<double>(v.origin.y);
        out.d[2] = static_cast<double>(v.size.width);
        out.d[3] = static_cast<double>(v.size.height);
        return true;
      } else if constexpr (FlatRectLike<U>) {
        out.d[0] = static_cast<double>(v.x);
        out.d[1] = static_cast<double>(v.y);
        out.d[2] = static_cast<double>(v.width);
        out.d[3] = static_cast<double>(v.height);
        return true;
      }
      return false;
    case Want::Range:
      if constexpr (canBe<Want::Range, U>()) {
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
      if constexpr (canBe<Want::Double, U>()) {
        out.d[0] = static_cast<double>(v);
        return true;
      }
      return false;
    case Want::Text:
      if constexpr (CharArray<U>) {
        out.text = boundedText(v);
        return true;
      } else if constexpr (CString<U>) {
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
      if constexpr (canBe<Want::Character, U>()) {
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

// ---- Reading a format ----------------------------------------------------------------------

// Widths and precisions above this are refused (a typo such as "%999999999d" would otherwise ask
// for gigabytes of padding).
inline constexpr int kMaxWidth = 1 << 20;

enum class PieceKind : unsigned char {
  Table,       // one of the library's own conversions, by prefix ("point", "d", "@"...)
  Printf,      // a printf conversion with flags, width, precision and length modifiers
  Literal,     // no conversion at all ("%!"): copied with its "%", takes no argument
  Positional,  // "%1$d": refused
  Count,       // "%n": refused
  TooLarge,    // a written width or precision above kMaxWidth: refused
};

// What one piece of a format (the text after a "%" up to the next one, never empty) asks for.
struct Piece {
  PieceKind kind = PieceKind::Literal;
  Want want = Want::Object;
  std::size_t length = 0;  // characters the conversion takes; the rest of the piece is text
  char conversion = 0;     // Printf: the conversion letter
  bool leftAlign = false, plusSign = false, spaceSign = false, alternate = false, zeroPad = false;
  bool widthFromArgument = false, precisionFromArgument = false;
  int width = -1, precision = -1;
};

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

// Digits at `i`, capped just above kMaxWidth; false when there are none.
constexpr bool parseNumber(std::string_view piece, std::size_t& i, int& number) {
  const std::size_t start = i;
  long long value = 0;
  while (i < piece.size() && isDigit(piece[i])) {
    if (value <= kMaxWidth) value = value * 10 + (piece[i] - '0');
    ++i;
  }
  number = static_cast<int>(value <= kMaxWidth ? value : kMaxWidth + 1);
  return i > start;
}

// The table prefixes in the order that decides between them ("frame" before "f", "class" before
// "c", "size" before "s", "point" before "p", "lld" after "d" and "u"): prefixes with different
// first characters never compete, so the first character picks the candidates.
constexpr bool tablePrefix(std::string_view piece, Piece& out) {
  auto match = [&](std::string_view prefix, Want want) {
    if (!piece.starts_with(prefix)) return false;
    out.kind = PieceKind::Table;
    out.want = want;
    out.length = prefix.size();
    return true;
  };
  switch (piece.front()) {
    case 'p':
      return match("point", Want::Point) || match("p", Want::Pointer);
    case 's':
      return match("size", Want::Size) || match("s", Want::Text);
    case 'r':
      return match("rect", Want::Rect) || match("range", Want::Range);
    case 'f':
      return match("frame", Want::Rect) || match("f", Want::Double);
    case 'c':
      return match("class", Want::ClassName) || match("c", Want::Character);
    case '@':
      return match("@", Want::Object);
    case 'd':
      return match("d", Want::Signed);
    case 'u':
      return match("u", Want::Unsigned);
    case 'l':
      return match("lld", Want::Signed);
    default:
      return false;
  }
}

constexpr Want wantOfPrintfConversion(char conversion) {
  switch (conversion) {
    case 'd':
    case 'i':
    case 'D':
      return Want::Signed;
    case 'u':
    case 'U':
    case 'o':
    case 'O':
    case 'x':
    case 'X':
      return Want::Unsigned;
    case 'c':
    case 'C':
      return Want::Character;
    case 's':
    case 'S':
      return Want::Text;
    case 'p':
      return Want::Pointer;
    case '@':
      return Want::Object;
    default:
      return Want::Double;  // e E f F g G a A
  }
}

constexpr Piece classify(std::string_view piece) {
  Piece out;
  if (piece.empty() || tablePrefix(piece, out)) return out;
  std::size_t i = 0;
  {
    int ignored = 0;
    if (parseNumber(piece, i, ignored) && i < piece.size() && piece[i] == '$') {
      out.kind = PieceKind::Positional;
      out.length = i + 1;
      return out;
    }
    i = 0;
  }
  for (; i < piece.size() && isOneOf(piece[i], "-+ #0'"); ++i) {
    switch (piece[i]) {
      case '-':
        out.leftAlign = true;
        break;
      case '+':
        out.plusSign = true;
        break;
      case ' ':
        out.spaceSign = true;
        break;
      case '#':
        out.alternate = true;
        break;
      case '0':
        out.zeroPad = true;
        break;
      default:
        break;  // "'": digit grouping, which a locale-independent engine never does
    }
  }
  if (i < piece.size() && piece[i] == '*') {
    out.widthFromArgument = true;
    ++i;
  } else {
    int width = 0;
    if (parseNumber(piece, i, width)) out.width = width;
  }
  if (i < piece.size() && piece[i] == '.') {
    ++i;
    if (i < piece.size() && piece[i] == '*') {
      out.precisionFromArgument = true;
      ++i;
    } else {
      out.precision = 0;
      parseNumber(piece, i, out.precision);
    }
  }
  while (i < piece.size() && isOneOf(piece[i], "hlqLjzt")) ++i;
  if (i >= piece.size() || !isOneOf(piece[i], "diouxXeEfFgGaAcCsSpn@DUO")) {
    out = Piece{};
    return out;  // Literal
  }
  out.conversion = piece[i];
  out.length = i + 1;
  if (out.conversion == 'n') {
    out.kind = PieceKind::Count;
  } else if (out.width > kMaxWidth || out.precision > kMaxWidth) {
    out.kind = PieceKind::TooLarge;
  } else {
    out.kind = PieceKind::Printf;
    out.want = wantOfPrintfConversion(out.conversion);
  }
  return out;
}

// ---- Checking a literal format against the argument types ---------------------------------

enum class FormatProblem {
  None,
  TooFewArguments,          // a conversion has no argument left
  WrongArgument,            // an argument's type cannot be what its conversion needs
  TooManyArguments,         // arguments left over at the end
  ConversionAfterPercents,  // "%%" directly followed by a conversion ("50%% done" reads "% d")
  Positional,               // "%1$d"
  Count,                    // "%n"
  TooLarge,                 // a width or precision above kMaxWidth
};

struct FormatCheck {
  FormatProblem problem = FormatProblem::None;
  std::size_t argument = 0;  // 1-based, for TooFewArguments and WrongArgument
  std::size_t offset = 0;    // where in the format the conversion starts (its "%")
};

template <class... Args>
constexpr bool argumentAccepts(std::size_t index, Want want) {
  std::size_t i = 0;
  bool accepted = false;
  (void)want;  // unused when there are no arguments
  (void)((i++ == index ? (accepted = accepts<std::remove_cvref_t<Args>>(want), true) : false) || ...);
  return accepted;
}

// Reads the format as the engine does and answers the first problem the argument types make
// certain. "%%" followed by a conversion is accepted at run time (the piece after an empty one is
// still a conversion) but is almost always a literal percent sign that swallowed the text after
// it, so a literal format may not have it.
template <class... Args>
constexpr FormatCheck checkFormat(std::string_view format) {
  constexpr std::size_t count = sizeof...(Args);
  std::size_t next = 0;
  bool afterPercents = false;
  std::size_t percent = format.find('%');
  while (percent != std::string_view::npos) {
    const std::size_t begin = percent + 1;
    const std::size_t end = format.find('%', begin);
    const std::string_view piece = format.substr(begin, end == std::string_view::npos ? std::string_view::npos : end - begin);
    const std::size_t at = percent;
    percent = end;
    if (piece.empty()) {
      afterPercents = end != std::string_view::npos;
      continue;
    }
    const Piece p = classify(piece);
    if (afterPercents && p.kind != PieceKind::Literal) return {FormatProblem::ConversionAfterPercents, 0, at};
    afterPercents = false;
    auto take = [&](Want want) -> FormatCheck {
      if (next >= count) return {FormatProblem::TooFewArguments, next + 1, at};
      if (!argumentAccepts<Args...>(next, want)) return {FormatProblem::WrongArgument, next + 1, at};
      ++next;
      return {};
    };
    FormatCheck problem;
    switch (p.kind) {
      case PieceKind::Literal:
        break;
      case PieceKind::Positional:
        return {FormatProblem::Positional, 0, at};
      case PieceKind::Count:
        return {FormatProblem::Count, 0, at};
      case PieceKind::TooLarge:
        return {FormatProblem::TooLarge, 0, at};
      case PieceKind::Table:
        problem = take(p.want);
        break;
      case PieceKind::Printf:
        if (p.widthFromArgument && (problem = take(Want::Signed)).problem != FormatProblem::None) break;
        if (p.precisionFromArgument && (problem = take(Want::Signed)).problem != FormatProblem::None) break;
        problem = take(p.want);
        break;
    }
    if (problem.problem != FormatProblem::None) return problem;
  }
  if (next < count) return {FormatProblem::TooManyArguments, next + 1, format.size()};
  return {};
}

// Never defined: a literal format that fails its check calls one of these while it is evaluated at
// compile time, which makes the call a compile error whose message names the problem.
void theFormatHasMoreConversionsThanArguments();
void anArgumentDoesNotMatchItsConversion();
void theFormatHasFewerConversionsThanArguments();
void percentPercentIsFollowedByAConversion_writeThePercentSignAsAnArgument();
void positionalConversionsAreNotSupported();
void theConversionPercentNIsNotSupported();
void aWidthOrPrecisionIsAboveOneMebibyte();

constexpr void reportAtCompileTime(const FormatCheck& check) {
  switch (check.problem) {
    case FormatProblem::None:
      return;
    case FormatProblem::TooFewArguments:
      theFormatHasMoreConversionsThanArguments();
      return;
    case FormatProblem::WrongArgument:
      anArgumentDoesNotMatchItsConversion();
      return;
    case FormatProblem::TooManyArguments:
      theFormatHasFewerConversionsThanArguments();
      return;
    case FormatProblem::ConversionAfterPercents:
      percentPercentIsFollowedByAConversion_writeThePercentSignAsAnArgument();
      return;
    case FormatProblem::Positional:
      positionalConversionsAreNotSupported();
      return;
    case FormatProblem::Count:
      theConversionPercentNIsNotSupported();
      return;
    case FormatProblem::TooLarge:
      aWidthOrPrecisionIsAboveOneMebibyte();
      return;
  }
}

}  // namespace zt::format_detail
