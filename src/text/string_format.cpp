#include "zentrel/text/string_format.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>

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

using format_detail::Extracted;
using format_detail::Want;

constexpr int kMaxWidth = 1 << 20;

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

void appendFixed(std::string& out, double value) {
  char buffer[400];
  if (std::isfinite(value) && std::fabs(value) < 1e300) {
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
    if (result.ec == std::errc()) {
      out.append(buffer, result.ptr);
      return;
    }
  }
  // Non-finite and very large values: C's own text ("inf", "nan", 300-digit integers).
  int n = std::snprintf(nullptr, 0, "%f", value);
  std::string text(static_cast<std::size_t>(n), '\0');
  std::snprintf(text.data(), text.size() + 1, "%f", value);
  out += text;
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

// A printf conversion at the start of a piece: %[flags][width][.precision][length]conversion.
struct PrintfDirective {
  std::string flags;
  bool widthFromArgument = false;
  int width = -1;
  bool precisionFromArgument = false;
  int precision = -1;
  char conversion = 0;
  std::size_t length = 0;  // characters of the piece the conversion takes
};

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
    Extracted value;
    auto table = [&](std::string_view prefix, Want want) {
      if (!piece.starts_with(prefix)) return false;
      get(want, prefix, value);
      switch (want) {
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
      out_.append(piece.substr(prefix.size()));
      return true;
    };
    // The prefixes in the order that decides between them ("frame" before "f", "class" before
    // "c", "size" before "s", "point" before "p", "lld" after "d" and "u"): prefixes with different
    // first characters never compete, so the first character picks the candidates.
    bool matched = false;
    switch (piece.front()) {
      case 'p':
        matched = table("point", Want::Point) || table("p", Want::Pointer);
        break;
      case 's':
        matched = table("size", Want::Size) || table("s", Want::Text);
        break;
      case 'r':
        matched = table("rect", Want::Rect) || table("range", Want::Range);
        break;
      case 'f':
        matched = table("frame", Want::Rect) || table("f", Want::Double);
        break;
      case 'c':
        matched = table("class", Want::ClassName) || table("c", Want::Character);
        break;
      case '@':
        matched = table("@", Want::Object);
        break;
      case 'd':
        matched = table("d", Want::Signed);
        break;
      case 'u':
        matched = table("u", Want::Unsigned);
        break;
      case 'l':
        matched = table("lld", Want::Signed);
        break;
      default:
        break;
    }
    if (matched) return;
    printfConversion(piece);
  }

  static bool parseNumber(std::string_view piece, std::size_t& i, int& number) {
    long long value = 0;
    const std::size_t start = i;
    while (i < piece.size() && piece[i] >= '0' && piece[i] <= '9') {
      if (value <= kMaxWidth) value = value * 10 + (piece[i] - '0');
      ++i;
    }
    number = static_cast<int>(std::min<long long>(value, kMaxWidth + 1));
    return i > start;
  }

  std::optional<PrintfDirective> parse(std::string_view piece) const {
    PrintfDirective directive;
    std::size_t i = 0;
    {
      std::size_t j = 0;
      int ignored = 0;
      if (parseNumber(piece, j, ignored) && j < piece.size() && piece[j] == '$') {
        fail("positional conversions such as %" + std::string(piece.substr(0, j + 1)) + " are not supported.");
      }
    }
    while (i < piece.size() && std::strchr("-+ #0'", piece[i]) != nullptr) directive.flags.push_back(piece[i++]);
    if (i < piece.size() && piece[i] == '*') {
      directive.widthFromArgument = true;
      ++i;
    } else {
      int width = 0;
      if (parseNumber(piece, i, width)) directive.width = width;
    }
    if (i < piece.size() && piece[i] == '.') {
      ++i;
      if (i < piece.size() && piece[i] == '*') {
        directive.precisionFromArgument = true;
        ++i;
      } else {
        directive.precision = 0;
        parseNumber(piece, i, directive.precision);
      }
    }
    while (i < piece.size() && std::strchr("hlqLjzt", piece[i]) != nullptr) ++i;
    if (i >= piece.size() || std::strchr("diouxXeEfFgGaAcCsSpn@DUO", piece[i]) == nullptr) return std::nullopt;
    directive.conversion = piece[i];
    directive.length = i + 1;
    return directive;
  }

  void printfConversion(std::string_view piece) {
    std::optional<PrintfDirective> parsed = parse(piece);
    if (!parsed) {
      out_.push_back('%');
      out_.append(piece);
      return;
    }
    PrintfDirective& directive = *parsed;
    const std::string_view conversion = piece.substr(0, directive.length);
    if (directive.conversion == 'n') fail("the conversion %n is not supported.");
    if (directive.widthFromArgument) {
      Extracted width;
      get(Want::Signed, conversion, width);
      if (width.isUnsignedValue || width.i > kMaxWidth || width.i < -kMaxWidth)
        fail("the width given for %" + std::string(conversion) + " is too large.");
      directive.width = static_cast<int>(width.i < 0 ? -width.i : width.i);
      if (width.i < 0) directive.flags.push_back('-');
    }
    if (directive.precisionFromArgument) {
      Extracted precision;
      get(Want::Signed, conversion, precision);
      if (precision.isUnsignedValue || precision.i > kMaxWidth)
        fail("the precision given for %" + std::string(conversion) + " is too large.");
      directive.precision = precision.i < 0 ? -1 : static_cast<int>(precision.i);
    }
    if (directive.width > kMaxWidth || directive.precision > kMaxWidth) {
      fail("the width or precision of %" + std::string(conversion) + " is too large.");
    }

    auto cFormat = [&](const char* lengthAndConversion) {
      std::string f = "%" + directive.flags;
      if (directive.width >= 0) f += std::to_string(directive.width);
      if (directive.precision >= 0) f += "." + std::to_string(directive.precision);
      f += lengthAndConversion;
      return f;
    };
    auto emit = [&](const std::string& f, auto value) {
      const int n = std::snprintf(nullptr, 0, f.c_str(), value);
      if (n < 0) fail("the conversion %" + std::string(conversion) + " could not be formatted.");
      const std::size_t at = out_.size();
      out_.resize(at + static_cast<std::size_t>(n) + 1);
      std::snprintf(out_.data() + at, static_cast<std::size_t>(n) + 1, f.c_str(), value);
      out_.resize(at + static_cast<std::size_t>(n));
    };
    auto emitText = [&](std::string_view text) {
      std::string copy(text);
      // Only the flags that mean something for text.
      std::string flags = directive.flags.find('-') != std::string::npos ? "-" : "";
      std::string f = "%" + flags;
      if (directive.width >= 0) f += std::to_string(directive.width);
      if (directive.precision >= 0) f += "." + std::to_string(directive.precision);
      f += "s";
      emit(f, copy.c_str());
    };

    Extracted value;
    switch (directive.conversion) {
      case 'd':
      case 'i':
      case 'D':
        get(Want::Signed, conversion, value);
        if (value.isUnsignedValue)
          emit(cFormat("llu"), value.u);
        else
          emit(cFormat("lld"), value.i);
        break;
      case 'u':
      case 'U':
        get(Want::Unsigned, conversion, value);
        emit(cFormat("llu"), value.u);
        break;
      case 'o':
      case 'O':
        get(Want::Unsigned, conversion, value);
        emit(cFormat("llo"), value.u);
        break;
      case 'x':
      case 'X': {
        get(Want::Unsigned, conversion, value);
        const char f[] = {'l', 'l', directive.conversion, '\0'};
        emit(cFormat(f), value.u);
        break;
      }
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A': {
        get(Want::Double, conversion, value);
        const char f[] = {directive.conversion, '\0'};
        emit(cFormat(f), value.d[0]);
        break;
      }
      case 'c':
      case 'C': {
        get(Want::Character, conversion, value);
        std::string text;
        appendCodePoint(text, value.character);
        directive.precision = -1;
        emitText(text);
        break;
      }
      case 's':
      case 'S':
        get(Want::Text, conversion, value);
        emitText(value.useOwned ? std::string_view(value.owned) : value.text);
        break;
      case '@':
        get(Want::Object, conversion, value);
        emitText(value.owned);
        break;
      case 'p': {
        get(Want::Pointer, conversion, value);
        std::string text;
        appendPointer(text, value.pointer);
        directive.precision = -1;
        emitText(text);
        break;
      }
      default:
        break;
    }
    out_.append(piece.substr(directive.length));
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
