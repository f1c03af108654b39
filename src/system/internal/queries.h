#pragma once
// The system queries with their sources passed in: a root folder prefixed to every absolute path
// ("" for the real machine), an environment lookup, or the captured text itself. The public
// functions are these with the real machine's sources.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/system/os_version.h"

namespace zt::system_internal {

// Reads an environment variable; nullopt when unset.
using Environment = std::function<std::optional<std::string>(const char* name)>;
Environment processEnvironment();

// --- key=value files (os-release(5), machine-info(5)) ---
// The value of KEY=VALUE, unquoted: '...' taken literally, "..." with backslash escapes, bare
// values to the end of the line. Later assignments win. nullopt when absent or malformed
// (an unterminated quote).
std::optional<std::string> assignmentValue(std::string_view text, std::string_view key);

// --- network ---
struct InterfaceRoles {
  std::string primary;    // "en0"; empty when none
  std::string secondary;  // "en1"; empty when none
};
// The interface of the default IPv4 route with the lowest metric in /proc/net/route text.
std::optional<std::string> defaultRouteInterface(std::string_view procNetRoute);
// The same from /proc/net/ipv6_route text (rejecting routes and loopback left out).
std::optional<std::string> defaultRouteInterfaceIPv6(std::string_view procNetIPv6Route);
// The secondary is looked up only when asked for, or when there is no default route.
InterfaceRoles interfaceRolesAt(const std::string& root, bool wantSecondary = true);
// Six bytes from "xx:xx:xx:xx:xx:xx"; nullopt for anything else.
std::optional<std::array<std::uint8_t, 6>> parseHardwareAddress(std::string_view text);
// The formatted address, or "" after logging (see network.h).
std::string macAddressStringAt(const std::string& root);
struct InterfaceAddress {
  std::string interface;
  std::string ipv4;
};
std::optional<std::string> chooseEthernetIP(const std::vector<InterfaceAddress>& addresses,
                                            const InterfaceRoles& roles);

// --- machine ---
std::optional<std::string> machineModelAt(const std::string& root);
std::string deviceNameAt(const std::string& root);
std::string fullNameFromGecos(std::string_view gecos, std::string_view login);
// The Name of a desktop entry's text for a locale name such as "de_DE.UTF-8@euro" (empty: none).
std::optional<std::string> desktopEntryName(std::string_view desktopEntry, std::string_view locale);
// The folders that hold applications/ folders: $XDG_DATA_HOME (or ~/.local/share), then each of
// $XDG_DATA_DIRS (or /usr/local/share, /usr/share).
std::vector<std::string> dataFolders(const Environment& env);
// The path of an installed desktop entry, trying "a-b.desktop" also as "a/b.desktop".
std::optional<std::string> findDesktopEntry(std::string_view desktopFileID, const Environment& env);
std::string appNameFor(std::string_view desktopFileID, const Environment& env);

// --- operating system ---
struct ReleaseVersion {
  ZTVersionTriple triple;
  float value = 0;
};
// From a VERSION_ID text; the zero version when it does not begin with a number.
ReleaseVersion parseReleaseVersion(std::string_view versionID);
std::optional<std::string> osReleaseTextAt(const std::string& root);
ReleaseVersion releaseVersionAt(const std::string& root);
std::string releaseDescription(std::string_view osRelease);
ZTVersionTriple parseKernelRelease(std::string_view release);

// --- boot time ---
// btime from /proc/stat text, in seconds since 1970.
std::optional<double> bootTimeFromStat(std::string_view procStat);

// --- input devices ---
enum InputClass : std::uint32_t {
  kInputMouse = 1u << 0,
  kInputPointingStick = 1u << 1,
  kInputTouchpad = 1u << 2,
  kInputTouchscreen = 1u << 3,
  kInputTablet = 1u << 4,
  kInputJoystick = 1u << 5,
  kInputKeyboard = 1u << 6,
  kInputKeys = 1u << 7,
};
struct InputDevice {
  std::string name;
  std::uint32_t classes = 0;
};
// Every device block of /proc/bus/input/devices text, classified; blocks with malformed bitmaps
// are left out.
std::vector<InputDevice> parseInputDevices(std::string_view procBusInputDevices);
// The classes a usage page / usage pair stands for (0: none).
std::uint32_t classesForUsage(std::uint32_t usagePage, std::uint32_t usage);
bool anyMatchingDeviceAt(const std::string& root, std::uint32_t usagePage, std::uint32_t usage);

// --- default applications ---
// The [Default Applications] entries for a type in a mimeapps.list text, in order ("" entries
// dropped); empty when none.
std::vector<std::string> defaultApplications(std::string_view mimeappsList, std::string_view mimeType);
// The default application for a type, found as pdf_handler.h describes; nullopt when none.
std::optional<std::string> defaultApplicationFor(std::string_view mimeType, const Environment& env);
// mimeappsList with the type's default set to desktopFileID (the line replaced in place, or added
// at the end of [Default Applications], or the group added at the end).
std::string withDefaultApplication(std::string_view mimeappsList, std::string_view mimeType,
                                   std::string_view desktopFileID);
// mimeappsList with desktopFileID (compared case-insensitively) taken out of the type's default
// line, and the line removed when nothing is left; unchanged when it does not name it.
std::string withoutDefaultApplication(std::string_view mimeappsList, std::string_view mimeType,
                                      std::string_view desktopFileID);
// $XDG_CONFIG_HOME (absolute) or ~/.config.
std::string configHome(const Environment& env);
bool setDefaultApplication(std::string_view mimeType, std::string_view desktopFileID, const Environment& env);
bool removeDefaultApplication(std::string_view mimeType, std::string_view desktopFileID, const Environment& env);
// Replaces the file at path with contents, whole: temporary file beside it (O_EXCL|O_NOFOLLOW),
// fsync, rename, fsync of the folder; keeps the old file's mode (0644 for a new one) and follows a
// symbolic link at path to replace its target. False (errno set) on failure, the old file intact.
bool writeFileAtomically(const std::string& path, std::string_view contents);

// --- environment ---
bool runningInTestEnvironment(const Environment& env);
// TracerPid from /proc/<pid>/status text; nullopt when absent or malformed.
std::optional<std::int64_t> tracerPid(std::string_view procStatus);

}  // namespace zt::system_internal
