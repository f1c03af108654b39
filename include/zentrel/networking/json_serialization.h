#pragma once
// JSON text to ZTValue and back, in UTF-8, through nlohmann-json, with one log line for each kind of
// failure. The root of a JSON document is an array or an object, as JSON interchange expects.
//
// ZTValue → JSON: null, booleans, numbers (finite), strings (UTF-8), arrays and dictionaries. Bytes
// and dates have no JSON form. JSON → ZTValue: integers become Int (UInt above the signed range),
// other numbers Double.
//
// Any thread. Failures are nullopt after the log line; nothing throws.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

class ZT_API ZTJSONSerialization {
 public:
  // Whether the value can be written as a JSON document (an array or dictionary root holding only
  // JSON kinds, finite numbers and UTF-8 strings).
  static bool isValidJSONObject(const ZTValue& object);
  // The compact JSON text of the value. nullopt after logging "passed object cannot be serialized
  // to JSON" for a value that is not a valid root or holds a kind JSON lacks; "failed to form JSON
  // from object <description>; error <reason>" when writing fails; "failed to create string from
  // JSON data!" when the bytes are not UTF-8.
  static std::optional<std::string> stringWithJSONObject(const ZTValue& object);
  // The value of a JSON document. nullopt after logging "failed to form data from JSON string
  // <text>" when the text is not UTF-8, or "failed to form JSON object from JSON string <text>.
  // error = <reason>" when it does not parse or its root is not an array or object.
  static std::optional<ZTValue> JSONObjectWithString(std::string_view text);
};
