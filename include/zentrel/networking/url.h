#pragma once
// ZTURL and ZTURLComponents: RFC 3986 references, parsed by uriparser.
//
// ZTURL is an immutable value: the text it was made from (its relative string), an optional base
// it is relative to, and the absolute form resolved against that base. ZTURLComponents takes a
// URL apart into its components, lets them be changed one by one (decoded or percent-encoded), and
// puts a URL back together; its query items are the name/value pairs of the query.
//
// Bad input: text that is not a valid RFC 3986 reference gives nullopt from the factories, never an
// exception. Setters of percent-encoded components ignore text that is not correctly encoded.
//
// Threads: plain values, safe to copy and to read from several threads at once.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"

class ZT_API ZTURL {
 public:
  // The empty URL (absoluteString() is ""); the factories make every other.
  ZTURL() = default;

  // A URL for a reference (absolute, or relative like "../a?b"); nullopt when the text is empty or
  // not a valid RFC 3986 reference. Characters outside the reference grammar (spaces, non-ASCII)
  // are not accepted: encode them first (ZTURLComponents does).
  [[nodiscard]] static std::optional<ZTURL> URLWithString(std::string_view text);
  // The reference relative to base: absoluteString() is the RFC 3986 resolution of text against
  // the base's absolute form; relativeString() stays text. nullopt when either does not parse or
  // the base is not absolute.
  [[nodiscard]] static std::optional<ZTURL> URLWithString(std::string_view text, const ZTURL& base);
  // A "file://" URL for a path, percent-encoded as needed. A relative path is taken relative to the
  // current working directory. An empty path gives the empty URL.
  [[nodiscard]] static ZTURL fileURLWithPath(std::string_view path);

  const std::string& absoluteString() const { return absolute_; }
  const std::string& relativeString() const { return relative_; }
  // The base this URL is relative to, or null.
  const ZTURL* baseURL() const { return base_.get(); }
  // The same location without a base.
  ZTURL absoluteURL() const;
  bool isEmpty() const { return absolute_.empty(); }

  // Components of the absolute form. Host, user, password and path are percent-decoded; query and
  // fragment stay percent-encoded, as they appear in the text.
  std::string scheme() const;
  std::string host() const;
  std::optional<std::uint16_t> port() const;
  std::string user() const;
  std::string password() const;
  std::string path() const;
  std::optional<std::string> query() const;
  std::optional<std::string> fragment() const;
  bool isFileURL() const;
  // The last path component and its extension (text after the last "." of that component, "" if
  // none), from the decoded path.
  std::string lastPathComponent() const;
  std::string pathExtension() const;

  // The value of the first query item named exactly name (case-sensitive), from the URL's own text
  // (not resolved against its base); nullopt when there is none, when the item has no value, or the
  // URL cannot be split into components.
  std::optional<std::string> parameterValue(std::string_view name) const;
  // Whether such an item exists.
  bool hasParameter(std::string_view name) const;
  // True only for a file URL whose path extension equals extension exactly.
  bool hasFileExtension(std::string_view extension) const;
  // The MIME type of the path extension from the shared-mime-info database, or
  // "application/octet-stream" when there is none.
  std::string MIMETypeByExtension() const;

  friend bool operator==(const ZTURL& a, const ZTURL& b) {
    return a.relative_ == b.relative_ && a.absolute_ == b.absolute_;
  }

 private:
  std::string relative_;
  std::string absolute_;
  std::shared_ptr<const ZTURL> base_;
};

// One name/value pair of a query. A value is absent for "name" and empty for "name=".
struct ZTURLQueryItem {
  std::string name;
  std::optional<std::string> value;
  friend bool operator==(const ZTURLQueryItem&, const ZTURLQueryItem&) = default;
};

class ZT_API ZTURLComponents {
 public:
  // All components absent; string() is "".
  ZTURLComponents() = default;
  // The components of a reference; nullopt when it is not a valid RFC 3986 reference.
  [[nodiscard]] static std::optional<ZTURLComponents> componentsWithString(std::string_view text);
  // The components of a URL: of its absolute form when resolvingAgainstBaseURL, else of its
  // relative string.
  [[nodiscard]] static std::optional<ZTURLComponents> componentsWithURL(const ZTURL& url,
                                                                        bool resolvingAgainstBaseURL);

  // Decoded components. Setting a decoded component encodes what that component cannot hold.
  std::optional<std::string> scheme() const { return scheme_; }
  void setScheme(std::optional<std::string> scheme);
  std::optional<std::string> user() const;
  void setUser(const std::optional<std::string>& user);
  std::optional<std::string> password() const;
  void setPassword(const std::optional<std::string>& password);
  std::optional<std::string> host() const;
  void setHost(const std::optional<std::string>& host);
  std::optional<std::uint16_t> port() const { return port_; }
  void setPort(std::optional<std::uint16_t> port) { port_ = port; }
  std::string path() const;
  void setPath(std::string_view path);
  std::optional<std::string> query() const;
  void setQuery(const std::optional<std::string>& query);
  std::optional<std::string> fragment() const;
  void setFragment(const std::optional<std::string>& fragment);

  // Percent-encoded forms. A setter given text that is not correctly encoded for its component
  // returns false and changes nothing.
  const std::optional<std::string>& percentEncodedHost() const { return host_; }
  const std::string& percentEncodedPath() const { return path_; }
  [[nodiscard]] bool setPercentEncodedPath(std::string_view path);
  const std::optional<std::string>& percentEncodedQuery() const { return query_; }
  [[nodiscard]] bool setPercentEncodedQuery(const std::optional<std::string>& query);

  // The query split at "&" and at the first "=" of each piece, decoded ("+" stays "+"); a decoded
  // name or value keeps every byte, NUL included. nullopt when there is no query.
  std::optional<std::vector<ZTURLQueryItem>> queryItems() const;
  // Replaces the query by the encoded items; nullopt removes the query.
  void setQueryItems(const std::optional<std::vector<ZTURLQueryItem>>& items);

  // The value of the first query item named exactly name; nullopt when none or it has no value.
  std::optional<std::string> valueForQueryItemName(std::string_view name) const;
  // Name → value of every query item whose name and value are both non-empty; a later item with
  // the same name replaces an earlier one.
  std::map<std::string, std::string> queryItemsDictionary() const;

  // The reference made from the components; "" when they cannot form one (a path not starting with
  // "/" while there is a host, or a first segment with ":" and no scheme).
  std::string string() const;
  // The URL of string(); nullopt when it does not parse.
  std::optional<ZTURL> URL() const;

 private:
  std::optional<std::string> scheme_;
  std::optional<std::string> user_;      // percent-encoded
  std::optional<std::string> password_;  // percent-encoded
  std::optional<std::string> host_;      // percent-encoded, without IPv6 brackets
  std::optional<std::uint16_t> port_;
  std::string path_;                     // percent-encoded
  std::optional<std::string> query_;     // percent-encoded
  std::optional<std::string> fragment_;  // percent-encoded
};
