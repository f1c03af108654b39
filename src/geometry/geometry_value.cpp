#include "zentrel/geometry/geometry_value.h"

#include <charconv>
#include <cmath>
#include <initializer_list>

namespace {

// A strict reader of the text forms: braces, brackets, commas and numbers, with any whitespace.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool expect(char c) {
    skipSpace();
    if (pos_ < text_.size() && text_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }

  bool number(double& out) {
    skipSpace();
    std::size_t start = pos_;
    if (start < text_.size() && text_[start] == '+') ++start;  // from_chars takes no plus sign
    const char* first = text_.data() + start;
    const char* last = text_.data() + text_.size();
    const auto result = std::from_chars(first, last, out);
    if (result.ec != std::errc() || result.ptr == first) return false;
    pos_ = static_cast<std::size_t>(result.ptr - text_.data());
    return true;
  }

  // n numbers separated by commas, between `open` and `close`.
  bool numbers(char open, double* out, int n, char close) {
    if (!expect(open)) return false;
    for (int i = 0; i < n; ++i) {
      if (i > 0 && !expect(',')) return false;
      if (!number(out[i])) return false;
    }
    return expect(close);
  }

  bool atEnd() {
    skipSpace();
    return pos_ == text_.size();
  }

 private:
  void skipSpace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n' ||
                                   text_[pos_] == '\r')) {
      ++pos_;
    }
  }

  std::string_view text_;
  std::size_t pos_ = 0;
};

void setFormattingError(ZTError* error, std::string_view what, std::string_view text, const char* form) {
  if (!error) return;
  std::string description = "The text \"";
  description.append(text).append("\" is not ").append(what).append(" in the form ").append(form).append(".");
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = description;
  *error = ZTError(ZTCocoaErrorDomain, ZTGeometryFormattingError, std::move(info));
}

void setValueError(ZTError* error, std::string_view what, const ZTValue& value) {
  if (!error) return;
  std::string description = "The value ";
  description.append(value.description()).append(" is not ").append(what)
      .append(": expected its text form or a dictionary of numbers.");
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = description;
  *error = ZTError(ZTCocoaErrorDomain, ZTGeometryFormattingError, std::move(info));
}

constexpr const char* kPointForm = "{x, y}";
constexpr const char* kSizeForm = "{width, height}";
constexpr const char* kRectForm = "{{x, y}, {width, height}}";
constexpr const char* kInsetsForm = "{top, left, bottom, right}";
constexpr const char* kTransformForm = "[a, b, c, d, tx, ty]";

// Reads the named numeric entries of a dictionary; false when one is missing or not a number.
bool readDictionary(const ZTValue& value, std::initializer_list<const char*> keys, double* out) {
  if (!value.isDictionary()) return false;
  int i = 0;
  for (const char* key : keys) {
    const ZTValue& entry = value[key];
    if (!entry.isNumber() || entry.isBool()) return false;
    out[i++] = entry.doubleValue();
  }
  return true;
}

template <class T, class FromString>
std::optional<T> fromValue(const ZTValue& value, ZTError* error, std::string_view what,
                           std::initializer_list<const char*> keys, FromString fromString,
                           T (*make)(const double*)) {
  if (value.isString()) return fromString(*value.getIf<std::string>(), error);
  double numbers[6];
  if (readDictionary(value, keys, numbers)) return make(numbers);
  setValueError(error, what, value);
  return std::nullopt;
}

}  // namespace

// The text forms are written by the value headers' inline textForm, which operator<< and the
// formatters use too.
std::string ZTStringFromPoint(ZTPoint p) { return zt::geometry_detail::textForm(p); }
std::string ZTStringFromSize(ZTSize s) { return zt::geometry_detail::textForm(s); }
std::string ZTStringFromRect(ZTRect r) { return zt::geometry_detail::textForm(r); }
std::string ZTStringFromEdgeInsets(ZTEdgeInsets i) { return zt::geometry_detail::textForm(i); }
std::string ZTStringFromAffineTransform(ZTAffineTransform t) { return zt::geometry_detail::textForm(t); }

std::optional<ZTPoint> ZTPointFromString(std::string_view text, ZTError* error) {
  Reader reader(text);
  double v[2];
  if (reader.numbers('{', v, 2, '}') && reader.atEnd()) return ZTPoint{v[0], v[1]};
  setFormattingError(error, "a point", text, kPointForm);
  return std::nullopt;
}

std::optional<ZTSize> ZTSizeFromString(std::string_view text, ZTError* error) {
  Reader reader(text);
  double v[2];
  if (reader.numbers('{', v, 2, '}') && reader.atEnd()) return ZTSize{v[0], v[1]};
  setFormattingError(error, "a size", text, kSizeForm);
  return std::nullopt;
}

std::optional<ZTRect> ZTRectFromString(std::string_view text, ZTError* error) {
  Reader reader(text);
  double origin[2], size[2];
  if (reader.expect('{') && reader.numbers('{', origin, 2, '}') && reader.expect(',') &&
      reader.numbers('{', size, 2, '}') && reader.expect('}') && reader.atEnd()) {
    return ZTRect{{origin[0], origin[1]}, {size[0], size[1]}};
  }
  setFormattingError(error, "a rectangle", text, kRectForm);
  return std::nullopt;
}

std::optional<ZTEdgeInsets> ZTEdgeInsetsFromString(std::string_view text, ZTError* error) {
  Reader reader(text);
  double v[4];
  if (reader.numbers('{', v, 4, '}') && reader.atEnd()) return ZTEdgeInsets{v[0], v[1], v[2], v[3]};
  setFormattingError(error, "edge insets", text, kInsetsForm);
  return std::nullopt;
}

std::optional<ZTAffineTransform> ZTAffineTransformFromString(std::string_view text, ZTError* error) {
  Reader reader(text);
  double v[6];
  if (reader.numbers('[', v, 6, ']') && reader.atEnd()) return ZTAffineTransform{v[0], v[1], v[2], v[3], v[4], v[5]};
  setFormattingError(error, "an affine transform", text, kTransformForm);
  return std::nullopt;
}

ZTValue ZTValueWithPoint(ZTPoint p) { return ZTValue(ZTStringFromPoint(p)); }
ZTValue ZTValueWithSize(ZTSize s) { return ZTValue(ZTStringFromSize(s)); }
ZTValue ZTValueWithRect(ZTRect r) { return ZTValue(ZTStringFromRect(r)); }
ZTValue ZTValueWithEdgeInsets(ZTEdgeInsets i) { return ZTValue(ZTStringFromEdgeInsets(i)); }
ZTValue ZTValueWithAffineTransform(ZTAffineTransform t) { return ZTValue(ZTStringFromAffineTransform(t)); }

std::optional<ZTPoint> ZTPointFromValue(const ZTValue& value, ZTError* error) {
  return fromValue<ZTPoint>(value, error, "a point", {"X", "Y"}, ZTPointFromString,
                            [](const double* v) { return ZTPoint{v[0], v[1]}; });
}

std::optional<ZTSize> ZTSizeFromValue(const ZTValue& value, ZTError* error) {
  return fromValue<ZTSize>(value, error, "a size", {"Width", "Height"}, ZTSizeFromString,
                           [](const double* v) { return ZTSize{v[0], v[1]}; });
}

std::optional<ZTRect> ZTRectFromValue(const ZTValue& value, ZTError* error) {
  return fromValue<ZTRect>(value, error, "a rectangle", {"X", "Y", "Width", "Height"}, ZTRectFromString,
                           [](const double* v) { return ZTRect{{v[0], v[1]}, {v[2], v[3]}}; });
}

std::optional<ZTEdgeInsets> ZTEdgeInsetsFromValue(const ZTValue& value, ZTError* error) {
  return fromValue<ZTEdgeInsets>(value, error, "edge insets", {"Top", "Left", "Bottom", "Right"},
                                 ZTEdgeInsetsFromString,
                                 [](const double* v) { return ZTEdgeInsets{v[0], v[1], v[2], v[3]}; });
}

std::optional<ZTAffineTransform> ZTAffineTransformFromValue(const ZTValue& value, ZTError* error) {
  return fromValue<ZTAffineTransform>(
      value, error, "an affine transform", {"a", "b", "c", "d", "tx", "ty"}, ZTAffineTransformFromString,
      [](const double* v) { return ZTAffineTransform{v[0], v[1], v[2], v[3], v[4], v[5]}; });
}

ZTValue ZTDictionaryRepresentationOfPoint(ZTPoint p) {
  ZTValue d = ZTValue::dictionary();
  d["X"] = p.x;
  d["Y"] = p.y;
  return d;
}

ZTValue ZTDictionaryRepresentationOfSize(ZTSize s) {
  ZTValue d = ZTValue::dictionary();
  d["Width"] = s.width;
  d["Height"] = s.height;
  return d;
}

ZTValue ZTDictionaryRepresentationOfRect(ZTRect r) {
  ZTValue d = ZTValue::dictionary();
  d["X"] = r.origin.x;
  d["Y"] = r.origin.y;
  d["Width"] = r.size.width;
  d["Height"] = r.size.height;
  return d;
}
