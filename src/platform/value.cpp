#include "zentrel/platform/value.h"

#include <cmath>
#include <cstdio>

#include "zentrel/platform/exceptions.h"

namespace {
const ZTValue& sharedNull() {
  static const ZTValue null;
  return null;
}

bool needsQuotes(const std::string& s) {
  if (s.empty()) return true;
  for (unsigned char c : s) {
    if (!(std::isalnum(c) || c == '_' || c == '.' || c == '$' || c == '/' || c == ':' || c >= 0x80)) return true;
  }
  return false;
}

void appendQuoted(std::string& out, const std::string& s) {
  if (!needsQuotes(s)) {
    out += s;
    return;
  }
  out += '"';
  for (char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default: out += c;
    }
  }
  out += '"';
}

void describe(const ZTValue& v, std::string& out, int depth) {
  const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
  switch (v.type()) {
    case ZTValue::Type::Null: out += "<null>"; break;
    case ZTValue::Type::Bool: out += *v.getIf<bool>() ? "1" : "0"; break;
    case ZTValue::Type::Int: out += std::to_string(*v.getIf<std::int64_t>()); break;
    case ZTValue::Type::UInt: out += std::to_string(*v.getIf<std::uint64_t>()); break;
    case ZTValue::Type::Double: {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.17g", *v.getIf<double>());
      out += buf;
      break;
    }
    case ZTValue::Type::String: appendQuoted(out, *v.getIf<std::string>()); break;
    case ZTValue::Type::Bytes: {
      static const char* digits = "0123456789abcdef";
      out += '<';
      std::size_t i = 0;
      for (std::uint8_t b : *v.getIf<ZTBytes>()) {
        if (i && i % 4 == 0) out += ' ';
        out += digits[b >> 4];
        out += digits[b & 15];
        ++i;
      }
      out += '>';
      break;
    }
    case ZTValue::Type::Date: out += v.getIf<ZTDate>()->description(); break;
    case ZTValue::Type::Array: {
      const auto& a = *v.getIf<ZTValueArray>();
      if (a.empty()) {
        out += "()";
        break;
      }
      out += "(\n";
      for (std::size_t i = 0; i < a.size(); ++i) {
        out += indent + "    ";
        describe(a[i], out, depth + 1);
        out += i + 1 < a.size() ? ",\n" : "\n";
      }
      out += indent + ")";
      break;
    }
    case ZTValue::Type::Dictionary: {
      const auto& d = *v.getIf<ZTValueDictionary>();
      if (d.empty()) {
        out += "{}";
        break;
      }
      out += "{\n";
      for (const auto& [key, value] : d) {
        out += indent + "    ";
        appendQuoted(out, key);
        out += " = ";
        describe(value, out, depth + 1);
        out += ";\n";
      }
      out += indent + "}";
      break;
    }
  }
}
}  // namespace

bool ZTValue::boolValue(bool fallback) const {
  switch (type()) {
    case Type::Bool: return *getIf<bool>();
    case Type::Int: return *getIf<std::int64_t>() != 0;
    case Type::UInt: return *getIf<std::uint64_t>() != 0;
    case Type::Double: return *getIf<double>() != 0.0;
    default: return fallback;
  }
}

std::int64_t ZTValue::intValue(std::int64_t fallback) const {
  switch (type()) {
    case Type::Bool: return *getIf<bool>() ? 1 : 0;
    case Type::Int: return *getIf<std::int64_t>();
    case Type::UInt: return static_cast<std::int64_t>(*getIf<std::uint64_t>());
    case Type::Double: {
      const double d = *getIf<double>();
      if (std::isnan(d)) return fallback;
      if (d >= 9.2233720368547758e18) return INT64_MAX;
      if (d <= -9.2233720368547758e18) return INT64_MIN;
      return static_cast<std::int64_t>(d);
    }
    default: return fallback;
  }
}

std::uint64_t ZTValue::uintValue(std::uint64_t fallback) const {
  switch (type()) {
    case Type::Bool: return *getIf<bool>() ? 1 : 0;
    case Type::Int: return static_cast<std::uint64_t>(*getIf<std::int64_t>());
    case Type::UInt: return *getIf<std::uint64_t>();
    case Type::Double: {
      const double d = *getIf<double>();
      if (std::isnan(d) || d <= 0) return d < 0 ? static_cast<std::uint64_t>(static_cast<std::int64_t>(d)) : 0;
      if (d >= 1.8446744073709552e19) return UINT64_MAX;
      return static_cast<std::uint64_t>(d);
    }
    default: return fallback;
  }
}

double ZTValue::doubleValue(double fallback) const {
  switch (type()) {
    case Type::Bool: return *getIf<bool>() ? 1.0 : 0.0;
    case Type::Int: return static_cast<double>(*getIf<std::int64_t>());
    case Type::UInt: return static_cast<double>(*getIf<std::uint64_t>());
    case Type::Double: return *getIf<double>();
    default: return fallback;
  }
}

std::string ZTValue::stringValue(std::string_view fallback) const {
  if (const auto* s = getIf<std::string>()) return *s;
  return std::string(fallback);
}

std::size_t ZTValue::size() const {
  switch (type()) {
    case Type::Array: return getIf<ZTValueArray>()->size();
    case Type::Dictionary: return getIf<ZTValueDictionary>()->size();
    case Type::Bytes: return getIf<ZTBytes>()->size();
    default: return 0;
  }
}

const ZTValue& ZTValue::operator[](std::string_view key) const {
  if (const auto* d = getIf<ZTValueDictionary>()) {
    auto it = d->find(key);
    if (it != d->end()) return it->second;
  }
  return sharedNull();
}

const ZTValue& ZTValue::operator[](std::size_t index) const {
  if (const auto* a = getIf<ZTValueArray>(); a && index < a->size()) return (*a)[index];
  return sharedNull();
}

bool ZTValue::contains(std::string_view key) const {
  const auto* d = getIf<ZTValueDictionary>();
  return d && d->find(key) != d->end();
}

ZTValue& ZTValue::operator[](std::string_view key) {
  if (isNull()) storage_ = ZTValueDictionary{};
  auto* d = getIf<ZTValueDictionary>();
  if (!d) throw ZTInternalInconsistencyException("ZTValue: a key was set on a value that is not a dictionary");
  auto it = d->find(key);
  if (it == d->end()) it = d->emplace(std::string(key), ZTValue()).first;
  return it->second;
}

void ZTValue::push_back(ZTValue v) {
  if (isNull()) storage_ = ZTValueArray{};
  auto* a = getIf<ZTValueArray>();
  if (!a) throw ZTInternalInconsistencyException("ZTValue: an element was appended to a value that is not an array");
  a->push_back(std::move(v));
}

const ZTValue& ZTValue::at(std::size_t index) const {
  const auto* a = getIf<ZTValueArray>();
  if (!a || index >= a->size()) {
    throw ZTRangeException("ZTValue: index " + std::to_string(index) + " beyond bounds [0 .. " +
                           std::to_string(a && !a->empty() ? a->size() - 1 : 0) + "]");
  }
  return (*a)[index];
}

std::string ZTValue::description() const {
  std::string out;
  describe(*this, out, 0);
  return out;
}
