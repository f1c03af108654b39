#pragma once
// The activity message: what the sending device says first inside a hand-off connection.
//   4 bytes   the length of the body, big-endian, at most ZTUserActivity::kMaxActivityMessageSize
//   body      JSON: {"version": 1, "activityType": "...", "userInfo": {...}}
// User info values map to JSON directly; bytes and dates, which JSON lacks, travel as
// {"$bytes": "<base64>"} and {"$date": <seconds since the reference date>}.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/value.h"

namespace zt::handoff_internal {

inline constexpr int kActivityMessageVersion = 1;

struct ActivityMessage {
  std::string activityType;
  ZTValue userInfo = ZTValue::dictionary();
};

// The whole message, length included. nullopt with an error when the body would be too large.
std::optional<std::vector<std::uint8_t>> encodeActivityMessage(const ActivityMessage& message, ZTError* error);
// The body length announced by a 4-byte header; an error when it is 0 or over the limit.
std::optional<std::uint32_t> decodeActivityMessageLength(const std::uint8_t header[4], ZTError* error);
// Parses a body. An error for anything but the JSON above.
std::optional<ActivityMessage> decodeActivityMessageBody(const std::vector<std::uint8_t>& body, ZTError* error);

ZTError activityError(std::int64_t code, const std::string& description);

}  // namespace zt::handoff_internal
