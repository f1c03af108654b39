#include "zentrel/system/machine.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <mutex>
#include <vector>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "zentrel/platform/mutex.h"

namespace zt::system_internal {

namespace {

constexpr const char* kUnknownModel = "Unknown Mac Coputer";
constexpr const char* kFallbackAppName = "Zentrel PDF Viewer";

char lowerASCII(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerASCII(x) == lowerASCII(y); });
}

// Firmware fills DMI fields it was never given with texts like these.
bool isPlaceholder(std::string_view value) {
  static constexpr std::string_view kPlaceholders[] = {
      "To be filled by O.E.M.", "To Be Filled By O.E.M", "System Product Name", "System manufacturer",
      "System Manufacturer",    "Default string",         "Not Applicable",      "Not Specified",
      "None",                   "O.E.M.",                 "OEM",                 "Undefined",
      "Unknown",                "Type1ProductConfigId",   "All Series",          "N/A"};
  value = trimmed(value);
  if (value.empty()) return true;
  for (auto placeholder : kPlaceholders) {
    if (equalsIgnoringCase(value, placeholder)) return true;
  }
  return false;
}

std::optional<std::string> usableFirmwareText(const std::string& path) {
  auto text = readTextFile(path, 4096);
  if (!text) return std::nullopt;
  // The device tree ends its strings with NUL; DMI with a line break.
  std::string_view view = *text;
  view = view.substr(0, view.find('\0'));
  view = trimmed(view.substr(0, view.find('\n')));
  if (isPlaceholder(view)) return std::nullopt;
  return std::string(view);
}

}  // namespace

std::optional<std::string> machineModelAt(const std::string& root) {
  if (auto product = usableFirmwareText(root + "/sys/class/dmi/id/product_name")) {
    auto vendor = usableFirmwareText(root + "/sys/class/dmi/id/sys_vendor");
    if (!vendor) return product;
    // "Dell Inc." makes "Dell XPS 13": the product already names its maker.
    std::string_view maker = std::string_view(*vendor).substr(0, vendor->find(' '));
    std::string_view productFirst = std::string_view(*product).substr(0, product->find(' '));
    if (equalsIgnoringCase(maker, productFirst)) return product;
    return *vendor + " " + *product;
  }
  for (const char* path : {"/sys/firmware/devicetree/base/model", "/proc/device-tree/model"}) {
    if (auto model = usableFirmwareText(root + path)) return model;
  }
  return std::nullopt;
}

std::string deviceNameAt(const std::string& root) {
  if (auto text = readTextFile(root + "/etc/machine-info", 64u * 1024u)) {
    if (auto pretty = assignmentValue(*text, "PRETTY_HOSTNAME"); pretty && !trimmed(*pretty).empty()) {
      return *pretty;
    }
  }
  if (root.empty()) {
    char host[HOST_NAME_MAX + 1] = {};
    if (::gethostname(host, sizeof host - 1) == 0) return host;
  }
  return readFirstLine(root + "/proc/sys/kernel/hostname").value_or("");
}

std::string fullNameFromGecos(std::string_view gecos, std::string_view login) {
  std::string_view first = gecos.substr(0, gecos.find(','));
  std::string name;
  for (char c : first) {
    if (c == '&') {
      std::string capitalised(login);
      if (!capitalised.empty() && capitalised[0] >= 'a' && capitalised[0] <= 'z') capitalised[0] -= 'a' - 'A';
      name += capitalised;
    } else {
      name += c;
    }
  }
  name = std::string(trimmed(name));
  return name.empty() ? std::string(login) : name;
}

std::optional<std::string> desktopEntryName(std::string_view desktopEntry, std::string_view locale) {
  // lang_COUNTRY.ENCODING@MODIFIER: the encoding plays no part; try the most specific form first.
  std::string_view lang = locale, country, modifier;
  if (auto at = lang.find('@'); at != std::string_view::npos) {
    modifier = lang.substr(at + 1);
    lang = lang.substr(0, at);
  }
  if (auto dot = lang.find('.'); dot != std::string_view::npos) lang = lang.substr(0, dot);
  if (auto underscore = lang.find('_'); underscore != std::string_view::npos) {
    country = lang.substr(underscore + 1);
    lang = lang.substr(0, underscore);
  }
  std::vector<std::string> keys;
  if (!lang.empty() && lang != "C" && lang != "POSIX") {
    if (!country.empty() && !modifier.empty())
      keys.push_back("Name[" + std::string(lang) + "_" + std::string(country) + "@" + std::string(modifier) + "]");
    if (!country.empty()) keys.push_back("Name[" + std::string(lang) + "_" + std::string(country) + "]");
    if (!modifier.empty()) keys.push_back("Name[" + std::string(lang) + "@" + std::string(modifier) + "]");
    keys.push_back("Name[" + std::string(lang) + "]");
  }
  keys.emplace_back("Name");

  std::vector<std::optional<std::string>> found(keys.size());
  bool inMainGroup = false;
  std::size_t start = 0;
  while (start < desktopEntry.size()) {
    std::size_t end = desktopEntry.find('\n', start);
    if (end == std::string_view::npos) end = desktopEntry.size();
    std::string_view line = trimmed(desktopEntry.substr(start, end - start));
    start = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      inMainGroup = line == "[Desktop Entry]";
      continue;
    }
    if (!inMainGroup) continue;
    auto equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    std::string_view key = trimmed(line.substr(0, equals));
    std::string_view value = trimmed(line.substr(equals + 1));
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (key == keys[i] && !found[i] && !value.empty()) found[i] = std::string(value);
    }
  }
  for (auto& name : found) {
    if (name) return name;
  }
  return std::nullopt;
}

std::vector<std::string> dataFolders(const Environment& env) {
  std::vector<std::string> folders;
  auto dataHome = env("XDG_DATA_HOME");
  if (dataHome && !dataHome->empty() && (*dataHome)[0] == '/') {
    folders.push_back(*dataHome);
  } else if (auto home = env("HOME"); home && !home->empty()) {
    folders.push_back(*home + "/.local/share");
  }
  std::string dirs = env("XDG_DATA_DIRS").value_or("");
  if (dirs.empty()) dirs = "/usr/local/share/:/usr/share/";
  std::size_t start = 0;
  while (start <= dirs.size() && folders.size() < 256) {
    std::size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    std::string folder = dirs.substr(start, end - start);
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    if (!folder.empty() && folder[0] == '/') folders.push_back(folder);
    start = end + 1;
  }
  return folders;
}

std::optional<std::string> findDesktopEntry(std::string_view desktopFileID, const Environment& env) {
  if (desktopFileID.empty() || desktopFileID.find('/') != std::string_view::npos ||
      desktopFileID.find('\0') != std::string_view::npos || desktopFileID == "." || desktopFileID == "..") {
    return std::nullopt;
  }
  // "vendor-app.desktop" may be installed as applications/vendor/app.desktop.
  std::vector<std::string> relative{std::string(desktopFileID)};
  std::string nested(desktopFileID);
  for (std::size_t dash = nested.find('-'); dash != std::string::npos && relative.size() < 16;
       dash = nested.find('-', dash + 1)) {
    std::string candidate = nested;
    candidate[dash] = '/';
    relative.push_back(candidate);
  }
  for (const auto& folder : dataFolders(env)) {
    for (const auto& name : relative) {
      std::string path = folder + "/applications/" + name;
      struct stat info;
      if (::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) return path;
    }
  }
  return std::nullopt;
}

std::string appNameFor(std::string_view desktopFileID, const Environment& env) {
  if (desktopFileID.empty()) return kFallbackAppName;
  auto path = findDesktopEntry(desktopFileID, env);
  if (!path) return kFallbackAppName;
  auto text = readTextFile(*path, 1u << 20);
  if (!text) return kFallbackAppName;
  std::string locale;
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (auto value = env(variable); value && !value->empty()) {
      locale = *value;
      break;
    }
  }
  return desktopEntryName(*text, locale).value_or(kFallbackAppName);
}

std::string unknownModelText() { return kUnknownModel; }

}  // namespace zt::system_internal

namespace {

ZTMutex gIdentityMutex;
std::string gDesktopEntryID ZT_GUARDED_BY(gIdentityMutex);

}  // namespace

std::string ZTGetMacMachineModel() {
  return zt::system_internal::machineModelAt("").value_or(zt::system_internal::unknownModelText());
}

std::string ZTGetDeviceModelString() {
  static const std::string model = zt::system_internal::machineModelAt("").value_or("");
  return model;
}

std::string ZTGetDeviceName() { return zt::system_internal::deviceNameAt(""); }

std::string ZTUserName() {
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::size_t size = suggested > 0 ? static_cast<std::size_t>(suggested) : 4096;
  // ERANGE asks for a bigger buffer; the bound keeps a broken user database from growing it forever.
  for (int attempt = 0; attempt < 8; ++attempt, size *= 4) {
    std::vector<char> buffer(size);
    struct passwd entry;
    struct passwd* result = nullptr;
    int error = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
    if (error == ERANGE) continue;
    if (error != 0 || !result) return {};
    return zt::system_internal::fullNameFromGecos(entry.pw_gecos ? entry.pw_gecos : "",
                                                  entry.pw_name ? entry.pw_name : "");
  }
  return {};
}

void ZTSetAppDesktopEntryID(std::string_view desktopFileID) {
  ZTLockGuard lock(gIdentityMutex);
  gDesktopEntryID = std::string(desktopFileID);
}

std::string ZTAppDesktopEntryID() {
  ZTLockGuard lock(gIdentityMutex);
  return gDesktopEntryID;
}

std::string ZTAppName() {
  return zt::system_internal::appNameFor(ZTAppDesktopEntryID(), zt::system_internal::processEnvironment());
}
