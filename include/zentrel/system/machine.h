#pragma once
// Who and what is running: the machine's model and name, the user's full name, the application's
// display name, and fresh UUID texts.
//
// Every function may be called from any thread and never throws; unreadable or garbled system
// files give the fallback each function names.

#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/platform/uuid.h"  // ZTUUIDString(): a fresh random UUID text, upper case

// The machine's model, read afresh: "<vendor> <product>" from the firmware's DMI tables
// (/sys/class/dmi/id/sys_vendor and product_name; the vendor is left out when the product name
// already begins with the vendor's first word, and firmware placeholders such as
// "To be filled by O.E.M." count as absent), else the device tree's model
// (/sys/firmware/devicetree/base/model, on ARM boards), else "Unknown Mac Coputer".
[[nodiscard]] ZT_API std::string ZTGetMacMachineModel();

// The same model text, read once per process and kept (the first call reads; later calls from any
// thread get the kept text). Unlike ZTGetMacMachineModel it is the raw reading: the empty string
// when the machine names no model.
[[nodiscard]] ZT_API std::string ZTGetDeviceModelString();

// The name the user gave this machine: the pretty host name (PRETTY_HOSTNAME in
// /etc/machine-info, as hostnamectl sets it), else the host name. Empty only when neither can be
// read.
[[nodiscard]] ZT_API std::string ZTGetDeviceName();

// The user's full name: the first comma-separated field of the user database's comment (GECOS)
// field, with "&" standing for the capitalised login name as finger(1) reads it; the login name
// when that field is empty; the empty string when the user database has no entry for the user.
[[nodiscard]] ZT_API std::string ZTUserName();

// The application's identity on the desktop: the file name of its desktop entry (for example
// "org.example.Viewer.desktop"), which desktops and MIME associations know it by. The library
// cannot guess it; an application sets it once at start-up. Setting "" forgets it. Thread-safe.
ZT_API void ZTSetAppDesktopEntryID(std::string_view desktopFileID);
// The desktop entry ID last set, or "" when none was.
[[nodiscard]] ZT_API std::string ZTAppDesktopEntryID();

// The application's display name: the Name of its desktop entry (set with ZTSetAppDesktopEntryID,
// looked up under applications/ in $XDG_DATA_HOME and then $XDG_DATA_DIRS, translated for the
// language of LC_ALL, LC_MESSAGES or LANG when the entry has a translation), or
// "Zentrel PDF Viewer" when no entry was set, none is installed, or it has no usable Name.
[[nodiscard]] ZT_API std::string ZTAppName();
