#pragma once
// Path comparison and base-relative paths: the normal form of a path, ancestor tests, and the
// conversion of absolute paths to paths relative to a base folder's parent and back.
//
// A normalized path has gone through ZTNormalizePath: its beginning is standardized (repeated "/",
// "." and ".." removed, a leading "/private" dropped, see ZTNormalizeBeginingOfPath) and it ends
// with exactly one "/". Comparisons are made on normalized forms only, so "/a/b" equals "/a/b/" and
// "/a/bc" is not below "/a/b".
//
// Relative paths here are relative to the base folder's *parent*: they start with "/" and the
// base folder's own name (base "/U/x/Docs", path "/U/x/Docs/a.pdf" -> "/Docs/a.pdf"), so stored
// data keeps the base's name. ZTRelativePathToAbsolute undoes exactly this.
//
// Everything here is pure string work, reentrant and callable from any thread. The only file-system
// access is the existence test of the "/private" rule. Bad input (empty strings, invalid UTF-8,
// embedded NUL) never throws: empty paths are never bases and never have bases.

#include <string>
#include <string_view>
#include <vector>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/export.h"

// Search options for ZTDeleteBeginningOfPathWithOptions (the classic string-search option values).
enum ZTPathSearchOptions : unsigned {
  ZTPathCaseInsensitiveSearch = 1,  // compare under Unicode simple case folding
  ZTPathLiteralSearch = 2,          // byte comparison (also what 0 does)
  ZTPathBackwardsSearch = 4,        // take the last occurrence
  ZTPathAnchoredSearch = 8,         // match only at the start (at the end with backwards)
};

// Standardizes the path (zt::stringByStandardizingPath). Only when that changes nothing is the
// path reduced by hand: every "//" and "/./" becomes "/", then a leading "/private/" loses its
// "/private" whether or not the shorter path exists.
ZT_API std::string ZTNormalizeBeginingOfPath(std::string_view path);
// Appends "/" unless the path already ends with one; "" -> "/".
ZT_API std::string ZTNormalizeEndOfPath(std::string_view path);
// ZTNormalizeEndOfPath(ZTNormalizeBeginingOfPath(path)).
ZT_API std::string ZTNormalizePath(std::string_view path);

// The normalized forms are equal.
ZT_API bool ZTIsPathEqualToPath(std::string_view path, std::string_view otherPath);
// basePath is a strict ancestor of path; false when either is empty.
ZT_API bool ZTIsPathBasePathOfPath(std::string_view basePath, std::string_view path);

// Removes the normalized beginning (ending with "/") from the path, wherever in the path it is
// found first, keeping the "/" that ended it. Not found: the path with its beginning normalized.
// An empty result is "/". Example: "/a/b" from "/a/b/c/d" gives "/c/d"; "/a" from "/x/a/y" gives
// "/x/y". Options are ZTPathSearchOptions; 0 compares bytes.
ZT_API std::string ZTDeleteBeginningOfPath(std::string_view beginning, std::string_view path);
ZT_API std::string ZTDeleteBeginningOfPathWithOptions(std::string_view beginning, std::string_view path, unsigned options);

// The path relative to the parent of the first base (in list order) that is its ancestor, or the
// path unchanged when none is.
ZT_API std::string ZTAbsolutePathToRelative(std::string_view path, const std::vector<std::string>& basePaths);
// The same on the URLs' paths; the given URL itself when no base matches.
ZT_API ZTFileURL ZTAbsoluteURLToRelative(const ZTFileURL& url, const std::vector<ZTFileURL>& baseURLs);
// The parent of the normalized base joined with the relative path (one leading "/" stripped).
ZT_API std::string ZTRelativePathToAbsolute(std::string_view relativePath, std::string_view basePath);
ZT_API ZTFileURL ZTRelativeURLToAbsolute(const ZTFileURL& relativeURL, const ZTFileURL& baseURL);
