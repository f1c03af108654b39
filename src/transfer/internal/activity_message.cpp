#include "transfer/internal/activity_message.h"

#include <nlohmann/json.hpp>

#include <openssl/evp.h>

#include "zentrel/transfer/user_activity.h"

namespace zt::handoff_internal {
namespace {

using nlohmann::json;

// Deep enough for any real user info; deeper input is refused rather than recursed into.
constexpr int kMaxDepth = 64;

std::string base64(const ZTBytes& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), bytes.data(), static_cast<int>(bytes.size()));
  out.resize(static_cast<std::size_t>(n));
  return out;
}

std::optional<ZTBytes> unbase64(const std::string& text) {
  if (text.size() % 4 != 0) return std::nullopt;
  ZTBytes out(3 * (text.size() / 4) + 1);
  const int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (n < 0) return std::nullopt;
  std::size_t length = static_cast<std::size_t>(n);
  if (!text.empty() && text.back() == '=') --length;
  if (text.size() > 1 && text[text.size() - 2] == '=') --length;
  out.resize(length);
  return out;
}

json toJSON(const ZTValue& value) {
  switch (value.type()) {
    case ZTValue::Type::Null: return nullptr;
    case ZTValue::Type::Bool: return value.boolValue();
    case ZTValue::Type::Int: return value.intValue();
    case ZTValue::Type::UInt: return value.uintValue();
    case ZTValue::Type::Double: return value.doubleValue();
    case ZTValue::Type::String: return value.stringValue();
    case ZTValue::Type::Bytes: return json{{"$bytes", base64(*value.getIf<ZTBytes>())}};
    case ZTValue::Type::Date: return json{{"$date", value.getIf<ZTDate>()->timeIntervalSinceReferenceDate()}};
    case ZTValue::Type::Array: {
      json array = json::array();
      for (const auto& element : *value.getIf<ZTValueArray>()) array.push_back(toJSON(element));
      return array;
    }
    case ZTValue::Type::Dictionary: {
      json object = json::object();
      for (const auto& [key, element] : *value.getIf<ZTValueDictionary>()) object[key] = toJSON(element);
      return object;
    }
  }
  return nullptr;
}

std::optional<ZTValue> fromJSON(const json& j, int depth) {
  if (depth > kMaxDepth) return std::nullopt;
  switch (j.type()) {
    case json::value_t::null: return ZTValue();
    case json::value_t::boolean: return ZTValue(j.get<bool>());
    case json::value_t::number_integer: return ZTValue(j.get<std::int64_t>());
    case json::value_t::number_unsigned: return ZTValue(j.get<std::uint64_t>());
    case json::value_t::number_float: return ZTValue(j.get<double>());
    case json::value_t::string: return ZTValue(j.get<std::string>());
    case json::value_t::array: {
      ZTValueArray array;
      for (const auto& element : j) {
        auto value = fromJSON(element, depth + 1);
        if (!value) return std::nullopt;
        array.push_back(std::move(*value));
      }
      return ZTValue(std::move(array));
    }
    case json::value_t::object: {
      if (j.size() == 1 && j.contains("$bytes") && j["$bytes"].is_string()) {
        auto bytes = unbase64(j["$bytes"].get<std::string>());
        if (!bytes) return std::nullopt;
        return ZTValue(std::move(*bytes));
      }
      if (j.size() == 1 && j.contains("$date") && j["$date"].is_number()) return ZTValue(ZTDate(j["$date"].get<double>()));
      ZTValueDictionary dictionary;
      for (const auto& [key, element] : j.items()) {
        auto value = fromJSON(element, depth + 1);
        if (!value) return std::nullopt;
        dictionary.emplace(key, std::move(*value));
      }
      return ZTValue(std::move(dictionary));
    }
    default: return std::nullopt;
  }
}

}  // namespace

ZTError activityError(std::int64_t code, const std::string& description) {
  return ZTError(ZTUserActivityErrorDomain, code, ZTValueDictionary{{ZTLocalizedDescriptionKey, description}});
}

std::optional<std::vector<std::uint8_t>> encodeActivityMessage(const ActivityMessage& message, ZTError* error) {
  json body = {{"version", kActivityMessageVersion}, {"activityType", message.activityType},
               {"userInfo", toJSON(message.userInfo.isDictionary() ? message.userInfo : ZTValue::dictionary())}};
  // Invalid UTF-8 in a text is replaced rather than thrown about.
  const std::string text = body.dump(-1, ' ', false, json::error_handler_t::replace);
  if (text.size() > ZTUserActivity::kMaxActivityMessageSize) {
    ZTSetError(error, activityError(ZTUserActivityErrorMessageTooLarge,
                                    "The activity's user info is too large to send (" + std::to_string(text.size()) +
                                        " bytes; at most " + std::to_string(ZTUserActivity::kMaxActivityMessageSize) + ")."));
    return std::nullopt;
  }
  std::vector<std::uint8_t> out(4 + text.size());
  const auto length = static_cast<std::uint32_t>(text.size());
  out[0] = static_cast<std::uint8_t>(length >> 24);
  out[1] = static_cast<std::uint8_t>(length >> 16);
  out[2] = static_cast<std::uint8_t>(length >> 8);
  out[3] = static_cast<std::uint8_t>(length);
  std::copy(text.begin(), text.end(), out.begin() + 4);
  return out;
}

std::optional<std::uint32_t> decodeActivityMessageLength(const std::uint8_t header[4], ZTError* error) {
  const std::uint32_t length = (std::uint32_t{header[0]} << 24) | (std::uint32_t{header[1]} << 16) |
                               (std::uint32_t{header[2]} << 8) | std::uint32_t{header[3]};
  if (length == 0) {
    ZTSetError(error, activityError(ZTUserActivityErrorMalformedMessage, "The peer sent an empty activity message."));
    return std::nullopt;
  }
  if (length > ZTUserActivity::kMaxActivityMessageSize) {
    ZTSetError(error, activityError(ZTUserActivityErrorMessageTooLarge,
                                    "The peer announced an activity message of " + std::to_string(length) +
                                        " bytes; at most " + std::to_string(ZTUserActivity::kMaxActivityMessageSize) +
                                        " are accepted."));
    return std::nullopt;
  }
  return length;
}

std::optional<ActivityMessage> decodeActivityMessageBody(const std::vector<std::uint8_t>& body, ZTError* error) {
  const auto malformed = [&](const std::string& why) {
    ZTSetError(error, activityError(ZTUserActivityErrorMalformedMessage, "The peer's activity message is malformed: " + why));
    return std::nullopt;
  };
  json j = json::parse(body.begin(), body.end(), nullptr, false);
  if (j.is_discarded()) return malformed("not JSON.");
  if (!j.is_object()) return malformed("not a JSON object.");
  if (!j.contains("version") || !j["version"].is_number_integer()) return malformed("no protocol version.");
  if (j["version"].get<std::int64_t>() != kActivityMessageVersion)
    return malformed("protocol version " + j["version"].dump() + " is not supported (this device speaks " +
                     std::to_string(kActivityMessageVersion) + ").");
  if (!j.contains("activityType") || !j["activityType"].is_string() || j["activityType"].get<std::string>().empty())
    return malformed("no activity type.");
  if (!j.contains("userInfo") || !j["userInfo"].is_object()) return malformed("no user info dictionary.");
  auto userInfo = fromJSON(j["userInfo"], 0);
  if (!userInfo) return malformed("user info values of an unknown kind or nested too deeply.");
  return ActivityMessage{j["activityType"].get<std::string>(), std::move(*userInfo)};
}

}  // namespace zt::handoff_internal
