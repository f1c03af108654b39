#include "zentrel/networking/json_serialization.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "networking/internal/text.h"
#include "zentrel/platform/log.h"

namespace {

using Json = nlohmann::json;

constexpr int kMaxDepth = 512;  // deeper documents are refused rather than risking the stack

bool isValidElement(const ZTValue& value, int depth) {
  if (depth > kMaxDepth) return false;
  switch (value.type()) {
    case ZTValue::Type::Null:
    case ZTValue::Type::Bool:
    case ZTValue::Type::Int:
    case ZTValue::Type::UInt:
      return true;
    case ZTValue::Type::Double:
      return std::isfinite(*value.getIf<double>());
    case ZTValue::Type::String:
      return true;
    case ZTValue::Type::Array:
      for (const auto& element : *value.getIf<ZTValueArray>()) {
        if (!isValidElement(element, depth + 1)) return false;
      }
      return true;
    case ZTValue::Type::Dictionary:
      for (const auto& [key, element] : *value.getIf<ZTValueDictionary>()) {
        if (!isValidElement(element, depth + 1)) return false;
      }
      return true;
    case ZTValue::Type::Bytes:
    case ZTValue::Type::Date:
      return false;
  }
  return false;
}

Json toJson(const ZTValue& value) {
  switch (value.type()) {
    case ZTValue::Type::Null: return nullptr;
    case ZTValue::Type::Bool: return *value.getIf<bool>();
    case ZTValue::Type::Int: return *value.getIf<std::int64_t>();
    case ZTValue::Type::UInt: return *value.getIf<std::uint64_t>();
    case ZTValue::Type::Double: return *value.getIf<double>();
    case ZTValue::Type::String: return *value.getIf<std::string>();
    case ZTValue::Type::Array: {
      Json out = Json::array();
      for (const auto& element : *value.getIf<ZTValueArray>()) out.push_back(toJson(element));
      return out;
    }
    case ZTValue::Type::Dictionary: {
      Json out = Json::object();
      for (const auto& [key, element] : *value.getIf<ZTValueDictionary>()) out[key] = toJson(element);
      return out;
    }
    default: return nullptr;  // refused before by isValidElement
  }
}

ZTValue fromJson(const Json& json) {
  switch (json.type()) {
    case Json::value_t::null: return {};
    case Json::value_t::boolean: return json.get<bool>();
    case Json::value_t::number_integer: return json.get<std::int64_t>();
    case Json::value_t::number_unsigned: {
      const auto value = json.get<std::uint64_t>();
      if (value <= static_cast<std::uint64_t>(INT64_MAX)) return static_cast<std::int64_t>(value);
      return value;
    }
    case Json::value_t::number_float: return json.get<double>();
    case Json::value_t::string: return json.get<std::string>();
    case Json::value_t::array: {
      ZTValueArray out;
      out.reserve(json.size());
      for (const auto& element : json) out.push_back(fromJson(element));
      return out;
    }
    case Json::value_t::object: {
      ZTValueDictionary out;
      for (auto it = json.begin(); it != json.end(); ++it) out.emplace(it.key(), fromJson(it.value()));
      return out;
    }
    default: return {};
  }
}

// Refuses documents nested deeper than kMaxDepth while parsing.
bool depthWithinLimit(int depth, Json::parse_event_t event, Json&) {
  (void)event;
  return depth <= kMaxDepth;
}

}  // namespace

bool ZTJSONSerialization::isValidJSONObject(const ZTValue& object) {
  return (object.isArray() || object.isDictionary()) && isValidElement(object, 0);
}

std::optional<std::string> ZTJSONSerialization::stringWithJSONObject(const ZTValue& object) {
  if (!isValidJSONObject(object)) {
    ZTLog("passed object cannot be serialized to JSON");
    return std::nullopt;
  }
  std::string text;
  try {
    text = toJson(object).dump();
  } catch (const std::exception& e) {
    ZTLogf("failed to form JSON from object %s; error %s", object.description().c_str(), e.what());
    return std::nullopt;
  }
  if (!zt::networking_internal::isValidUTF8(text)) {
    ZTLog("failed to create string from JSON data!");
    return std::nullopt;
  }
  return text;
}

std::optional<ZTValue> ZTJSONSerialization::JSONObjectWithString(std::string_view text) {
  const std::string copy(text);
  if (!zt::networking_internal::isValidUTF8(text)) {
    ZTLogf("failed to form data from JSON string %s", copy.c_str());
    return std::nullopt;
  }
  std::string reason;
  Json json;
  try {
    bool tooDeep = false;
    json = Json::parse(
        copy,
        [&](int depth, Json::parse_event_t event, Json& parsed) {
          if (depthWithinLimit(depth, event, parsed)) return true;
          tooDeep = true;
          return false;
        },
        true);
    if (tooDeep) reason = "the document is nested too deeply";
    else if (!json.is_array() && !json.is_object()) reason = "JSON text did not start with array or object";
  } catch (const std::exception& e) {
    reason = e.what();
  }
  if (!reason.empty()) {
    ZTLogf("failed to form JSON object from JSON string %s. error = %s", copy.c_str(), reason.c_str());
    return std::nullopt;
  }
  return fromJson(json);
}
