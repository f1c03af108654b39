#pragma once
// Whether this application opens PDF files by default, and making it (or no longer making it) the
// default, through the freedesktop MIME associations that file managers and xdg-open follow.
//
// The application is known by its desktop entry ID (ZTSetAppDesktopEntryID in machine.h); without
// one all three functions answer false.
//
// Looking up: the first [Default Applications] entry for "application/pdf", searching as xdg-mime
// does — mimeapps.list files in $XDG_CONFIG_HOME, each of $XDG_CONFIG_DIRS, $XDG_DATA_HOME/
// applications and each of $XDG_DATA_DIRS/applications, in each folder first the desktop-specific
// "<desktop>-mimeapps.list" for every name in $XDG_CURRENT_DESKTOP (lower case) and then
// "mimeapps.list" — and taking the first listed application whose desktop entry is installed;
// after those, defaults.list and mimeinfo.cache in the data folders. (xdg-mime's last resort,
// scanning every installed desktop entry for the type, is left out: mimeinfo.cache is the index
// of exactly that scan.)
//
// Changing: only the user's own files in $XDG_CONFIG_HOME are written, each whole (a temporary
// file beside it, fsync, rename, fsync of the folder; a symbolic link is followed and its target
// replaced), keeping every other line as it was and the file's permissions. Concurrent changes by
// another program between our read and our rename are lost to ours, as with xdg-mime.
//
// Bad input: unreadable or garbled association files are skipped as if absent; a failure to write
// answers false and leaves the old file in place. Thread-safe; calls that change the files are
// serialised within the process. Never throws.

#include "zentrel/platform/export.h"

// True when the default PDF application, found as above, is this application's desktop entry
// (compared case-insensitively).
[[nodiscard]] ZT_API bool isAppDefaultPDFHandler();

// Makes this application the default for "application/pdf": sets the entry in
// $XDG_CONFIG_HOME/mimeapps.list (adding the [Default Applications] group when missing, creating
// the file and folder when missing), and updates the entry in a desktop-specific list there when
// one already names a PDF default, since that one would win. False, after logging, when no desktop
// entry ID was set or no desktop entry of that name is installed (the association would be
// ignored), or a file cannot be written.
[[nodiscard]] ZT_API bool setAppAsDefaultPDFHandler();

// Removes this application from the user's PDF defaults in $XDG_CONFIG_HOME (the desktop-specific
// lists too; a line left with no application is removed), so that the system's default applies
// again. An entry naming another application is the user's choice and stays. True when the files
// no longer name this application (including when they never did).
[[nodiscard]] ZT_API bool resetDefaultPDFHandler();
