#pragma once
// ZTFileURL: a URL as the file functions use it. Most are file URLs made from an absolute path;
// any other URL text can be held too, so that functions taking a URL can answer "not a file" for
// it instead of guessing.
//
// A plain value type: copy it freely, share it between threads. Construction never fails: a text
// that is not a URL gives a value whose isFileURL() is false and whose path() is empty.

#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

class ZT_API ZTFileURL {
 public:
  ZTFileURL() = default;

  // A file URL for the path. A relative path is made absolute against the current folder; an empty
  // path gives an empty, non-file URL. isDirectory marks the URL as naming a folder (its text then
  // ends with "/").
  [[nodiscard]] static ZTFileURL fileURLWithPath(std::string_view path, bool isDirectory = false);
  // Parses URL text such as "file:///tmp/a%20b.txt" or "https://example.org/x". For file URLs the
  // path is percent-decoded; "file://localhost/..." is accepted.
  [[nodiscard]] static ZTFileURL URLWithString(std::string_view text);

  bool isFileURL() const { return scheme_ == "file"; }
  bool isEmpty() const { return scheme_.empty(); }
  // Lower-case scheme, empty when the text had none.
  const std::string& scheme() const { return scheme_; }
  // The file path, decoded, without a trailing "/" (except the root). Empty for non-file URLs.
  const std::string& path() const { return path_; }
  bool hasDirectoryPath() const { return isDirectory_; }
  // The URL text: "file://" and the percent-encoded path for file URLs, the original text otherwise.
  std::string absoluteString() const;

  friend bool operator==(const ZTFileURL&, const ZTFileURL&) = default;

 private:
  std::string scheme_;
  std::string path_;
  std::string text_;  // original text of a non-file URL
  bool isDirectory_ = false;
};
