#include "zentrel/filesystem/paths.h"

#include "filesystem/internal/unicode.h"
#include "zentrel/filesystem/path_strings.h"

namespace {

void replaceAll(std::string& text, std::string_view what, std::string_view with) {
  std::string out;
  out.reserve(text.size());
  std::size_t from = 0;
  while (true) {
    const std::size_t at = text.find(what, from);
    if (at == std::string::npos) break;
    out.append(text, from, at - from);
    out.append(with);
    from = at + what.size();
  }
  out.append(text, from, std::string::npos);
  text = std::move(out);
}

// The base's parent, taken from its normalized form so that a base spelled "/U/Docs/." or
// "/U/x/../Docs" still has "/U" as its parent.
std::string parentOfBase(std::string_view base) {
  return zt::stringByDeletingLastPathComponent(ZTNormalizeBeginingOfPath(base));
}

}  // namespace

std::string ZTNormalizeBeginingOfPath(std::string_view path) {
  std::string standardized = zt::stringByStandardizingPath(path);
  if (standardized != path) return standardized;
  replaceAll(standardized, "//", "/");
  replaceAll(standardized, "/./", "/");
  constexpr std::string_view kPrivate = "/private/";
  if (standardized.compare(0, kPrivate.size(), kPrivate) == 0) standardized.erase(0, kPrivate.size() - 1);
  return standardized;
}

std::string ZTNormalizeEndOfPath(std::string_view path) { return zt::stringByAppendingSlashToPath(path); }

std::string ZTNormalizePath(std::string_view path) { return ZTNormalizeEndOfPath(ZTNormalizeBeginingOfPath(path)); }

bool ZTIsPathEqualToPath(std::string_view path, std::string_view otherPath) {
  return ZTNormalizePath(path) == ZTNormalizePath(otherPath);
}

bool ZTIsPathBasePathOfPath(std::string_view basePath, std::string_view path) {
  if (basePath.empty() || path.empty()) return false;
  const std::string base = ZTNormalizePath(basePath);
  const std::string normalized = ZTNormalizePath(path);
  return normalized.size() != base.size() && normalized.compare(0, base.size(), base) == 0;
}

std::string ZTDeleteBeginningOfPath(std::string_view beginning, std::string_view path) {
  return ZTDeleteBeginningOfPathWithOptions(beginning, path, 0);
}

std::string ZTDeleteBeginningOfPathWithOptions(std::string_view beginning, std::string_view path, unsigned options) {
  const std::string base = ZTNormalizePath(beginning);
  std::string normalized = ZTNormalizeBeginingOfPath(path);
  const auto match =
      zt::fs_internal::find(normalized, base, (options & ZTPathCaseInsensitiveSearch) != 0,
                            (options & ZTPathBackwardsSearch) != 0, (options & ZTPathAnchoredSearch) != 0);
  if (!match) return normalized;
  normalized.erase(match->location, match->length - 1);
  if (normalized.empty()) return "/";
  return normalized;
}

std::string ZTAbsolutePathToRelative(std::string_view path, const std::vector<std::string>& basePaths) {
  for (const std::string& base : basePaths) {
    if (ZTIsPathBasePathOfPath(base, path)) {
      return ZTDeleteBeginningOfPathWithOptions(parentOfBase(base), path, 0);
    }
  }
  return std::string(path);
}

ZTFileURL ZTAbsoluteURLToRelative(const ZTFileURL& url, const std::vector<ZTFileURL>& baseURLs) {
  for (const ZTFileURL& base : baseURLs) {
    if (ZTIsPathBasePathOfPath(base.path(), url.path())) {
      return ZTFileURL::fileURLWithPath(ZTDeleteBeginningOfPathWithOptions(parentOfBase(base.path()), url.path(), 0));
    }
  }
  return url;
}

std::string ZTRelativePathToAbsolute(std::string_view relativePath, std::string_view basePath) {
  const std::string parent = zt::stringByDeletingLastPathComponent(ZTNormalizePath(basePath));
  if (!relativePath.empty() && relativePath.front() == '/') relativePath.remove_prefix(1);
  return zt::stringByAppendingPathComponent(parent, relativePath);
}

ZTFileURL ZTRelativeURLToAbsolute(const ZTFileURL& relativeURL, const ZTFileURL& baseURL) {
  return ZTFileURL::fileURLWithPath(ZTRelativePathToAbsolute(relativeURL.path(), baseURL.path()),
                                    relativeURL.hasDirectoryPath());
}
