#include "networking/internal/uri.h"

#include <uriparser/Uri.h>

#include <memory>
#include <vector>

namespace zt::networking_internal {
namespace {

struct UriHolder {
  UriUriA uri{};
  bool parsed = false;
  ~UriHolder() {
    if (parsed) uriFreeUriMembersA(&uri);
  }
};

std::optional<std::string> range(const UriTextRangeA& r) {
  if (r.first == nullptr) return std::nullopt;
  return std::string(r.first, static_cast<std::size_t>(r.afterLast - r.first));
}

bool parse(UriHolder& holder, std::string_view text) {
  const char* errorPos = nullptr;
  if (uriParseSingleUriExA(&holder.uri, text.data(), text.data() + text.size(), &errorPos) != URI_SUCCESS)
    return false;
  holder.parsed = true;
  return true;
}

std::optional<std::string> toString(const UriUriA& uri) {
  int required = 0;
  if (uriToStringCharsRequiredA(&uri, &required) != URI_SUCCESS || required < 0) return std::nullopt;
  std::string out(static_cast<std::size_t>(required) + 1, '\0');
  int written = 0;
  if (uriToStringA(out.data(), &uri, required + 1, &written) != URI_SUCCESS) return std::nullopt;
  out.resize(written > 0 ? static_cast<std::size_t>(written - 1) : 0);
  return out;
}

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

bool isSubDelim(unsigned char c) {
  switch (c) {
    case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+': case ',': case ';': case '=':
      return true;
    default:
      return false;
  }
}

bool isAllowed(unsigned char c, Component component) {
  if (isUnreserved(c)) return true;
  switch (component) {
    case Component::User:
      return isSubDelim(c);
    case Component::Password:
      return isSubDelim(c) || c == ':';
    case Component::Host:
      return isSubDelim(c) || c == ':' || c == '[' || c == ']';
    case Component::Path:
      return isSubDelim(c) || c == ':' || c == '@' || c == '/';
    case Component::Query:
    case Component::Fragment:
      return isSubDelim(c) || c == ':' || c == '@' || c == '/' || c == '?';
    case Component::QueryItem:
      return (isSubDelim(c) && c != '&' && c != '=' && c != '+') || c == ':' || c == '@' || c == '/' || c == '?';
  }
  return false;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<ParsedReference> parseReference(std::string_view text) {
  if (text.empty()) return std::nullopt;
  UriHolder holder;
  if (!parse(holder, text)) return std::nullopt;
  const UriUriA& uri = holder.uri;
  ParsedReference out;
  out.scheme = range(uri.scheme);
  out.userInfo = range(uri.userInfo);
  out.host = range(uri.hostText);
  out.port = range(uri.portText);
  out.query = range(uri.query);
  out.fragment = range(uri.fragment);
  // The path as written: between the authority (or scheme) and the query or fragment.
  const bool hasAuthority = uri.hostText.first != nullptr;
  std::string path;
  if (uri.absolutePath || (hasAuthority && uri.pathHead != nullptr)) path = "/";
  bool first = true;
  for (const UriPathSegmentA* segment = uri.pathHead; segment != nullptr; segment = segment->next) {
    if (!first) path += '/';
    first = false;
    if (auto text_ = range(segment->text)) path += *text_;
  }
  out.path = std::move(path);
  return out;
}

std::optional<std::string> resolveReference(std::string_view text, std::string_view base) {
  UriHolder relative, absoluteBase, resolved;
  if (!parse(relative, text) || !parse(absoluteBase, base)) return std::nullopt;
  if (absoluteBase.uri.scheme.first == nullptr) return std::nullopt;
  if (uriAddBaseUriExA(&resolved.uri, &relative.uri, &absoluteBase.uri, URI_RESOLVE_STRICTLY) != URI_SUCCESS)
    return std::nullopt;
  resolved.parsed = true;
  return toString(resolved.uri);
}

std::string percentEncode(std::string_view text, Component component) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (isAllowed(c, component)) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0xF];
    }
  }
  return out;
}

std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

bool isValidlyEncoded(std::string_view text, Component component) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '%') {
      if (i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0) return false;
      i += 2;
    } else if (!isAllowed(c, component == Component::QueryItem ? Component::Query : component)) {
      return false;
    }
  }
  return true;
}

}  // namespace zt::networking_internal
