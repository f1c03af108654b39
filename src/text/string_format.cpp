#include "zentrel/text/string_format.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

namespace zt::format_detail {

std::string describePointer(std::string_view typeName, const void* address) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%p", address);
  return "<" + std::string(typeName) + ": " + (address ? buffer : "0x0") + ">";
}

std::string shortestNumber(double value) {
  if (!std::isfinite(value)) return std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf");
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string integerText(long long value) { return std::to_string(value); }

std::string unsignedText(unsigned long long value) { return std::to_string(value); }

}  // namespace zt::format_detail

namespace zt {
namespace {

using format_detail::classify;
using format_detail::Extracted;
using format_detail::kMaxWidth;
using format_detail::Piece;
using format_detail::PieceKind;
using format_detail::Want;

const char* describeWant(Want want) {
  switch (want) {
    case Want::Point:
      return "a point (a value with members x and y)";
    case Want::Size:
      return "a size (a value with members width and height)";
    case Want::Rect:
      return "a rectangle (a value with members origin and size, or x, y, width and height)";
    case Want::Range:
      return "a range (a value with members location and length)";
    case Want::Signed:
      return "an integer";
    case Want::Unsigned:
      return "an integer";
    case Want::Double:
      return "a number";
    case Want::Text:
      return "a C string or string";
    case Want::Pointer:
      return "a pointer";
    case Want::Character:
      return "a character or integer";
    case Want::Object:
      return "a value";
    case Want::ClassName:
      return "a value";
  }
  return "a value";
}

template <class I>
void appendInteger(std::string& out, I value) {
  char buffer[24];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

void appendCodePoint(std::string& out, char32_t c) {
  if (c >= 0xD800 && c <= 0xDFFF) c = U'\uFFFD';
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// ---- printf conversions, written without the C library so that no locale applies ----------

// What a number directive writes, in order: a prefix (sign, "0x"), zeros that the precision asks
// for, the digits, a decimal point that "#" adds, and the exponent.
struct NumberText {
  std::string_view prefix;
  std::size_t zeros = 0;
  std::string_view digits;
  bool addPoint = false;
  std::string_view exponent;

  std::size_t size() const { return prefix.size() + zeros + digits.size() + (addPoint ? 1 : 0) + exponent.size(); }
};

// The number padded to the directive's width: spaces on the left, spaces on the right ("-"), or
// zeros after the prefix ("0", where `zerosAllowed`).
void appendPadded(std::string& out, const Piece& d, const NumberText& n, bool zerosAllowed) {
  const std::size_t length = n.size();
  const std::size_t padding =
      d.width > 0 && static_cast<std::size_t>(d.width) > length ? static_cast<std::size_t>(d.width) - length : 0;
  const bool zeroPadding = !d.leftAlign && d.zeroPad && zerosAllowed;
  if (!d.leftAlign && !zeroPadding) out.append(padding, ' ');
  out.append(n.prefix);
  out.append(n.zeros + (zeroPadding ? padding : 0), '0');
  out.append(n.digits);
  if (n.addPoint) out.push_back('.');
  out.append(n.exponent);
  if (d.leftAlign) out.append(padding, ' ');
}

// d i u o x X: the magnitude in its base, at least `precision` digits, with the sign or "0x".
void appendIntegerDirective(std::string& out, const Piece& d, bool negative, unsigned long long magnitude) {
  const char c = d.conversion;
  const bool isSigned = c == 'd' || c == 'i' || c == 'D';
  const int base = (c == 'o' || c == 'O') ? 8 : (c == 'x' || c == 'X') ? 16 : 10;
  char digits[64];
  char* end = std::to_chars(digits, digits + sizeof digits, magnitude, base).ptr;
  if (c == 'X') {
    for (char* p = digits; p != end; ++p) *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  }
  NumberText n;
  n.digits = std::string_view(digits, static_cast<std::size_t>(end - digits));
  if (d.precision == 0 && magnitude == 0) n.digits = {};
  if (d.precision > 0 && static_cast<std::size_t>(d.precision) > n.digits.size()) {
    n.zeros = static_cast<std::size_t>(d.precision) - n.digits.size();
  }
  if (base == 8 && d.alternate && n.zeros == 0 && (n.digits.empty() || n.digits.front() != '0')) n.zeros = 1;
  char prefix[3];
  std::size_t prefixLength = 0;
  if (isSigned && (negative || d.plusSign || d.spaceSign)) prefix[prefixLength++] = negative ? '-' : d.plusSign ? '+' : ' ';
  if (base == 16 && d.alternate && magnitude != 0) {
    prefix[prefixLength++] = '0';
    prefix[prefixLength++] = c;
  }
  n.prefix = std::string_view(prefix, prefixLength);
  appendPadded(out, d, n, d.precision < 0);
}

// Room for std::to_chars: on the stack for the usual precisions, on the heap for large ones.
class CharsBuffer {
 public:
  std::span<char> room(std::size_t size) {
    if (size <= sizeof small_) return {small_, size};
    large_.resize(size);
    return {large_.data(), size};
  }

 private:
  char small_[480];
  std::vector<char> large_;
};

std::span<char> toChars(CharsBuffer& buffer, double value, std::chars_format format, int precision,
                        std::size_t room) {
  const std::span<char> text = buffer.room(room + static_cast<std::size_t>(precision < 0 ? 0 : precision));
  char* const first = text.data();
  char* const last = first + text.size();
  const auto result = precision < 0 ? std::to_chars(first, last, value, format)
                                    : std::to_chars(first, last, value, format, precision);
  if (result.ec != std::errc()) throw ZTRangeException("A number did not fit the room reserved for its text");
  return text.first(static_cast<std::size_t>(result.ptr - first));
}

// e E f F g G a A of a double, as printf writes them in the "C" locale.
void appendDoubleDirective(std::string& out, const Piece& d, double value) {
  const bool upper = std::isupper(static_cast<unsigned char>(d.conversion)) != 0;
  const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(d.conversion)));
  char prefix[3];
  std::size_t prefixLength = 0;
  if (std::signbit(value) || d.plusSign || d.spaceSign) {
    prefix[prefixLength++] = std::signbit(value) ? '-' : d.plusSign ? '+' : ' ';
  }
  NumberText n;
  if (!std::isfinite(value)) {
    n.prefix = std::string_view(prefix, prefixLength);
    n.digits = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
    appendPadded(out, d, n, false);
    return;
  }
  const double magnitude = std::fabs(value);
  CharsBuffer buffer;
  std::span<char> written;
  char marker = 'e';
  if (c == 'f') {
    written = toChars(buffer, magnitude, std::chars_format::fixed, d.precision < 0 ? 6 : d.precision, 320);
  } else if (c == 'e') {
    written = toChars(buffer, magnitude, std::chars_format::scientific, d.precision < 0 ? 6 : d.precision, 16);
  } else if (c == 'g') {
    // Precision P (6 when absent, 1 when 0): with X the exponent of the value rounded to P
    // digits, fixed notation with P - 1 - X decimals when P > X >= -4, else scientific with P - 1;
    // then, without "#", trailing zeros and a trailing point go.
    const int significant = d.precision < 0 ? 6 : d.precision == 0 ? 1 : d.precision;
    written = toChars(buffer, magnitude, std::chars_format::scientific, significant - 1, 16);
    const std::string_view scientific(written.data(), written.size());
    const std::size_t e = scientific.find('e');
    int exponent = 0;
    std::from_chars(scientific.data() + e + (scientific[e + 1] == '+' ? 2 : 1),
                    scientific.data() + scientific.size(), exponent);
    if (significant > exponent && exponent >= -4) {
      written = toChars(buffer, magnitude, std::chars_format::fixed, significant - 1 - exponent, 320);
    }
  } else {  // 'a'
    marker = 'p';
    written = toChars(buffer, magnitude, std::chars_format::hex, d.precision, 32);
    prefix[prefixLength++] = '0';
    prefix[prefixLength++] = upper ? 'X' : 'x';
  }
  if (upper) {
    for (char& ch : written) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    marker = static_cast<char>(std::toupper(static_cast<unsigned char>(marker)));
  }
  const std::string_view text(written.data(), written.size());
  const std::size_t exponentAt = std::min(text.find(marker), text.size());
  n.prefix = std::string_view(prefix, prefixLength);
  n.digits = text.substr(0, exponentAt);
  n.exponent = text.substr(exponentAt);
  const bool hasPoint = n.digits.find('.') != std::string_view::npos;
  if (c == 'g' && !d.alternate && hasPoint) {
    while (n.digits.back() == '0') n.digits.remove_suffix(1);
    if (n.digits.back() == '.') n.digits.remove_suffix(1);
  }
  n.addPoint = d.alternate && !hasPoint;
  appendPadded(out, d, n, true);
}

// s S @ c C p: the text, cut to `precision` UTF-16 units without splitting a character, padded to
// `width` units. An invalid UTF-8 sequence counts as the one unit of U+FFFD and is copied as it is.
void appendTextDirective(std::string& out, const Piece& d, std::string_view text) {
  if (d.precision < 0 && d.width <= 0) {
    out.append(text);
    return;
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto size = static_cast<std::int64_t>(text.size());
  const std::size_t precision = d.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(d.precision);
  const std::size_t width = d.width < 0 ? 0 : static_cast<std::size_t>(d.width);
  std::size_t units = 0;
  std::int64_t kept = 0;
  // Stops at the precision, or at the width when there is no precision (the rest is kept whole).
  while (kept < size && (d.precision >= 0 || units < width)) {
    std::int64_t next = kept;
    UChar32 character;
    U8_NEXT(bytes, next, size, character);
    const std::size_t length = character > 0xFFFF ? 2 : 1;
    if (units + length > precision) break;
    units += length;
    kept = next;
  }
  if (d.precision < 0) kept = size;
  const std::size_t padding = width > units ? width - units : 0;
  const std::string_view body = text.substr(0, static_cast<std::size_t>(kept));
  if (!d.leftAlign) out.append(padding, ' ');
  out.append(body);
  if (d.leftAlign) out.append(padding, ' ');
}

// "%f" of the table conversions; the directive path for what needs more room than the usual.
void appendFixed(std::string& out, double value) {
  char buffer[64];
  if (std::fabs(value) < 1e40) {
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
    out.append(buffer, result.ptr);
    return;
  }
  Piece plain;
  plain.conversion = 'f';
  appendDoubleDirective(out, plain, value);
}

void appendPointer(std::string& out, const void* pointer) {
  if (!pointer) {
    out += "0x0";
    return;
  }
  char buffer[24];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, reinterpret_cast<std::uintptr_t>(pointer), 16);
  out += "0x";
  out.append(buffer, result.ptr);
}

class Engine {
 public:
  Engine(std::string_view format, std::span<const ZTFormatArgument> arguments)
      : format_(format), arguments_(arguments) {}

  std::string run() {
    out_.reserve(format_.size() * 2 + arguments_.size() * 16);
    std::size_t percent = format_.find('%');
    out_.append(format_.substr(0, percent));
    while (percent != std::string_view::npos) {
      const std::size_t begin = percent + 1;
      percent = format_.find('%', begin);
      const std::string_view piece =
          format_.substr(begin, percent == std::string_view::npos ? std::string_view::npos : percent - begin);
      const bool last = percent == std::string_view::npos;
      if (piece.empty()) {
        if (!last) out_.push_back('%');
        continue;
      }
      convert(piece);
    }
    if (next_ < arguments_.size()) {
      fail(std::to_string(arguments_.size()) + " arguments were given but the format uses only " +
           std::to_string(next_) + ".");
    }
    return std::move(out_);
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw ZTFormatException("Format \"" + std::string(format_) + "\": " + what);
  }

  void get(Want want, std::string_view conversion, Extracted& value) {
    if (next_ >= arguments_.size()) {
      fail("the conversion %" + std::string(conversion) + " needs argument " + std::to_string(next_ + 1) +
           ", but only " + std::to_string(arguments_.size()) + " were given.");
    }
    const ZTFormatArgument& argument = arguments_[next_++];
    if (!argument.extract(want, value)) {
      fail("the conversion %" + std::string(conversion) + " needs " + describeWant(want) + " as argument " +
           std::to_string(next_) + ", but was given " + argument.typeName() + ".");
    }
  }

  void appendText(const Extracted& value) {
    if (value.useOwned)
      out_ += value.owned;
    else
      out_.append(value.text);
  }

  void convert(std::string_view piece) {
    const Piece p = classify(piece);
    const std::string_view conversion = piece.substr(0, p.length);
    switch (p.kind) {
      case PieceKind::Literal:
        out_.push_back('%');
        out_.append(piece);
        return;
      case PieceKind::Positional:
        fail("positional conversions such as %" + std::string(conversion) + " are not supported.");
      case PieceKind::Count:
        fail("the conversion %n is not supported.");
      case PieceKind::TooLarge:
        fail("the width or precision of %" + std::string(conversion) + " is too large.");
      case PieceKind::Table:
        tableConversion(p, conversion);
        break;
      case PieceKind::Printf:
        printfConversion(p, conversion);
        break;
    }
    out_.append(piece.substr(p.length));
  }

  void tableConversion(const Piece& p, std::string_view conversion) {
    Extracted value;
    get(p.want, conversion, value);
    switch (p.want) {
      case Want::Point:
        out_.push_back('(');
        appendFixed(out_, value.d[0]);
        out_ += ", ";
        appendFixed(out_, value.d[1]);
        out_.push_back(')');
        break;
      case Want::Size:
        appendFixed(out_, value.d[0]);
        out_.push_back('x');
        appendFixed(out_, value.d[1]);
        break;
      case Want::Rect:
        out_ += "[(";
        appendFixed(out_, value.d[0]);
        out_ += ", ";
        appendFixed(out_, value.d[1]);
        out_ += ") ";
        appendFixed(out_, value.d[2]);
        out_.push_back('x');
        appendFixed(out_, value.d[3]);
        out_.push_back(']');
        break;
      case Want::Range:
        out_.push_back('[');
        appendInteger(out_, value.u);
        out_ += " +";
        appendInteger(out_, value.u2);
        out_.push_back(']');
        break;
      case Want::Signed:
        if (value.isUnsignedValue)
          appendInteger(out_, value.u);
        else
          appendInteger(out_, value.i);
        break;
      case Want::Unsigned:
        appendInteger(out_, value.u);
        break;
      case Want::Double:
        appendFixed(out_, value.d[0]);
        break;
      case Want::Pointer:
        appendPointer(out_, value.pointer);
        break;
      case Want::Character:
        appendCodePoint(out_, value.character);
        break;
      case Want::Text:
      case Want::Object:
      case Want::ClassName:
        appendText(value);
        break;
    }
  }

  void printfConversion(Piece d, std::string_view conversion) {
    if (d.widthFromArgument) {
      Extracted width;
      get(Want::Signed, conversion, width);
      if (width.isUnsignedValue || width.i > kMaxWidth || width.i < -kMaxWidth)
        fail("the width given for %" + std::string(conversion) + " is too large.");
      d.width = static_cast<int>(width.i < 0 ? -width.i : width.i);
      if (width.i < 0) d.leftAlign = true;
    }
    if (d.precisionFromArgument) {
      Extracted precision;
      get(Want::Signed, conversion, precision);
      if (precision.isUnsignedValue || precision.i > kMaxWidth)
        fail("the precision given for %" + std::string(conversion) + " is too large.");
      d.precision = precision.i < 0 ? -1 : static_cast<int>(precision.i);
    }
    Extracted value;
    get(d.want, conversion, value);
    switch (d.want) {
      case Want::Signed:
        if (value.isUnsignedValue)
          appendIntegerDirective(out_, d, false, value.u);
        else
          appendIntegerDirective(out_, d, value.i < 0,
                                 value.i < 0 ? 0ULL - static_cast<unsigned long long>(value.i)
                                             : static_cast<unsigned long long>(value.i));
        break;
      case Want::Unsigned:
        appendIntegerDirective(out_, d, false, value.u);
        break;
      case Want::Double:
        appendDoubleDirective(out_, d, value.d[0]);
        break;
      case Want::Character: {
        std::string text;
        appendCodePoint(text, value.character);
        d.precision = -1;
        appendTextDirective(out_, d, text);
        break;
      }
      case Want::Pointer: {
        std::string text;
        appendPointer(text, value.pointer);
        d.precision = -1;
        appendTextDirective(out_, d, text);
        break;
      }
      default:  // Text, Object
        appendTextDirective(out_, d, value.useOwned ? std::string_view(value.owned) : value.text);
        break;
    }
  }

  std::string_view format_;
  std::span<const ZTFormatArgument> arguments_;
  std::size_t next_ = 0;
  std::string out_;
};

}  // namespace

std::string copyZentrelStringWithFormatArguments(std::string_view format, std::span<const ZTFormatArgument> arguments) {
  return Engine(format, arguments).run();
}

}  // namespace zt
