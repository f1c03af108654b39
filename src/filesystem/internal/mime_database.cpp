#include "filesystem/internal/mime_database.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "filesystem/internal/unicode.h"

namespace zt::fs_internal {

namespace {

struct GlobEntry {
  int weight;
  bool folded;        // an unflagged glob whose pattern was not already in lower case
  std::size_t order;  // folder precedence, then line order
  std::string mimeType;
  std::string extension;  // as written for case-sensitive globs, else lower-cased
};

// True when the text has no byte that lower-casing could change (ASCII capitals or non-ASCII).
bool isPlainLowerCase(std::string_view text) {
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || c >= 0x80) return false;
  }
  return true;
}

template <class Handler>
void forEachLine(const std::string& path, Handler handler) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    handler(line);
  }
}

std::vector<std::string> split(const std::string& line, char separator) {
  std::vector<std::string> fields;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = line.find(separator, start);
    fields.push_back(line.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return fields;
}

// "*.ext" with no other wildcard: the extension, else empty.
std::string simpleExtension(const std::string& pattern) {
  if (pattern.size() < 3 || pattern[0] != '*' || pattern[1] != '.') return {};
  const std::string extension = pattern.substr(2);
  if (extension.find_first_of("*?[]\\") != std::string::npos) return {};
  return extension;
}

}  // namespace

std::vector<std::string> MimeDatabase::standardFolders() {
  std::vector<std::string> folders;
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  if (dataHome != nullptr && dataHome[0] == '/') {
    folders.push_back(std::string(dataHome) + "/mime");
  } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
    folders.push_back(std::string(home) + "/.local/share/mime");
  }
  const char* dataDirs = std::getenv("XDG_DATA_DIRS");
  const std::string dirs = dataDirs != nullptr && dataDirs[0] != '\0' ? dataDirs : "/usr/local/share:/usr/share";
  for (const std::string& dir : split(dirs, ':')) {
    if (!dir.empty() && dir[0] == '/') folders.push_back(dir + "/mime");
  }
  return folders;
}

const MimeDatabase& MimeDatabase::shared() {
  static const MimeDatabase database = load(standardFolders());
  return database;
}

MimeDatabase MimeDatabase::load(const std::vector<std::string>& mimeFolders) {
  MimeDatabase db;
  std::vector<GlobEntry> caseSensitive;
  std::vector<GlobEntry> caseInsensitive;
  FoldedSet noGlobs;  // types whose globs a folder of higher precedence has cleared
  std::size_t order = 0;
  const auto know = [&db](const std::string& type) { db.known_.insert(type); };
  for (const std::string& folder : mimeFolders) {
    FoldedSet clearedHere;
    forEachLine(folder + "/globs2", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ':');
      if (fields.size() < 3) return;
      const std::string& type = fields[1];
      const std::string& pattern = fields[2];
      if (type.empty()) return;
      know(type);
      if (pattern == "__NOGLOBS__") {
        clearedHere.insert(type);
        return;
      }
      if (noGlobs.count(type)) return;
      bool flaggedCaseSensitive = false;
      if (fields.size() > 3) {
        for (const std::string& flag : split(fields[3], ',')) flaggedCaseSensitive = flaggedCaseSensitive || flag == "cs";
      }
      const std::string extension = simpleExtension(pattern);
      if (extension.empty()) return;
      const int weight = std::atoi(fields[0].c_str());
      if (flaggedCaseSensitive) {
        caseSensitive.push_back({weight, false, order++, type, extension});
      } else {
        const bool folded = !isPlainLowerCase(extension);
        caseInsensitive.push_back({weight, folded, order++, type, folded ? lowercase(extension) : extension});
      }
    });
    noGlobs.insert(clearedHere.begin(), clearedHere.end());
    forEachLine(folder + "/aliases", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ' ');
      if (fields.size() == 2 && !fields[0].empty() && !fields[1].empty()) {
        db.aliases_.emplace(fields[0], fields[1]);
      }
    });
    forEachLine(folder + "/subclasses", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ' ');
      if (fields.size() != 2 || fields[0].empty() || fields[1].empty()) return;
      auto& list = db.parents_[fields[0]];
      if (std::none_of(list.begin(), list.end(), [&](const std::string& p) { return FoldedEqual{}(p, fields[1]); })) {
        list.push_back(fields[1]);
      }
      know(fields[0]);
    });
    forEachLine(folder + "/types", [&](const std::string& line) { know(line); });
  }
  // Highest weight first; at equal weight a pattern written in lower case before one that was
  // folded to it; then folder precedence and line order. The first entry for a key wins.
  const auto before = [](const GlobEntry& a, const GlobEntry& b) {
    if (a.weight != b.weight) return a.weight > b.weight;
    if (a.folded != b.folded) return !a.folded;
    return a.order < b.order;
  };
  std::sort(caseSensitive.begin(), caseSensitive.end(), before);
  std::sort(caseInsensitive.begin(), caseInsensitive.end(), before);
  for (const GlobEntry& glob : caseSensitive) db.caseSensitiveGlobs_.emplace(glob.extension, glob.mimeType);
  for (const GlobEntry& glob : caseInsensitive) db.globs_.emplace(glob.extension, glob.mimeType);
  // The preferred extension of a type: its best glob of either kind.
  std::vector<GlobEntry> all = std::move(caseSensitive);
  all.insert(all.end(), caseInsensitive.begin(), caseInsensitive.end());
  std::sort(all.begin(), all.end(), before);
  for (const GlobEntry& glob : all) db.preferredExtension_.emplace(glob.mimeType, glob.extension);
  return db;
}

namespace {
constexpr unsigned char folded(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}
}  // namespace

std::size_t FoldedHash::operator()(std::string_view text) const noexcept {
  std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
  for (char c : text) hash = (hash ^ folded(c)) * 1099511628211ull;
  return static_cast<std::size_t>(hash);
}

bool FoldedEqual::operator()(std::string_view a, std::string_view b) const noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (folded(a[i]) != folded(b[i])) return false;
  }
  return true;
}

std::string MimeDatabase::foldedName(std::string_view mimeType) {
  std::string folded(mimeType);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

const std::string* MimeDatabase::mimeTypeForExtension(std::string_view extension) const {
  if (extension.empty()) return nullptr;
  if (!caseSensitiveGlobs_.empty()) {
    const auto exact = caseSensitiveGlobs_.find(extension);
    if (exact != caseSensitiveGlobs_.end()) return &exact->second;
  }
  const auto it = isPlainLowerCase(extension) ? globs_.find(extension) : globs_.find(lowercase(extension));
  return it == globs_.end() ? nullptr : &it->second;
}

const std::string* MimeDatabase::preferredExtension(std::string_view mimeType) const {
  const auto it = preferredExtension_.find(mimeType);
  return it == preferredExtension_.end() ? nullptr : &it->second;
}

std::string MimeDatabase::canonicalName(std::string_view mimeType) const {
  if (const auto alias = aliases_.find(mimeType); alias != aliases_.end()) return alias->second;
  if (const auto known = known_.find(mimeType); known != known_.end()) return *known;
  return foldedName(mimeType);
}

bool MimeDatabase::isKnown(std::string_view mimeType) const { return known_.find(mimeType) != known_.end(); }

const std::vector<std::string>& MimeDatabase::parents(std::string_view mimeType) const {
  static const std::vector<std::string> kNone;
  const auto it = parents_.find(mimeType);
  return it == parents_.end() ? kNone : it->second;
}

}  // namespace zt::fs_internal
