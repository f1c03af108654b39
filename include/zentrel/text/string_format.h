#pragma once
// The library's own small format engine: printf-like formatting that also knows geometry values,
// ranges, class names and objects, checked against the types of the arguments actually passed.
//
//   zt::copyZentrelStringWithFormat("%point at %d%%", point, 7)  ->  "(1.000000, 2.000000) at 7%"
//
// The format is split at every "%". The text before the first "%" is copied. Each later piece is
// matched by prefix, in this order, and the first match consumes one argument, appends its text
// and then the rest of the piece:
//
//   %point  a point (x, y)                  "(%f, %f)"
//   %size   a size (width, height)          "%fx%f"
//   %rect   a rectangle                      "[(%f, %f) %fx%f]"   (origin x, y, width, height)
//   %frame  a rectangle                      the same
//   %range  a range (location, length)      "[%lu +%lu]"
//   %class  any value                        its class (type) name
//   %@      any value                        its description
//   %d      an integer                       decimal
//   %u      an integer                       decimal, unsigned (a negative value wraps at the
//                                            width of its own type, as C does)
//   %lld    an integer                       decimal
//   %f      a number                         "%f"
//   %p      a pointer                        "0x" and lower-case hex; a null pointer is "0x0"
//   %s      a C string or string             the text; a null C string is "(null)"
//   %c      a character or integer           the character, as UTF-8
//
// So "%frame" wins over "%f", "%class" over "%c", "%size" over "%s", and "%ld" or "%lu" are not
// table conversions. "%%" gives "%", except at the very end of the format, where a lone "%" prints
// nothing; the piece after "%%" is still matched, so "%%d" gives "%" and a formatted integer. A
// piece that matches no prefix is one printf conversion with its flags, width and precision
// ("%5.2f", "%-8s", "%08x", "%ld", "%*d"): it consumes the arguments it names (one per "*" plus
// one for the value) and its whole text is replaced by the result. A piece that is no printf
// conversion at all ("%!") is copied as it stands, "%" included, and consumes nothing.
//
// The engine writes every conversion itself, the same in every locale: the decimal point is
// always ".", there is no digit grouping (the "'" flag is accepted and does nothing), whatever
// setlocale() says. Numbers are written as the C library writes them in the "C" locale ("%e",
// "%g", "%a" and their flags included). Widths and precisions of texts (%s, %@, %c, %p) count
// UTF-16 code units, the library's unit of string length, and a precision never cuts a character:
// "%.1@" of "éa" is "é", "%.1@" of an emoji is empty, "%4@" of an emoji adds two spaces. Texts are
// copied as they are, embedded NULs and invalid UTF-8 included (an invalid sequence counts one
// unit). Widths and precisions above 2^20 are refused.
//
// What counts as a point, size, rectangle or range: any type with public members x and y (point);
// width and height (size); origin and size, or x, y, width and height (rectangle); location and
// length (range). The library's geometry types and plain structs of the caller both qualify.
// Descriptions (%@): strings as they are, numbers as their shortest decimal text, ZTValue and any
// type with a description() member or an operator<< by those (the geometry values print their text
// forms, "{x, y}"); other types as "<Type: 0x...>"; null pointers as "(null)". Pointers and
// shared_ptrs are followed to the object they point to.
//
// Checking. A format written in the program (a string literal, or any constant expression) is
// checked against the argument types when the program is compiled, as std::format does: a
// conversion whose argument cannot be read as it needs, too few or too many arguments, "%n",
// positional conversions, a width above 2^20, and "%%" directly followed by a conversion are
// compile errors (the error names the problem, e.g. anArgumentDoesNotMatchItsConversion). The last
// rule catches "Progress: %d%% done", which this engine reads as "%" followed by the conversion
// "% d"; write the percent sign as an argument ("%d%s done", n, "%") or end the format with "%%".
// A format built at run time goes through zt::runtimeFormat(text) (or
// copyZentrelStringWithFormatArguments) and is checked when it is used: the same problems throw
// ZTFormatException, whose message names the format, the conversion and the argument, except
// "%%" before a conversion, which is then formatted as described above. Nothing is ever read past
// the arguments given, and a char array argument is read no further than its size.
//
// Stateless; may be called from any thread. The result belongs to the caller (hence "copy").

#include <concepts>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/export.h"
#include "zentrel/text/internal/string_format_detail.h"

// A format and its arguments did not agree. A programming error: the message says what was wrong.
class ZT_API ZTFormatException : public ZTInternalInconsistencyException {
 public:
  using ZTInternalInconsistencyException::ZTInternalInconsistencyException;
};

// One argument of the format engine: a reference to the caller's value and the knowledge of what
// its type can be formatted as. It refers to the value, so it must not outlive it; it is meant to
// be built in the call that formats.
class ZTFormatArgument {
 public:
  template <class T>
  ZTFormatArgument(const T& value)  // NOLINT: implicit on purpose, for brace lists of arguments
      : value_(static_cast<const void*>(std::addressof(value))),
        extract_(&zt::format_detail::extract<T>),
        typeName_(&zt::format_detail::typeName<T>) {}

  bool extract(zt::format_detail::Want want, zt::format_detail::Extracted& out) const {
    return extract_(value_, want, out);
  }
  std::string typeName() const { return typeName_(); }

 private:
  const void* value_;
  bool (*extract_)(const void*, zt::format_detail::Want, zt::format_detail::Extracted&);
  std::string (*typeName_)();
};

// A format known only at run time (read from a file, built from pieces), wrapped by
// zt::runtimeFormat so that copyZentrelStringWithFormat accepts it unchecked. It refers to the text,
// so it must not outlive it; it is meant to be built in the call that formats.
struct ZTRuntimeFormat {
  std::string_view text;
};

// The format parameter of copyZentrelStringWithFormat: a constant format checked against the
// argument types Args at compile time (see the top of this header), or a ZTRuntimeFormat.
template <class... Args>
class ZTFormatString {
 public:
  template <class Text>
    requires std::convertible_to<const Text&, std::string_view>
  consteval ZTFormatString(const Text& format)  // NOLINT: implicit on purpose, as std::format_string
      : text_(format) {
    zt::format_detail::reportAtCompileTime(zt::format_detail::checkFormat<Args...>(text_));
  }
  ZTFormatString(ZTRuntimeFormat format) noexcept : text_(format.text) {}  // NOLINT: implicit on purpose

  constexpr std::string_view get() const noexcept { return text_; }

 private:
  std::string_view text_;
};

namespace zt {

inline ZTRuntimeFormat runtimeFormat(std::string_view format) noexcept { return ZTRuntimeFormat{format}; }

// The engine over an argument list built by the caller (the counterpart of a va_list).
ZT_API std::string copyZentrelStringWithFormatArguments(std::string_view format,
                                                        std::span<const ZTFormatArgument> arguments);
inline std::string copyZentrelStringWithFormatArguments(std::string_view format,
                                                        std::initializer_list<ZTFormatArgument> arguments) {
  return copyZentrelStringWithFormatArguments(format,
                                              std::span<const ZTFormatArgument>(arguments.begin(), arguments.size()));
}

template <class... Args>
std::string copyZentrelStringWithFormat(ZTFormatString<std::type_identity_t<Args>...> format,
                                        const Args&... arguments) {
  if constexpr (sizeof...(Args) == 0) {
    return copyZentrelStringWithFormatArguments(format.get(), std::span<const ZTFormatArgument>());
  } else {
    const ZTFormatArgument list[] = {ZTFormatArgument(arguments)...};
    return copyZentrelStringWithFormatArguments(format.get(),
                                                std::span<const ZTFormatArgument>(list, sizeof...(Args)));
  }
}

}  // namespace zt
