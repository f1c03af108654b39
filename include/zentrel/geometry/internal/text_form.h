#pragma once
// The text forms of the geometry values ("{x, y}", "{{x, y}, {w, h}}", "[a, b, c, d, tx, ty]"...),
// written inline so that streaming or formatting a value needs its header only, and the std::format
// support built on them. Included by the value headers; not an interface of its own, and its names
// (namespace zt::geometry_detail) may change at any time. ZTStringFrom... in geometry_value.h is
// the interface.
//
// Numbers are the shortest text that reads back to the same double (std::to_chars): "0.1",
// "1e+300", "inf", "-inf", "nan". Locale-independent.
//
// Each value header defines its textForm overload, an operator<< (a template over the stream's
// traits, so that no header needs more than <iosfwd>; it is instantiated where a stream is used)
// and, where the standard library has <format> and says so with __cpp_lib_format, a std::formatter
// specialisation. GCC 12's library has no <format>: there only operator<< exists.

#include <charconv>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <version>

#if defined(__cpp_lib_format)
#include <format>
#endif

namespace zt::geometry_detail {

inline void appendNumber(std::string& out, double value) {
  char buffer[32];
  const auto written = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, written.ptr);
}

// The numbers between `open` and `close`, separated by ", ".
inline void appendList(std::string& out, char open, std::initializer_list<double> values, char close) {
  out.push_back(open);
  bool first = true;
  for (double value : values) {
    if (!first) out += ", ";
    appendNumber(out, value);
    first = false;
  }
  out.push_back(close);
}

// "{{a, b}, {c, d}}": two pairs, as a rectangle (origin, size) or a line (start, end) is written.
inline std::string pairOfPairs(double a, double b, double c, double d) {
  std::string out;
  out.push_back('{');
  appendList(out, '{', {a, b}, '}');
  out += ", ";
  appendList(out, '{', {c, d}, '}');
  out.push_back('}');
  return out;
}

#if defined(__cpp_lib_format)
// A formatter for T that writes Form(value) with the standard text options (fill, alignment, width):
// std::format("{:>20}", point).
template <class T, std::string (*Form)(const T&)>
struct TextFormFormatter {
  mutable std::formatter<std::string_view> text;
  constexpr auto parse(std::format_parse_context& context) { return text.parse(context); }
  template <class Context>
  auto format(const T& value, Context& context) const {
    const std::string form = Form(value);
    return text.format(std::string_view(form), context);
  }
};
#endif

}  // namespace zt::geometry_detail
