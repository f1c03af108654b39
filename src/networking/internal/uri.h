#pragma once
// Thin RAII use of uriparser shared by the URL types: parsing a reference into its percent-encoded
// components, resolving against a base, and percent-encoding and decoding.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zt::networking_internal {

// The components of a reference exactly as written (percent-encoded).
struct ParsedReference {
  std::optional<std::string> scheme;
  std::optional<std::string> userInfo;
  std::optional<std::string> host;  // without IPv6 brackets
  std::optional<std::string> port;
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;
};

std::optional<ParsedReference> parseReference(std::string_view text);
// text resolved against base (which must be absolute); nullopt when either does not parse.
std::optional<std::string> resolveReference(std::string_view text, std::string_view base);

// Which characters a component keeps unencoded, beside the unreserved ones.
enum class Component { User, Password, Host, Path, Query, QueryItem, Fragment };
std::string percentEncode(std::string_view text, Component component);
// Decodes %XX sequences; nullopt when a "%" is not followed by two hex digits.
std::optional<std::string> percentDecode(std::string_view text);
// Whether text holds only characters the component allows and well-formed %XX sequences.
bool isValidlyEncoded(std::string_view text, Component component);

}  // namespace zt::networking_internal
