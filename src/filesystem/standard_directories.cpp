#include "zentrel/filesystem/standard_directories.h"

#include <cstdlib>
#include <mutex>

#include "filesystem/internal/temporary_folder.h"
#include "filesystem/internal/xdg_dirs.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/platform/log.h"

namespace xdg = zt::fs_internal;

std::string ZTHomeDirectory() {
  if (std::optional<std::string> home = xdg::userDatabaseHome()) return *home;
  // A user without an entry (a container started with an arbitrary uid) stays without one: say so
  // once, not on every call and every "~" expansion.
  static std::once_flag logged;
  std::call_once(logged, [] { ZTLog("getpwuid() failed. Fallback to NSHomeDirectory()."); });
  const char* home = std::getenv("HOME");
  return home != nullptr && home[0] == '/' ? std::string(home) : std::string("/");
}

std::string ZTTrashDirectory() {
  static const std::string trash = xdg::trashDirectory(ZTHomeDirectory(), xdg::processEnvironment());
  return trash;
}

std::string ZTDocumentsDirectory() {
  static const std::string documents = xdg::documentsDirectory(ZTHomeDirectory(), xdg::processEnvironment());
  return documents;
}

std::string ZTDocumentsDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTDocumentsDirectory(), component);
}

std::string ZTApplicationDirectory() {
  static const std::string application = xdg::applicationDirectory(ZTDocumentsDirectory(), ZTHomeDirectory());
  return application;
}

std::string ZTLibraryDirectory() {
  static const std::string library = xdg::xdgDataHome(ZTHomeDirectory(), xdg::processEnvironment());
  return library;
}

std::string ZTLibraryDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTLibraryDirectory(), component);
}

std::string ZTApplicationLibraryDirectory() { return xdg::xdgDataHome(ZTHomeDirectory(), xdg::processEnvironment()); }

std::string ZTApplicationLibraryDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTApplicationLibraryDirectory(), component);
}

std::string ZTCachesDirectory() {
  static const std::string caches = xdg::xdgCacheHome(ZTHomeDirectory(), xdg::processEnvironment());
  return caches;
}

std::string ZTCachesDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTCachesDirectory(), component);
}

std::string ZTApplicationSupportDirectory() {
  static const std::string support = xdg::applicationSupportDirectory(
      xdg::xdgDataHome(ZTHomeDirectory(), xdg::processEnvironment()), xdg::executableName(), [] { return ZTTemporaryDirectory(); });
  return support;
}

std::string ZTApplicationSupportDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTApplicationSupportDirectory(), component);
}

std::string ZTTemporaryDirectory() { return xdg::privateTemporaryFolderPath(xdg::processEnvironment()); }

std::string ZTTemporaryDirectoryAdd(std::string_view component) {
  return zt::stringByAppendingPathComponent(ZTTemporaryDirectory(), component);
}

std::optional<std::string> ZTiCloudContainerIdentifier(const ZTValue& infoDictionary) {
  const auto* containers = infoDictionary["NSUbiquitousContainers"].getIf<ZTValueDictionary>();
  if (containers == nullptr) return std::nullopt;
  for (const auto& [identifier, settings] : *containers) {
    if (settings["NSUbiquitousContainerIsDocumentScopePublic"].boolValue(false)) return identifier;
  }
  return std::nullopt;
}

std::optional<ZTFileURL> ZTiCloudContainerURLFromIdentifier(const std::optional<std::string>& identifier) {
  if (!identifier || identifier->empty()) return std::nullopt;
  std::string folder = *identifier;
  for (char& c : folder) {
    if (c == '.') c = '~';
  }
  const std::string path = zt::stringByAppendingPathComponent(
      zt::stringByAppendingPathComponent(ZTHomeDirectory(), "/Library/Mobile Documents"), folder);
  return ZTFileURL::fileURLWithPath(zt::stringByStandardizingPath(path), true);
}
