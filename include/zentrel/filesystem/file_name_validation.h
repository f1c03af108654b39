#pragma once
// Checks a file name typed by a user before it is used. The answer is not an error object: nullopt
// for a valid name, or a message ready to show, translated through the application's gettext
// domain (ZTLocalizedString, the English text is the message id).
//
// Checks, in order; the first failure decides:
//  - empty, or only white space and newlines: "Empty name cannot be used";
//  - 256 or more UTF-16 code units (an emoji counts two), or more than 255 bytes of UTF-8 (the
//    most a Linux file system stores: 100 CJK characters are 300 bytes):
//    "File name exceeds maximum limit of symbols";
//  - begins with ".": "File name cannot be started with dot";
//  - contains NUL (always: the kernel would see the name end there) or a forbidden character
//    (compared ignoring case): "The name “<name>” cannot be used because of <character> character".
//    The message shows a NUL as the visible symbol "␀" (U+2400), in the name and as the character.
// Pure functions; any thread. Invalid UTF-8 counts as one U+FFFD per maximal ill-formed sequence.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

// Validates with "/" as the only forbidden character.
[[nodiscard]] ZT_API std::optional<std::string> ZTValidateLocalFileName(std::string_view name);
// forbiddenCharacters holds the forbidden characters as UTF-8 text; nullopt forbids none but NUL.
[[nodiscard]] ZT_API std::optional<std::string> ZTValidateLocalFileNameWithForbiddenCharacters(
    std::string_view name, const std::optional<std::string>& forbiddenCharacters);
