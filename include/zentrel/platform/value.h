#pragma once
// ZTValue: a dynamic value for heterogeneous data — user info of errors and notifications,
// property lists, JSON, pretty printing. It holds one of: null, bool, signed integer, unsigned
// integer, double, string (UTF-8), bytes, date, array of values, dictionary from string to value.
//
// A plain value type with deep copies. Reading a missing key or an element of the wrong kind gives
// a null value (or the stated fallback), never an exception; only `at` on an array throws
// ZTRangeException for an index out of range.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"

class ZTValue;
using ZTValueArray = std::vector<ZTValue>;
using ZTValueDictionary = std::map<std::string, ZTValue, std::less<>>;
using ZTBytes = std::vector<std::uint8_t>;

// A dynamic value: null, bool, integer, double, string, bytes, date, array or dictionary.
class ZT_API ZTValue {
 public:
  enum class Type { Null, Bool, Int, UInt, Double, String, Bytes, Date, Array, Dictionary };

  ZTValue() = default;
  ZTValue(std::nullptr_t) {}
  ZTValue(bool v) : storage_(v) {}
  template <class I>
    requires(std::is_integral_v<I> && !std::is_same_v<I, bool> && std::is_signed_v<I>)
  ZTValue(I v) : storage_(static_cast<std::int64_t>(v)) {}
  template <class I>
    requires(std::is_integral_v<I> && !std::is_same_v<I, bool> && std::is_unsigned_v<I>)
  ZTValue(I v) : storage_(static_cast<std::uint64_t>(v)) {}
  ZTValue(double v) : storage_(v) {}
  ZTValue(float v) : storage_(static_cast<double>(v)) {}
  ZTValue(const char* v) : storage_(std::string(v ? v : "")) {}
  ZTValue(std::string v) : storage_(std::move(v)) {}
  ZTValue(std::string_view v) : storage_(std::string(v)) {}
  ZTValue(ZTBytes v) : storage_(std::move(v)) {}
  ZTValue(ZTDate v) : storage_(v) {}
  ZTValue(ZTValueArray v) : storage_(std::move(v)) {}
  ZTValue(ZTValueDictionary v) : storage_(std::move(v)) {}

  [[nodiscard]] static ZTValue array() { return ZTValue(ZTValueArray{}); }
  [[nodiscard]] static ZTValue dictionary() { return ZTValue(ZTValueDictionary{}); }

  Type type() const { return static_cast<Type>(storage_.index()); }
  bool isNull() const { return type() == Type::Null; }
  bool isBool() const { return type() == Type::Bool; }
  bool isInteger() const { return type() == Type::Int || type() == Type::UInt; }
  bool isNumber() const { return isInteger() || type() == Type::Double || type() == Type::Bool; }
  bool isString() const { return type() == Type::String; }
  bool isBytes() const { return type() == Type::Bytes; }
  bool isDate() const { return type() == Type::Date; }
  bool isArray() const { return type() == Type::Array; }
  bool isDictionary() const { return type() == Type::Dictionary; }

  // Typed access: a pointer to the held value, or nullptr when the value is of another kind.
  template <class T> const T* getIf() const { return std::get_if<T>(&storage_); }
  template <class T> T* getIf() { return std::get_if<T>(&storage_); }

  // Conversions with a fallback. Numbers convert between each other (and from bool); a string is
  // never parsed as a number.
  bool boolValue(bool fallback = false) const;
  std::int64_t intValue(std::int64_t fallback = 0) const;
  std::uint64_t uintValue(std::uint64_t fallback = 0) const;
  double doubleValue(double fallback = 0.0) const;
  std::string stringValue(std::string_view fallback = {}) const;  // only for strings

  // Arrays and dictionaries. The const lookups answer a shared null for a missing key or index,
  // or when this value is not a dictionary / array.
  std::size_t size() const;  // elements of an array or dictionary, bytes of a byte string, else 0
  const ZTValue& operator[](std::string_view key) const;
  const ZTValue& operator[](std::size_t index) const;
  bool contains(std::string_view key) const;
  // Mutable access: turns a null value into an empty dictionary first; any other non-dictionary
  // kind throws ZTInternalInconsistencyException.
  ZTValue& operator[](std::string_view key);
  // Appends to an array, turning a null value into an empty array first; any other kind throws
  // ZTInternalInconsistencyException.
  void push_back(ZTValue v);
  const ZTValue& at(std::size_t index) const;  // throws ZTRangeException when out of range

  // A readable text in the old property-list style: strings quoted when needed, arrays as
  // "(a, b)", dictionaries as "{key = value;}", bytes as "<0a1b>", dates in ISO 8601.
  std::string description() const;

  friend bool operator==(const ZTValue& a, const ZTValue& b) { return a.storage_ == b.storage_; }

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, ZTBytes, ZTDate,
               ZTValueArray, ZTValueDictionary>
      storage_;
};
