#pragma once
// Free names for new or copied items ("a-1.txt", "a copy 2.txt") and reserved temporary paths.
//
// The unique-name functions ask a handler whether a candidate may be created and try candidates in
// a fixed order until it says yes:
//  1. the name itself;
//  2. with a suffix: stem + separator + suffix (+ "." + extension), e.g. "a copy.txt"; then the
//     numbered sequence continues from startNumber on that longer stem ("a copy 2.txt", ...);
//  3. without a suffix, when the stem already ends in separator + a canonical decimal number (no
//     leading zeros, no sign, no trailing text), numbering continues after that number:
//     "report-3.txt" -> "report-4.txt"; "report-03.txt" -> "report-03-1.txt";
//  4. stem + separator + counter (+ "." + extension), the counter growing by one each time.
// Folders (isDirectory) are numbered on their whole name: "pkg.app" -> "pkg.app-1".
// There is no upper bound: the loop ends only when the handler accepts a candidate, so a handler
// must eventually say yes. With no separator and no suffix the separator prints as "(null)".
//
// Handlers are called synchronously on the calling thread, any number of times. An empty handler
// is a programming error: ZTInternalInconsistencyException. The functions keep no state and may
// be called from any thread.

#include <any>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"

// Answers whether an item named `name` may be created in `parent` (the caller's own context, passed
// through untouched: a folder path, a remote folder object...).
using ZTCanCreateItemBlock = std::function<bool(const std::string& name, const std::any& parent)>;
// Answers whether an item exists at `path`.
using ZTItemExistsBlock = std::function<bool(const std::string& path)>;

[[nodiscard]] ZT_API std::string ZTGenerateUniqueDisplayNameUsingCanCreateItemBlock(
    const std::string& name, const std::any& parent, bool isDirectory, const std::optional<std::string>& separator,
    const std::optional<std::string>& suffix, std::int64_t startNumber, const ZTCanCreateItemBlock& canCreate);

// The unique-name rules on the last component of `path`; the result is the parent folder joined
// with the chosen name. A candidate is accepted when itemExists says nothing is there.
[[nodiscard]] ZT_API std::string ZTGenerateUniquePathUsingItemExistsBlock(const std::string& path, bool isDirectory,
                                                     const std::optional<std::string>& separator,
                                                     const std::optional<std::string>& suffix, std::int64_t startNumber,
                                                     const ZTItemExistsBlock& itemExists);
// As above, asking the file system: any item counts, including a dangling symbolic link (so a
// name is never chosen that would replace a link).
[[nodiscard]] ZT_API std::string ZTGenerateUniquePath(const std::string& path, bool isDirectory, const std::optional<std::string>& separator,
                                 const std::optional<std::string>& suffix, std::int64_t startNumber);
// "a.txt", then "a-1.txt", "a-2.txt", ...; "a-7.txt" continues at "a-8.txt".
[[nodiscard]] ZT_API std::string ZTGenerateMacStyleUniquePath(const std::string& path, bool isDirectory);

// Reserves a temporary name derived from `fileName`: creates the empty file
// "<temporary folder>/<stem>-XXXXXX" (the X replaced by random characters; see temporary_files.h
// for the private folder and how files are created) and answers that path followed by "." and the
// name's extension. The created file keeps the name reserved; the returned path itself does not
// exist yet, and a name without an extension gives a path ending in ".".
// The file's descriptor stays open (close-on-exec) for the life of the process, as the classic
// contract requires; ZTTempFile (temporary_files.h) is the form that hands it back.
// nullopt when the name is not a single path component ("../x.txt", "a/b", "..", "a\0b") or the file
// cannot be created.
[[nodiscard]] ZT_API std::optional<std::string> ZTGenerateTempFilePath(std::string_view fileName);
