#include "zentrel/system/pdf_handler.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/uuid.h"
#include "zentrel/system/machine.h"

namespace zt::system_internal {

namespace {

constexpr const char* kPDFType = "application/pdf";
constexpr std::string_view kDefaultGroup = "[Default Applications]";
constexpr std::size_t kMaxListBytes = 4u << 20;

char lowerASCII(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerASCII(x) == lowerASCII(y); });
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> out;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

bool isGroupHeader(std::string_view line) { return !line.empty() && line[0] == '['; }
bool isDefaultGroup(std::string_view line) { return trimmed(line) == kDefaultGroup; }

// "type=value" (spaces around '=' allowed, as desktop-entry files allow them): the value.
std::optional<std::string_view> entryValue(std::string_view line, std::string_view mimeType) {
  line = trimmed(line);
  if (line.substr(0, mimeType.size()) != mimeType) return std::nullopt;
  std::string_view rest = trimmed(line.substr(mimeType.size()));
  if (rest.empty() || rest[0] != '=') return std::nullopt;
  return trimmed(rest.substr(1));
}

std::vector<std::string> splitList(std::string_view value) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start <= value.size()) {
    std::size_t end = value.find(';', start);
    if (end == std::string_view::npos) end = value.size();
    std::string_view item = trimmed(value.substr(start, end - start));
    if (!item.empty()) out.emplace_back(item);
    start = end + 1;
  }
  return out;
}

std::string joinLines(const std::vector<std::string>& out, bool endsWithNewline) {
  std::string text;
  for (std::size_t i = 0; i < out.size(); ++i) {
    text += out[i];
    if (i + 1 < out.size() || endsWithNewline) text += '\n';
  }
  return text;
}

std::vector<std::string> desktopPrefixes(const Environment& env) {
  std::vector<std::string> prefixes;
  std::string desktops = env("XDG_CURRENT_DESKTOP").value_or("");
  std::size_t start = 0;
  while (start < desktops.size() && prefixes.size() < 16) {
    std::size_t end = desktops.find(':', start);
    if (end == std::string::npos) end = desktops.size();
    std::string name = desktops.substr(start, end - start);
    start = end + 1;
    if (name.empty() || name.find('/') != std::string::npos) continue;
    for (char& c : name) c = lowerASCII(c);
    prefixes.push_back(name + "-");
  }
  prefixes.emplace_back();
  return prefixes;
}

std::vector<std::string> splitPath(const std::string& list) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start <= list.size() && out.size() < 256) {
    std::size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string folder = list.substr(start, end - start);
    if (!folder.empty() && folder[0] == '/') out.push_back(folder);
    start = end + 1;
  }
  return out;
}

ZTMutex gWriteMutex;

}  // namespace

std::string configHome(const Environment& env) {
  auto value = env("XDG_CONFIG_HOME");
  if (value && !value->empty() && (*value)[0] == '/') return *value;
  return env("HOME").value_or("") + "/.config";
}

std::vector<std::string> defaultApplications(std::string_view mimeappsList, std::string_view mimeType) {
  bool inDefault = false;
  for (auto line : lines(mimeappsList)) {
    if (isGroupHeader(trimmed(line))) {
      inDefault = isDefaultGroup(line);
    } else if (inDefault) {
      if (auto value = entryValue(line, mimeType)) return splitList(*value);
    }
  }
  return {};
}

std::optional<std::string> defaultApplicationFor(std::string_view mimeType, const Environment& env) {
  std::vector<std::string> folders{configHome(env)};
  for (auto& folder : splitPath(env("XDG_CONFIG_DIRS").value_or("").empty() ? "/etc/xdg"
                                                                            : *env("XDG_CONFIG_DIRS"))) {
    folders.push_back(folder);
  }
  const auto dataDirs = dataFolders(env);
  for (const auto& data : dataDirs) folders.push_back(data + "/applications");

  const auto prefixes = desktopPrefixes(env);
  for (const auto& folder : folders) {
    for (const auto& prefix : prefixes) {
      auto text = readTextFile(folder + "/" + prefix + "mimeapps.list", kMaxListBytes);
      if (!text) continue;
      for (const auto& app : defaultApplications(*text, mimeType)) {
        if (findDesktopEntry(app, env)) return app;
      }
    }
  }
  // The older defaults.list and the index update-desktop-database keeps.
  std::string menuPrefix = env("XDG_MENU_PREFIX").value_or("");
  if (menuPrefix.find('/') != std::string::npos) menuPrefix.clear();
  for (const auto& data : dataDirs) {
    for (const auto& prefix : {menuPrefix, std::string()}) {
      for (const char* name : {"defaults.list", "mimeinfo.cache"}) {
        auto text = readTextFile(data + "/applications/" + prefix + name, kMaxListBytes);
        if (!text) continue;
        // Any group, as xdg-mime reads them: the first line for the type, its first application.
        for (auto line : lines(*text)) {
          if (auto value = entryValue(line, mimeType)) {
            auto apps = splitList(*value);
            if (!apps.empty()) return apps.front();
          }
        }
      }
      if (menuPrefix.empty()) break;
    }
  }
  return std::nullopt;
}

std::string withDefaultApplication(std::string_view mimeappsList, std::string_view mimeType,
                                   std::string_view desktopFileID) {
  const std::string entry = std::string(mimeType) + "=" + std::string(desktopFileID);
  std::vector<std::string> out;
  bool inDefault = false, found = false, added = false;
  std::size_t lastEntryInDefault = 0;  // where a new entry goes: after the group's last non-blank line
  for (auto line : lines(mimeappsList)) {
    if (isGroupHeader(trimmed(line))) {
      inDefault = isDefaultGroup(line);
      if (inDefault) {
        found = true;
        lastEntryInDefault = out.size() + 1;
      }
    } else if (inDefault && !added && entryValue(line, mimeType)) {
      out.push_back(entry);
      added = true;
      continue;
    } else if (inDefault && !trimmed(line).empty()) {
      lastEntryInDefault = out.size() + 1;
    }
    out.emplace_back(line);
  }
  if (!added) {
    if (found) {
      out.insert(out.begin() + static_cast<std::ptrdiff_t>(lastEntryInDefault), entry);
    } else {
      if (!out.empty() && !trimmed(out.back()).empty()) out.emplace_back();
      out.emplace_back(kDefaultGroup);
      out.push_back(entry);
    }
  }
  return joinLines(out, true);
}

std::string withoutDefaultApplication(std::string_view mimeappsList, std::string_view mimeType,
                                      std::string_view desktopFileID) {
  std::vector<std::string> out;
  bool inDefault = false, changed = false;
  for (auto line : lines(mimeappsList)) {
    if (isGroupHeader(trimmed(line))) {
      inDefault = isDefaultGroup(line);
    } else if (inDefault) {
      if (auto value = entryValue(line, mimeType)) {
        auto apps = splitList(*value);
        auto kept = apps;
        std::erase_if(kept, [&](const std::string& app) { return equalsIgnoringCase(app, desktopFileID); });
        if (kept.size() != apps.size()) {
          changed = true;
          if (kept.empty()) continue;
          std::string rewritten = std::string(mimeType) + "=";
          for (const auto& app : kept) rewritten += app + ";";
          out.push_back(rewritten);
          continue;
        }
      }
    }
    out.emplace_back(line);
  }
  if (!changed) return std::string(mimeappsList);
  return joinLines(out, mimeappsList.empty() || mimeappsList.back() == '\n');
}

bool writeFileAtomically(const std::string& path, std::string_view contents) {
  // Follow a symbolic link (dotfile managers keep mimeapps.list in a repository) to its target.
  std::string target = path;
  char resolved[PATH_MAX];
  struct stat linkInfo;
  if (::lstat(path.c_str(), &linkInfo) == 0 && S_ISLNK(linkInfo.st_mode)) {
    if (!::realpath(path.c_str(), resolved)) return false;
    target = resolved;
  }
  mode_t mode = 0644;
  struct stat info;
  if (::stat(target.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) {
      errno = EISDIR;
      return false;
    }
    mode = info.st_mode & 07777;
  }
  const auto slash = target.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : target.substr(0, slash));
  const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
  const std::string temporary = folder + "/." + name + "." + ZTUUIDString() + ".tmp";
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool ok = true;
  std::size_t written = 0;
  for (int interruptions = 0; ok && written < contents.size();) {
    ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR && ++interruptions < 100) continue;
      ok = false;
    } else {
      written += static_cast<std::size_t>(n);
    }
  }
  ok = ok && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
  int saved = errno;
  if (::close(fd) != 0 && ok) {
    ok = false;
    saved = errno;
  }
  if (ok && ::rename(temporary.c_str(), target.c_str()) != 0) {
    ok = false;
    saved = errno;
  }
  if (!ok) {
    ::unlink(temporary.c_str());
    errno = saved;
    return false;
  }
  if (int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

namespace {

bool makeFolders(const std::string& path) {
  // Each pass handles one more component; the path's length bounds the passes.
  for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string prefix = path.substr(0, slash);
    if (!prefix.empty() && ::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) break;
  }
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Rewrites one list when `change` alters its text; true when nothing needed writing or it was written.
template <typename Change>
bool rewriteList(const std::string& path, bool createWhenMissing, Change change) {
  errno = 0;
  auto text = readTextFile(path, kMaxListBytes);
  if (!text) {
    if (errno != ENOENT) {
      ZTLogf("ERROR: cannot read %s: %s", path.c_str(), std::strerror(errno ? errno : EFBIG));
      return false;
    }
    if (!createWhenMissing) return true;
    text = std::string();
  }
  std::string updated = change(*text);
  if (updated == *text) return true;
  if (!writeFileAtomically(path, updated)) {
    ZTLogf("ERROR: cannot write %s: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

}  // namespace

bool setDefaultApplication(std::string_view mimeType, std::string_view desktopFileID, const Environment& env) {
  if (!findDesktopEntry(desktopFileID, env)) {
    ZTLogf("ERROR: cannot make %.*s the default for %.*s: no desktop entry of that name is installed",
           static_cast<int>(desktopFileID.size()), desktopFileID.data(), static_cast<int>(mimeType.size()),
           mimeType.data());
    return false;
  }
  const std::string folder = configHome(env);
  ZTLockGuard lock(gWriteMutex);
  if (!makeFolders(folder)) {
    ZTLogf("ERROR: cannot create %s: %s", folder.c_str(), std::strerror(errno));
    return false;
  }
  bool ok = true;
  for (const auto& prefix : desktopPrefixes(env)) {
    const bool generic = prefix.empty();
    ok = rewriteList(folder + "/" + prefix + "mimeapps.list", generic, [&](const std::string& text) {
      if (!generic && defaultApplications(text, mimeType).empty()) return text;
      return withDefaultApplication(text, mimeType, desktopFileID);
    }) && ok;
  }
  return ok;
}

bool removeDefaultApplication(std::string_view mimeType, std::string_view desktopFileID, const Environment& env) {
  if (desktopFileID.empty()) return false;
  const std::string folder = configHome(env);
  ZTLockGuard lock(gWriteMutex);
  bool ok = true;
  for (const auto& prefix : desktopPrefixes(env)) {
    ok = rewriteList(folder + "/" + prefix + "mimeapps.list", false, [&](const std::string& text) {
      return withoutDefaultApplication(text, mimeType, desktopFileID);
    }) && ok;
  }
  return ok;
}

}  // namespace zt::system_internal

bool isAppDefaultPDFHandler() {
  using namespace zt::system_internal;
  const std::string id = ZTAppDesktopEntryID();
  if (id.empty()) return false;
  auto current = defaultApplicationFor(kPDFType, processEnvironment());
  return current && equalsIgnoringCase(*current, id);
}

bool setAppAsDefaultPDFHandler() {
  using namespace zt::system_internal;
  const std::string id = ZTAppDesktopEntryID();
  if (id.empty()) {
    ZTLog("ERROR: cannot make this application the default for application/pdf: no desktop entry ID was set");
    return false;
  }
  return setDefaultApplication(kPDFType, id, processEnvironment());
}

bool resetDefaultPDFHandler() {
  using namespace zt::system_internal;
  return removeDefaultApplication(kPDFType, ZTAppDesktopEntryID(), processEnvironment());
}
