#pragma once
// Typed reading of parsed responses (JSON dictionaries as ZTValue), with a log line for every value
// of an unexpected kind.
//
// Kinds are tested with ZTValueClass, the counterpart of a class test: Number covers booleans,
// integers and doubles; the other classes match the one ZTValue type of that name. Log lines name
// the value's type with ZTValueTypeName ("String", "Int", "Dictionary"... and "nil" for no value).
//
// Handlers and blocks given here may throw: the exception is logged and the function goes on as if
// the handler had returned. Any thread; nothing is kept.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

enum class ZTValueClass { Null, Number, String, Bytes, Date, Array, Dictionary };

// Whether the value is of the class. A null pointer (no value) is of none.
ZT_API bool ZTValueIsOfClass(const ZTValue* value, ZTValueClass valueClass);
// "Null", "Bool", "Int", "UInt", "Double", "String", "Bytes", "Date", "Array", "Dictionary"; "nil"
// for no value.
ZT_API std::string ZTValueTypeName(const ZTValue* value);

namespace zt {

// The dictionary without the entries whose value is null; nested containers are kept as they are.
ZT_API ZTValueDictionary dictinaryByRemovingNullValues(const ZTValueDictionary& dictionary);

// The value under key if it is of the class. Otherwise nullopt; and unless the key is optional and
// absent, logs "ERROR: invalid value type: <type> for key: '<key>'" and calls errorHandler (if
// given). A required key that is absent is logged with the type "nil".
ZT_API std::optional<ZTValue> valueForKey(const ZTValueDictionary& dictionary, std::string_view key,
                                          ZTValueClass valueClass, bool optional,
                                          const std::function<void()>& errorHandler = {});

// Passes the entries, in the dictionary's order, to block(key, value, stop) until block sets stop.
// At the first entry whose key (a String) is not of keyClass it logs "ERROR: invalid key type:
// <type> for key: '<key>'", at the first whose value is not of objectClass "ERROR: invalid value
// type: <type> for key: '<key>'"; then errorHandler (if given) is called once and the enumeration
// stops. Entries before it have been passed to block.
ZT_API void enumerateKeysWithClass(const ZTValueDictionary& dictionary, ZTValueClass keyClass,
                                   ZTValueClass objectClass,
                                   const std::function<void(const std::string& key, const ZTValue& value, bool& stop)>& block,
                                   const std::function<void()>& errorHandler = {});

// The value if present and of the class, else nullopt, without logging.
ZT_API std::optional<ZTValue> ztObjectForKey(const ZTValueDictionary& dictionary, std::string_view key,
                                             ZTValueClass valueClass);
ZT_API std::optional<std::string> ztStringForKey(const ZTValueDictionary& dictionary, std::string_view key);
ZT_API std::optional<ZTValueArray> ztArrayForKey(const ZTValueDictionary& dictionary, std::string_view key);
ZT_API std::optional<ZTDate> ztDateForKey(const ZTValueDictionary& dictionary, std::string_view key);
// A number's boolean value (non-zero is true), else defaultValue.
ZT_API bool ztBoolForKey(const ZTValueDictionary& dictionary, std::string_view key, bool defaultValue = false);

}  // namespace zt
