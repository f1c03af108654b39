#include "zentrel/networking/response_parser.h"

#include "networking/internal/text.h"
#include "zentrel/platform/log.h"

namespace {

void callHandler(const std::function<void()>& handler) {
  if (!handler) return;
  try {
    handler();
  } catch (...) {
    ZTLogf("ERROR: the error handler threw: %s", zt::networking_internal::describeCurrentException().c_str());
  }
}

const ZTValue* find(const ZTValueDictionary& dictionary, std::string_view key) {
  auto it = dictionary.find(key);
  return it == dictionary.end() ? nullptr : &it->second;
}

}  // namespace

bool ZTValueIsOfClass(const ZTValue* value, ZTValueClass valueClass) {
  if (!value) return false;
  switch (valueClass) {
    case ZTValueClass::Null: return value->isNull();
    case ZTValueClass::Number: return value->isNumber();
    case ZTValueClass::String: return value->isString();
    case ZTValueClass::Bytes: return value->isBytes();
    case ZTValueClass::Date: return value->isDate();
    case ZTValueClass::Array: return value->isArray();
    case ZTValueClass::Dictionary: return value->isDictionary();
  }
  return false;
}

std::string ZTValueTypeName(const ZTValue* value) {
  if (!value) return "nil";
  switch (value->type()) {
    case ZTValue::Type::Null: return "Null";
    case ZTValue::Type::Bool: return "Bool";
    case ZTValue::Type::Int: return "Int";
    case ZTValue::Type::UInt: return "UInt";
    case ZTValue::Type::Double: return "Double";
    case ZTValue::Type::String: return "String";
    case ZTValue::Type::Bytes: return "Bytes";
    case ZTValue::Type::Date: return "Date";
    case ZTValue::Type::Array: return "Array";
    case ZTValue::Type::Dictionary: return "Dictionary";
  }
  return "nil";
}

namespace zt {

ZTValueDictionary dictinaryByRemovingNullValues(const ZTValueDictionary& dictionary) {
  ZTValueDictionary out;
  for (const auto& [key, value] : dictionary) {
    if (!value.isNull()) out.emplace(key, value);
  }
  return out;
}

std::optional<ZTValue> valueForKey(const ZTValueDictionary& dictionary, std::string_view key, ZTValueClass valueClass,
                                   bool optional, const std::function<void()>& errorHandler) {
  const ZTValue* value = find(dictionary, key);
  if (ZTValueIsOfClass(value, valueClass)) return *value;
  if (!value && optional) return std::nullopt;
  ZTLogf("ERROR: invalid value type: <%s> for key: '%.*s'", ZTValueTypeName(value).c_str(),
         static_cast<int>(key.size()), key.data());
  callHandler(errorHandler);
  return std::nullopt;
}

void enumerateKeysWithClass(const ZTValueDictionary& dictionary, ZTValueClass keyClass, ZTValueClass objectClass,
                            const std::function<void(const std::string& key, const ZTValue& value, bool& stop)>& block,
                            const std::function<void()>& errorHandler) {
  for (const auto& [key, value] : dictionary) {
    const ZTValue keyValue(key);
    if (!ZTValueIsOfClass(&keyValue, keyClass)) {
      ZTLogf("ERROR: invalid key type: <%s> for key: '%s'", ZTValueTypeName(&keyValue).c_str(), key.c_str());
      callHandler(errorHandler);
      return;
    }
    if (!ZTValueIsOfClass(&value, objectClass)) {
      ZTLogf("ERROR: invalid value type: <%s> for key: '%s'", ZTValueTypeName(&value).c_str(), key.c_str());
      callHandler(errorHandler);
      return;
    }
    bool stop = false;
    if (block) {
      try {
        block(key, value, stop);
      } catch (...) {
        ZTLogf("ERROR: the enumeration block threw: %s", zt::networking_internal::describeCurrentException().c_str());
      }
    }
    if (stop) return;
  }
}

std::optional<ZTValue> ztObjectForKey(const ZTValueDictionary& dictionary, std::string_view key,
                                      ZTValueClass valueClass) {
  const ZTValue* value = find(dictionary, key);
  if (!ZTValueIsOfClass(value, valueClass)) return std::nullopt;
  return *value;
}

std::optional<std::string> ztStringForKey(const ZTValueDictionary& dictionary, std::string_view key) {
  const ZTValue* value = find(dictionary, key);
  if (!value || !value->isString()) return std::nullopt;
  return *value->getIf<std::string>();
}

std::optional<ZTValueArray> ztArrayForKey(const ZTValueDictionary& dictionary, std::string_view key) {
  const ZTValue* value = find(dictionary, key);
  if (!value || !value->isArray()) return std::nullopt;
  return *value->getIf<ZTValueArray>();
}

std::optional<ZTDate> ztDateForKey(const ZTValueDictionary& dictionary, std::string_view key) {
  const ZTValue* value = find(dictionary, key);
  if (!value || !value->isDate()) return std::nullopt;
  return *value->getIf<ZTDate>();
}

bool ztBoolForKey(const ZTValueDictionary& dictionary, std::string_view key, bool defaultValue) {
  const ZTValue* value = find(dictionary, key);
  if (!value || !value->isNumber()) return defaultValue;
  return value->boolValue(defaultValue);
}

}  // namespace zt
