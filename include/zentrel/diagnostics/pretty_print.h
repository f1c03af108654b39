#pragma once
// A readable, indented dump of nested arrays and dictionaries, for logs and debugging.
//
// Layout (level L = L spaces of indentation):
//   array       "(\n", each element on its own line indented by L + 3 ("   " before a scalar,
//               a nested collection brings its own indentation), "," between elements, ")" at L.
//               When the last element is a collection its closing brace joins the parenthesis:
//               "})".
//   dictionary  "{ <class>, <self>\n" (the values under the keys "class" and "self", "(null)" when
//               absent), then "   <key> = <value>" per other key in key order (a collection value
//               goes on the lines after "<key> =\n"), then "}" at L.
//   other       the value's own text: a string as it stands, "<null>" for null, numbers, dates
//               and bytes as ZTValue::description() writes them.
//
// An object can be printed too by deriving from ZTDictionaryRepresentable: it is printed as its
// dictionary with "class" (its demangled type name) and "self" (its address) added. When that
// object's _dictionaryFromSelf() throws a std::exception, prettyPrint answers
// "\n\n⚠️ <what()>\n" instead; other exceptions pass through.
//
// Pure functions of their input; any thread.

#include <cstddef>
#include <string>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

class ZT_API ZTDictionaryRepresentable {
 public:
  virtual ~ZTDictionaryRepresentable() = default;
  // The object's state as a dictionary; may throw.
  virtual ZTValue _dictionaryFromSelf() const = 0;
};

namespace zt {

ZT_API std::string prettyPrint(const ZTValue& value);
ZT_API std::string prettyPrint(const ZTDictionaryRepresentable& object);

// The text at an indentation level; *isCollection (when not null) tells whether it is a collection
// block, which carries its own indentation.
ZT_API std::string prettyPrintAtLevel(const ZTValue& value, std::size_t level, bool* isCollection);
ZT_API std::string prettyPrintAtLevel(const ZTDictionaryRepresentable& object, std::size_t level, bool* isCollection);

}  // namespace zt
