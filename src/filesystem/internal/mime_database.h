#pragma once
// A read-only view of the freedesktop shared-mime-info database: file-name globs, aliases and the
// subclass hierarchy, read from the "mime" folder of each XDG data directory ($XDG_DATA_HOME first,
// then $XDG_DATA_DIRS, default /usr/local/share:/usr/share). Earlier folders take precedence.
//
// shared() is loaded once per process, on first use, under the language's thread-safe static
// initialisation; after that every lookup is a hash-table probe and the object is never modified,
// so it may be used from any thread. A missing or unreadable database gives an empty one: every
// lookup then answers "unknown".

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zt::fs_internal {

struct TransparentHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};
template <class Value>
using StringMap = std::unordered_map<std::string, Value, TransparentHash, std::equal_to<>>;
using StringSet = std::unordered_set<std::string, TransparentHash, std::equal_to<>>;

class MimeDatabase {
 public:
  static const MimeDatabase& shared();
  // Loads the databases in the given "mime" folders, the first taking precedence.
  static MimeDatabase load(const std::vector<std::string>& mimeFolders);
  // The "mime" folders the shared database is read from.
  static std::vector<std::string> standardFolders();

  bool isEmpty() const { return known_.empty(); }
  // The MIME type of a lower-case extension ("tar.gz" works too); nullptr when unknown.
  const std::string* mimeTypeForExtension(std::string_view lowercaseExtension) const;
  // The first extension of the highest-weighted glob of the type; nullptr when it has none.
  const std::string* preferredExtension(std::string_view mimeType) const;
  // The canonical name of a type (aliases resolved); the lower-cased input when not an alias.
  std::string canonicalName(std::string_view mimeType) const;
  bool isKnown(std::string_view canonicalMimeType) const;
  // Direct parents from the subclass list (not the implicit text/plain and octet-stream ones).
  const std::vector<std::string>& parents(std::string_view canonicalMimeType) const;

 private:
  StringMap<std::string> extensionToType_;
  StringMap<std::string> preferredExtension_;
  StringMap<std::string> aliases_;
  StringMap<std::vector<std::string>> parents_;
  StringSet known_;
};

}  // namespace zt::fs_internal
