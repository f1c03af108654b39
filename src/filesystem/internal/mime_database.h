#pragma once
// A read-only view of the freedesktop shared-mime-info database: file-name globs, aliases and the
// subclass hierarchy, read from the "mime" folder of each XDG data directory ($XDG_DATA_HOME first,
// then $XDG_DATA_DIRS, default /usr/local/share:/usr/share). Earlier folders take precedence.
//
// Extensions are matched in shared-mime-info's order: the globs flagged case-sensitive ("cs") on
// the extension as written, then the others on its lower-case form; between two unflagged globs of
// the same weight that fold to the same extension, the one written in lower case wins (so the old
// flagless "*.C" line does not make ".c" files C++). MIME type names are compared ignoring (ASCII)
// case and answered as the database spells them ("application/vnd.ms-word.document.macroEnabled.12").
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

// Hashing and equality ignoring ASCII case, for MIME type names: lookups need no folded copy.
struct FoldedHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept;
};
struct FoldedEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept;
};
template <class Value>
using FoldedMap = std::unordered_map<std::string, Value, FoldedHash, FoldedEqual>;
using FoldedSet = std::unordered_set<std::string, FoldedHash, FoldedEqual>;

class MimeDatabase {
 public:
  static const MimeDatabase& shared();
  // Loads the databases in the given "mime" folders, the first taking precedence.
  static MimeDatabase load(const std::vector<std::string>& mimeFolders);
  // The "mime" folders the shared database is read from.
  static std::vector<std::string> standardFolders();

  bool isEmpty() const { return known_.empty(); }
  // The MIME type of an extension ("tar.gz" works too); nullptr when unknown.
  const std::string* mimeTypeForExtension(std::string_view extension) const;
  // The first extension of the highest-weighted glob of the type (any case); nullptr when none.
  const std::string* preferredExtension(std::string_view mimeType) const;
  // The canonical name of a type, spelled as the database spells it (aliases resolved); the
  // lower-cased input for a type the database does not know.
  std::string canonicalName(std::string_view mimeType) const;
  // Whether the database knows the type (any case; aliases are not resolved here).
  bool isKnown(std::string_view mimeType) const;
  // Direct parents of a type (any case) from the subclass list, spelled as the database spells
  // them (not the implicit text/plain and octet-stream ones).
  const std::vector<std::string>& parents(std::string_view mimeType) const;

  // Calls f(extension) for every extension a glob names, as the tables hold it (case-sensitive
  // ones as written, the others in lower case).
  template <class F>
  void forEachExtension(F f) const {
    for (const auto& entry : caseSensitiveGlobs_) f(entry.first);
    for (const auto& entry : globs_) f(entry.first);
  }

  // ASCII lower case.
  static std::string foldedName(std::string_view mimeType);

 private:
  StringMap<std::string> caseSensitiveGlobs_;    // extension as written -> type
  StringMap<std::string> globs_;                 // lower-case extension -> type
  FoldedMap<std::string> preferredExtension_;    // type -> extension
  FoldedMap<std::string> aliases_;               // alias -> canonical spelling
  FoldedMap<std::vector<std::string>> parents_;  // type -> parents
  FoldedSet known_;                              // types, as the database spells them
};

}  // namespace zt::fs_internal
