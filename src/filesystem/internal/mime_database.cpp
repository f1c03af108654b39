#include "filesystem/internal/mime_database.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include "filesystem/internal/unicode.h"

namespace zt::fs_internal {

namespace {

struct GlobEntry {
  int weight;
  std::size_t order;  // folder precedence, then line order
  std::string mimeType;
  std::string extension;
};

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
  std::vector<GlobEntry> globs;
  StringSet noGlobs;  // types whose globs a folder of higher precedence has cleared
  std::size_t order = 0;
  for (const std::string& folder : mimeFolders) {
    StringSet clearedHere;
    forEachLine(folder + "/globs2", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ':');
      if (fields.size() < 3) return;
      const std::string& type = fields[1];
      const std::string& pattern = fields[2];
      db.known_.insert(type);
      if (pattern == "__NOGLOBS__") {
        clearedHere.insert(type);
        return;
      }
      if (noGlobs.count(type)) return;
      const bool caseSensitive = fields.size() > 3 && fields[3].find("cs") != std::string::npos;
      const std::string extension = simpleExtension(pattern);
      if (extension.empty()) return;
      const std::string lower = lowercase(extension);
      if (caseSensitive && lower != extension) return;  // lookups are by lower-case extension
      globs.push_back({std::atoi(fields[0].c_str()), order++, type, lower});
    });
    noGlobs.insert(clearedHere.begin(), clearedHere.end());
    forEachLine(folder + "/aliases", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ' ');
      if (fields.size() == 2) db.aliases_.emplace(fields[0], fields[1]);
    });
    forEachLine(folder + "/subclasses", [&](const std::string& line) {
      const std::vector<std::string> fields = split(line, ' ');
      if (fields.size() != 2) return;
      auto& list = db.parents_[fields[0]];
      if (std::find(list.begin(), list.end(), fields[1]) == list.end()) list.push_back(fields[1]);
      db.known_.insert(fields[0]);
    });
    forEachLine(folder + "/types", [&](const std::string& line) { db.known_.insert(line); });
  }
  std::stable_sort(globs.begin(), globs.end(), [](const GlobEntry& a, const GlobEntry& b) {
    return a.weight != b.weight ? a.weight > b.weight : a.order < b.order;
  });
  for (const GlobEntry& glob : globs) {
    db.extensionToType_.emplace(glob.extension, glob.mimeType);
    db.preferredExtension_.emplace(glob.mimeType, glob.extension);
  }
  return db;
}

const std::string* MimeDatabase::mimeTypeForExtension(std::string_view lowercaseExtension) const {
  const auto it = extensionToType_.find(lowercaseExtension);
  return it == extensionToType_.end() ? nullptr : &it->second;
}

const std::string* MimeDatabase::preferredExtension(std::string_view mimeType) const {
  const auto it = preferredExtension_.find(mimeType);
  return it == preferredExtension_.end() ? nullptr : &it->second;
}

std::string MimeDatabase::canonicalName(std::string_view mimeType) const {
  std::string lower = lowercase(mimeType);
  const auto it = aliases_.find(lower);
  return it == aliases_.end() ? lower : it->second;
}

bool MimeDatabase::isKnown(std::string_view canonicalMimeType) const { return known_.count(canonicalMimeType) != 0; }

const std::vector<std::string>& MimeDatabase::parents(std::string_view canonicalMimeType) const {
  static const std::vector<std::string> kNone;
  const auto it = parents_.find(canonicalMimeType);
  return it == parents_.end() ? kNone : it->second;
}

}  // namespace zt::fs_internal
