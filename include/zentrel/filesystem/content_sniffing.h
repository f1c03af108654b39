#pragma once
// Guesses from a file's first bytes. Any thread; the file is opened read-only and closed again.
// Only regular files (symbolic links followed) are read: a missing, unreadable or vanished file,
// a folder, a FIFO or a device gives false / nullopt, never an exception and never a wait.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

// Plain text: the first 24 bytes do not start with "bplist" or "%PDF", do not contain "<DOCTYPE"
// (when they are ASCII) and hold no zero byte, and neither do the rest of the first 4096 bytes.
// So UTF-16 text is not plain text; an empty file is.
ZT_API bool ZTIsPlainTextFileAtPath(std::string_view path);
// "pdf" when the file begins with "%PDF", else nullopt.
ZT_API std::optional<std::string> ZTFileExtensionUsingContentForFileAtPath(std::string_view path);
// The path's last component, with its extension set to "pdf" when the content is PDF and the name
// does not already say so ("report.txt" -> "report.pdf", "scan" -> "scan.pdf"); otherwise unchanged.
ZT_API std::string ZTFileNameWithContentCorrectedExtensionForFileAtPath(std::string_view path);
