#include "zentrel/networking/url.h"

#include <uriparser/Uri.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

#include "networking/internal/uri.h"
#include "zentrel/filesystem/file_types.h"

using zt::networking_internal::Component;
using zt::networking_internal::ParsedReference;
using zt::networking_internal::parseReference;
using zt::networking_internal::percentDecode;
using zt::networking_internal::percentEncode;

namespace {

std::optional<std::uint16_t> portNumber(const std::optional<std::string>& text, bool* valid) {
  *valid = true;
  if (!text || text->empty()) return std::nullopt;
  unsigned value = 0;
  auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (ec != std::errc() || end != text->data() + text->size() || value > 65535) {
    *valid = false;
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(value);
}

std::optional<ParsedReference> parseChecked(std::string_view text) {
  auto parsed = parseReference(text);
  if (!parsed) return std::nullopt;
  bool validPort = true;
  portNumber(parsed->port, &validPort);
  if (!validPort) return std::nullopt;
  return parsed;
}

std::string decodedOrRaw(const std::string& text) { return percentDecode(text).value_or(text); }

std::string lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

// ---------------------------------------------------------------------------------------------- ZTURL

std::optional<ZTURL> ZTURL::URLWithString(std::string_view text) {
  if (!parseChecked(text)) return std::nullopt;
  ZTURL url;
  url.relative_ = std::string(text);
  url.absolute_ = url.relative_;
  return url;
}

std::optional<ZTURL> ZTURL::URLWithString(std::string_view text, const ZTURL& base) {
  if (!text.empty() && !parseChecked(text)) return std::nullopt;  // "" is the base itself
  auto resolved = zt::networking_internal::resolveReference(text, base.absoluteString());
  if (!resolved || !parseChecked(*resolved)) return std::nullopt;
  ZTURL url;
  url.relative_ = std::string(text);
  url.absolute_ = std::move(*resolved);
  url.base_ = std::make_shared<const ZTURL>(base.absoluteURL());
  return url;
}

ZTURL ZTURL::fileURLWithPath(std::string_view path) {
  if (path.empty()) return {};
  std::string absolute(path);
  if (absolute.front() != '/') {
    char* cwd = ::getcwd(nullptr, 0);
    if (cwd) {
      std::string prefix(cwd);
      std::free(cwd);
      if (prefix.empty() || prefix.back() != '/') prefix += '/';
      absolute = prefix + absolute;
    }
  }
  ZTURL url;
  url.relative_ = "file://" + percentEncode(absolute, Component::Path);
  url.absolute_ = url.relative_;
  return url;
}

ZTURL ZTURL::absoluteURL() const {
  ZTURL url;
  url.relative_ = absolute_;
  url.absolute_ = absolute_;
  return url;
}

std::string ZTURL::scheme() const {
  auto parsed = parseReference(absolute_);
  return parsed && parsed->scheme ? *parsed->scheme : std::string();
}

std::string ZTURL::host() const {
  auto parsed = parseReference(absolute_);
  return parsed && parsed->host ? decodedOrRaw(*parsed->host) : std::string();
}

std::optional<std::uint16_t> ZTURL::port() const {
  auto parsed = parseReference(absolute_);
  bool valid = true;
  return parsed ? portNumber(parsed->port, &valid) : std::nullopt;
}

std::string ZTURL::user() const {
  auto components = ZTURLComponents::componentsWithURL(*this, true);
  return components ? components->user().value_or("") : std::string();
}

std::string ZTURL::password() const {
  auto components = ZTURLComponents::componentsWithURL(*this, true);
  return components ? components->password().value_or("") : std::string();
}

std::string ZTURL::path() const {
  auto parsed = parseReference(absolute_);
  return parsed ? decodedOrRaw(parsed->path) : std::string();
}

std::optional<std::string> ZTURL::query() const {
  auto parsed = parseReference(absolute_);
  return parsed ? parsed->query : std::nullopt;
}

std::optional<std::string> ZTURL::fragment() const {
  auto parsed = parseReference(absolute_);
  return parsed ? parsed->fragment : std::nullopt;
}

bool ZTURL::isFileURL() const { return lowercase(scheme()) == "file"; }

std::string ZTURL::lastPathComponent() const {
  std::string p = path();
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  if (p == "/") return p;
  const auto slash = p.rfind('/');
  return slash == std::string::npos ? p : p.substr(slash + 1);
}

std::string ZTURL::pathExtension() const {
  const std::string last = lastPathComponent();
  const auto dot = last.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == last.size()) return {};
  return last.substr(dot + 1);
}

std::optional<std::string> ZTURL::parameterValue(std::string_view name) const {
  auto components = ZTURLComponents::componentsWithURL(*this, false);
  if (!components) return std::nullopt;
  return components->valueForQueryItemName(name);
}

bool ZTURL::hasParameter(std::string_view name) const {
  auto components = ZTURLComponents::componentsWithURL(*this, false);
  if (!components) return false;
  auto items = components->queryItems();
  if (!items) return false;
  return std::any_of(items->begin(), items->end(), [&](const ZTURLQueryItem& item) { return item.name == name; });
}

bool ZTURL::hasFileExtension(std::string_view extension) const {
  return isFileURL() && pathExtension() == extension;
}

std::string ZTURL::MIMETypeByExtension() const { return ZTMimeTypeForFileExtension(pathExtension()); }

// ------------------------------------------------------------------------------------ ZTURLComponents

std::optional<ZTURLComponents> ZTURLComponents::componentsWithString(std::string_view text) {
  auto parsed = parseChecked(text);
  if (!parsed) return std::nullopt;
  ZTURLComponents c;
  c.scheme_ = parsed->scheme;
  if (parsed->userInfo) {
    const auto colon = parsed->userInfo->find(':');
    c.user_ = parsed->userInfo->substr(0, colon);
    if (colon != std::string::npos) c.password_ = parsed->userInfo->substr(colon + 1);
  }
  c.host_ = parsed->host;
  bool valid = true;
  c.port_ = portNumber(parsed->port, &valid);
  c.path_ = parsed->path;
  c.query_ = parsed->query;
  c.fragment_ = parsed->fragment;
  return c;
}

std::optional<ZTURLComponents> ZTURLComponents::componentsWithURL(const ZTURL& url, bool resolvingAgainstBaseURL) {
  return componentsWithString(resolvingAgainstBaseURL ? url.absoluteString() : url.relativeString());
}

namespace {
std::optional<std::string> decoded(const std::optional<std::string>& encoded) {
  if (!encoded) return std::nullopt;
  return decodedOrRaw(*encoded);
}
std::optional<std::string> encoded(const std::optional<std::string>& text, Component component) {
  if (!text) return std::nullopt;
  return percentEncode(*text, component);
}
}  // namespace

void ZTURLComponents::setScheme(std::optional<std::string> scheme) { scheme_ = std::move(scheme); }
std::optional<std::string> ZTURLComponents::user() const { return decoded(user_); }
void ZTURLComponents::setUser(const std::optional<std::string>& user) { user_ = encoded(user, Component::User); }
std::optional<std::string> ZTURLComponents::password() const { return decoded(password_); }
void ZTURLComponents::setPassword(const std::optional<std::string>& password) {
  password_ = encoded(password, Component::Password);
}
std::optional<std::string> ZTURLComponents::host() const { return decoded(host_); }
void ZTURLComponents::setHost(const std::optional<std::string>& host) { host_ = encoded(host, Component::Host); }
std::string ZTURLComponents::path() const { return decodedOrRaw(path_); }
void ZTURLComponents::setPath(std::string_view path) { path_ = percentEncode(path, Component::Path); }
std::optional<std::string> ZTURLComponents::query() const { return decoded(query_); }
void ZTURLComponents::setQuery(const std::optional<std::string>& query) { query_ = encoded(query, Component::Query); }
std::optional<std::string> ZTURLComponents::fragment() const { return decoded(fragment_); }
void ZTURLComponents::setFragment(const std::optional<std::string>& fragment) {
  fragment_ = encoded(fragment, Component::Fragment);
}

bool ZTURLComponents::setPercentEncodedPath(std::string_view path) {
  if (!zt::networking_internal::isValidlyEncoded(path, Component::Path)) return false;
  path_ = std::string(path);
  return true;
}

bool ZTURLComponents::setPercentEncodedQuery(const std::optional<std::string>& query) {
  if (query && !zt::networking_internal::isValidlyEncoded(*query, Component::Query)) return false;
  query_ = query;
  return true;
}

std::optional<std::vector<ZTURLQueryItem>> ZTURLComponents::queryItems() const {
  if (!query_) return std::nullopt;
  std::vector<ZTURLQueryItem> items;
  if (query_->empty()) return items;
  // Split here rather than by uriparser, whose items are C strings: a decoded "%00" would cut a
  // name or value short there.
  const std::string_view query = *query_;
  std::size_t start = 0;
  while (start <= query.size()) {
    const std::size_t end = std::min(query.find('&', start), query.size());
    const std::string_view piece = query.substr(start, end - start);
    const std::size_t equals = piece.find('=');
    ZTURLQueryItem item;
    item.name = decodedOrRaw(std::string(piece.substr(0, equals)));
    if (equals != std::string_view::npos) item.value = decodedOrRaw(std::string(piece.substr(equals + 1)));
    items.push_back(std::move(item));
    start = end + 1;
  }
  return items;
}

void ZTURLComponents::setQueryItems(const std::optional<std::vector<ZTURLQueryItem>>& items) {
  if (!items) {
    query_.reset();
    return;
  }
  std::string query;
  for (const auto& item : *items) {
    if (!query.empty() || &item != &items->front()) query += '&';
    query += percentEncode(item.name, Component::QueryItem);
    if (item.value) {
      query += '=';
      query += percentEncode(*item.value, Component::QueryItem);
    }
  }
  query_ = std::move(query);
}

std::optional<std::string> ZTURLComponents::valueForQueryItemName(std::string_view name) const {
  auto items = queryItems();
  if (!items) return std::nullopt;
  for (const auto& item : *items) {
    if (item.name == name) return item.value;
  }
  return std::nullopt;
}

std::map<std::string, std::string> ZTURLComponents::queryItemsDictionary() const {
  std::map<std::string, std::string> out;
  auto items = queryItems();
  if (!items) return out;
  for (const auto& item : *items) {
    if (item.name.empty() || !item.value || item.value->empty()) continue;
    out[item.name] = *item.value;
  }
  return out;
}

std::string ZTURLComponents::string() const {
  std::string out;
  if (scheme_) out += *scheme_ + ":";
  const bool hasAuthority = host_ || user_ || password_ || port_;
  if (hasAuthority) {
    if (!path_.empty() && path_.front() != '/') return {};
    out += "//";
    if (user_ || password_) {
      out += user_.value_or("");
      if (password_) out += ":" + *password_;
      out += "@";
    }
    const std::string host = host_.value_or("");
    if (host.find(':') != std::string::npos && host.front() != '[') {
      out += "[" + host + "]";
    } else {
      out += host;
    }
    if (port_) out += ":" + std::to_string(*port_);
  } else {
    if (path_.starts_with("//")) return {};
    if (!scheme_) {
      const auto colon = path_.find(':');
      if (colon != std::string::npos && colon < path_.find('/')) return {};
    }
  }
  out += path_;
  if (query_) out += "?" + *query_;
  if (fragment_) out += "#" + *fragment_;
  return out;
}

std::optional<ZTURL> ZTURLComponents::URL() const {
  const std::string text = string();
  if (text.empty()) return std::nullopt;
  return ZTURL::URLWithString(text);
}
