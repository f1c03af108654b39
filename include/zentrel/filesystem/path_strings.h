#pragma once
// Path arithmetic on UTF-8 path strings, as free functions in namespace zt with the string as the
// first argument.
//
// The first group is the everyday path vocabulary (last component, extension, joining) with the
// classic rules: "/" separates components and a trailing "/" is ignored where a component is
// asked for. The second group normalizes and compares paths (see ZTNormalizePath in paths.h for
// the normal form). Only stringByStandardizingPath (the "/private" rule) and the functions that
// resolve symbolic links look at the file system; nothing here changes it.
//
// All functions are reentrant and may be called from any thread. They work on bytes, so a
// string with invalid UTF-8 or an embedded NUL is handled like any other text and never makes them
// fail; only the case-insensitive comparison decodes UTF-8 (invalid sequences compare as U+FFFD).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/export.h"

// Options of stringByNormalizingPathWithOptions. The beginning of the path is always normalized as
// ZTNormalizeBeginingOfPath does.
enum ZTPathNormalizationOptions : unsigned {
  // The result ends with exactly one "/".
  ZTPathNormalizationAddTrailingSlash = 2,
  // Symbolic links are resolved in the longest leading part of the path that exists, so that two
  // spellings of one folder compare equal (this reads the file system).
  ZTPathNormalizationResolveSymbolicLinks = 4,
  // The form every comparison below uses.
  ZTPathNormalizationForComparison = ZTPathNormalizationAddTrailingSlash | ZTPathNormalizationResolveSymbolicLinks,
};

namespace zt {

// --- Everyday path vocabulary -------------------------------------------------------------------

// "/tmp/a.txt" -> "a.txt"; "/tmp/" -> "tmp"; "/" -> "/"; "" -> "".
ZT_API std::string lastPathComponent(std::string_view path);
// "/tmp/a.txt" -> "/tmp"; "/tmp/" -> "/"; "/tmp" -> "/"; "a.txt" -> ""; "/" -> "/".
ZT_API std::string stringByDeletingLastPathComponent(std::string_view path);
// "/tmp/a.tar.gz" -> "gz"; "/tmp/a" -> ""; "/tmp/.hidden" -> ""; "a." -> "".
ZT_API std::string pathExtension(std::string_view path);
// "/tmp/a.txt" -> "/tmp/a"; "/tmp/" -> "/tmp"; ".hidden" -> ".hidden"; "/" -> "/".
ZT_API std::string stringByDeletingPathExtension(std::string_view path);
// Joins with exactly one "/" and drops a trailing "/": "/tmp" + "a" -> "/tmp/a"; "" + "a" -> "a".
ZT_API std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);
// "/tmp/a" + "txt" -> "/tmp/a.txt"; "/tmp/" + "txt" -> "/tmp.txt".
ZT_API std::string stringByAppendingPathExtension(std::string_view path, std::string_view extension);
// "/a/b" -> {"/", "a", "b"}; "a/b/" -> {"a", "b", "/"}; repeated "/" count once.
ZT_API std::vector<std::string> pathComponents(std::string_view path);
// The inverse of pathComponents: components joined with stringByAppendingPathComponent.
ZT_API std::string pathWithComponents(const std::vector<std::string>& components);

// Standardizes a path the way the library compares them: an initial "~" or "~/" becomes the home
// folder, repeated "/", "." components and a trailing "/" are removed, ".." removes the component
// before it in an absolute path (above the root it stays at the root; relative paths keep their
// ".."), and a leading "/private" is removed when the shorter path names an existing item. The
// only file-system access is that last existence test.
ZT_API std::string stringByStandardizingPath(std::string_view path);

// --- Path strings ------------------------------------------------------------------------------

// (stringByDeletingLastSlash, stringByDeletingFirstSlash and stringByDeletingPrivate are plain
// text operations and live with the string utilities of the text area.)

// "/%s" of the path unless it is empty or already starts with "/".
ZT_API std::string stringByPrependingSlashToPath(std::string_view path);
// Appends "/" unless the path already ends with one; "" -> "/".
ZT_API std::string stringByAppendingSlashToPath(std::string_view path);

ZT_API std::string stringByNormalizingPathWithOptions(std::string_view path, unsigned options);
// stringByNormalizingPathWithOptions with ZTPathNormalizationAddTrailingSlash when the flag is true,
// else with no option.
ZT_API std::string stringByNormalizingPathAndAddingTrailingSlash(std::string_view path, bool addTrailingSlash);

// Both paths are normalized with a trailing "/"; the base is searched anywhere in the path; if
// found, everything up to the "/" that ends the match is removed (an empty result becomes "/").
// When the path had no trailing "/", the result loses its trailing "/" too.
ZT_API std::string stringByDeletingBeginningOfPath(std::string_view path, std::string_view base);
// For paths already normalized: both get a trailing "/"; if the base is found, equal lengths give
// "/", otherwise the text from the "/" that ends the match. A base that is not found gives the path.
ZT_API std::string stringByDeletingBeginningOfNormalizedPath(std::string_view path, std::string_view base);

// Comparisons on the ZTPathNormalizationForComparison form. A path is never a base of itself; the
// base tests are false when either string is empty.
ZT_API bool isBasePathOfPath(std::string_view base, std::string_view path);
ZT_API bool isEqualOrBasePathOfPath(std::string_view base, std::string_view path);
ZT_API bool isEqualToPath(std::string_view path, std::string_view other);
// Case-insensitive comparison under Unicode case folding.
ZT_API bool isEqualToCaseInsensitivePath(std::string_view path, std::string_view other);
// True when parent is, as a path, the other path without its last component; false when the
// other path is "/".
ZT_API bool isDirectParentPathOfPath(std::string_view parent, std::string_view path);

// The part of path below base, without a leading "/": when path does not start with base (a plain
// text prefix test) a copy of path; when both have the same number of components nullopt;
// otherwise the components after base's, joined. "/a/b/c/d" below "/a/b" -> "c/d".
ZT_API std::optional<std::string> relativePathWithBasePath(std::string_view path, std::string_view base);

// Removes the text of the last path component from the end: "/a/b" -> "/a/"; "a" -> "".
ZT_API std::string stringByDeletingLastURLComponent(std::string_view path);

// With replace: the existing extension is removed and the new one appended (an empty new one
// leaves none). Without: an empty new extension, or one equal to the existing one ignoring case,
// gives the path unchanged; otherwise the new extension is appended after any existing one.
ZT_API std::string stringBySettingPathExtension(std::string_view path, std::string_view extension,
                                         bool replaceExistingExtension);

}  // namespace zt
