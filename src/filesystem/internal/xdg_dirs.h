#pragma once
// The folder rules behind standard_directories.h, with the environment and the home folder passed
// in, so they can be computed afresh (the public functions cache their answers).

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zt::fs_internal {

// Reads an environment variable; nullopt when unset.
using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;
EnvironmentLookup processEnvironment();

// The home folder from the user database, nullopt when the lookup fails.
std::optional<std::string> userDatabaseHome();

std::string xdgDataHome(const std::string& home, const EnvironmentLookup& env);
std::string xdgCacheHome(const std::string& home, const EnvironmentLookup& env);
std::string xdgConfigHome(const std::string& home, const EnvironmentLookup& env);
// The value of `key` (e.g. "XDG_DOCUMENTS_DIR") in the text of a user-dirs.dirs file, with
// "$HOME" expanded; nullopt when absent or not usable (neither "$HOME..." nor absolute).
std::optional<std::string> userDirectoryFromUserDirsFile(std::string_view contents, std::string_view key,
                                                         const std::string& home);
std::string documentsDirectory(const std::string& home, const EnvironmentLookup& env);
// The application folder: the documents folder's parent, or home when the documents folder is the
// home folder itself (how xdg-user-dirs disables it) or has no parent below the root.
std::string applicationDirectory(const std::string& documents, const std::string& home);
// The freedesktop home trash, $XDG_DATA_HOME/Trash, made with its files/ and info/ folders (mode
// 0700, missing parents too) when missing; nullopt (errno set) when it cannot be made.
std::optional<std::string> homeTrash(const std::string& home, const EnvironmentLookup& env);
// The home trash, or home/.Trash after logging that it could not be made.
std::string trashDirectory(const std::string& home, const EnvironmentLookup& env);
// dataHome/executableName, created when missing; temporaryFolder() (with the log lines) when it is
// not a folder or cannot be created. temporaryFolder is called only then.
std::string applicationSupportDirectory(const std::string& dataHome, const std::string& executableName,
                                        const std::function<std::string()>& temporaryFolder);
// The base name of the running executable.
std::string executableName();

}  // namespace zt::fs_internal
